// SPDX-License-Identifier: BSD-3-Clause
//
// The registry of node classes.
#pragma once

#include <vector>

#include "platform/NRiExport.h"
#include "platform/NRiName.h"

/// The node classes that scripts know.
class NRI_API NRiClassName {
 public:
  /// Makes a class known under its script name, with the class it derives from. Returns the name.
  /// A name that is known already takes the new base.
  static NRiName registerClassName(const NRiName& name, const NRiName& base);
  /// Forgets a class; a name that is not known is fine.
  static void unregisterClassName(const NRiName& name);
  /// The base of a class; empty when the class is not known.
  static NRiName baseOf(const NRiName& name);
  /// Every name that is known.
  static std::vector<NRiName> all();
};
