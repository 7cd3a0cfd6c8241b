// SPDX-License-Identifier: BSD-3-Clause
//
// The base of plug-in objects. A plug-in exports one, built when its library is loaded, which
// declares the plug-in's functions; they are gone when it is.
#pragma once

#include <memory>

#include "platform/NRiExport.h"
#include "platform/NRiName.h"
#include "platform/NRiScope.h"

/// A product that plugs into the application; a static object of its library.
class NRI_API NRxPlugin {
 public:
  /// Announces itself by its banner.
  explicit NRxPlugin(const NRiName& banner);
  virtual ~NRxPlugin();
  NRxPlugin(const NRxPlugin&) = delete;
  NRxPlugin& operator=(const NRxPlugin&) = delete;

  /// One line that names the product and its version.
  const NRiName& name() const { return name_; }

 protected:
  NRiName name_;                              // the banner
  std::shared_ptr<NRiDeclaration> compiled_;  // empty until the declaration has been compiled
};
