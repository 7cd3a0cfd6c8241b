// SPDX-License-Identifier: BSD-3-Clause
//
// Mattes of what is sure: what surely is no subject is cut, what surely is solid is held.
#pragma once

#include "keyer/KeyRegions.h"

namespace orvanite {

/// 1 where nothing but screen or studio is, falling to 0 three to five pixels from anything else.
Plane garbageMatte(const Look& look, const ScreenPlate& plate, const KeyRegions& regions);

/// Whether the subject shows the screen nearly everywhere, as glass, smoke and veils do: most of
/// what lies well inside it holds more than half screen, and is smooth, or lighter than the screen
/// and not much rougher. Nothing of it is solid then.
bool isClear(const Look& look, const ScreenPlate& plate, const KeyRegions& regions);

/// 1 deep in what is surely solid; not for a subject that is clear.
Plane holdOutMatte(const Look& look, const ScreenPlate& plate, const KeyRegions& regions);

}  // namespace orvanite
