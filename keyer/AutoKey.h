// SPDX-License-Identifier: BSD-3-Clause
//
// A first key by itself: parameters that follow from a measured screen and subject.
// Tries them on the engine with a few thousand pixels of the plate, so that what it finds is what
// the engine does.
#pragma once

#include <string>
#include <vector>

#include "keyer/Screen.h"
#include "keyer/Settings.h"

namespace orvanite {

/// What autoKey found and set.
struct AutoKey {
  Screen screen;                 // the screen that was found
  std::vector<std::string> set;  // the parameters that were set, in the table's order
  // Whether they are meant for a clean plate; where the caller has no better one, CleanPlate's.
  bool cleanPlate = false;
};

/// How the plate is going to be keyed.
enum class CleanPlateUse {
  never,       // the front end has no clean plate
  whenUneven,  // it can make one, for 8-bit and 16-bit plates
  always       // it has one: only for 8-bit and 16-bit plates
};

/// Sets screen, screenRange, fgBias, the balances and replace from the plate, and for an uneven
/// screen without a clean plate the gains and midTonesAt. Parameters that were given stay as they
/// are. Wants the colourspace to be set. The same plate gives the same values.
/// Throws Error (failure) when the plate has no screen that is sure enough.
AutoKey autoKey(const Plate& plate, Settings& settings,
                CleanPlateUse use = CleanPlateUse::whenUneven);

}  // namespace orvanite
