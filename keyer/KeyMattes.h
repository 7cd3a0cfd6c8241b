// SPDX-License-Identifier: BSD-3-Clause
//
// Mattes of what is sure: what surely is no subject is cut, what surely is solid is held.
#pragma once

#include "keyer/KeyRegions.h"

namespace orvanite {

/// 1 where nothing but screen or studio is, falling to 0 three to five pixels from anything else.
Plane garbageMatte(const Look& look, const ScreenPlate& plate, const KeyRegions& regions);

/// 1 deep in what is surely solid.
Plane holdOutMatte(const Look& look, const ScreenPlate& plate, const KeyRegions& regions);

}  // namespace orvanite
