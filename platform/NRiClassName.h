// SPDX-License-Identifier: BSD-3-Clause
//
// The registry of node classes.
#pragma once

#include <vector>

#include "platform/NRiExport.h"
#include "platform/NRiName.h"

class NRI_API NRiClassName {
 public:
  /// Makes a class known under its script name, with the class it derives from. Returns the name.
  /// A name that is known already takes the new base.
  static NRiName registerClassName(const NRiName& name, const NRiName& base);
  static void unregisterClassName(const NRiName& name);
  /// The base of a class; empty when the class is not known.
  static NRiName baseOf(const NRiName& name);
  static std::vector<NRiName> all();
};
