// SPDX-License-Identifier: BSD-3-Clause
//
// What stands behind the subject: the lit screen with the studio at its edge, and the evening
// landscape that takes its place. Both give light at a place in scene units.
#pragma once

#include "examples/plate/Light.h"
#include "examples/plate/Scene.h"

namespace orvanite::plate {

/// The screen's own colour under even lamps, in video codes.
V3 screenCode(ScreenColour screen);

/// The screen in its light, without the subject; `pixel` is a pixel's width in scene units.
V3 screenAt(const Options& options, float x, float y, float pixel);

/// How much of the column is to be thrown away: 0 on the screen, 1 from its hem outwards.
float garbageAt(float x);

V3 landscapeAt(const Options& options, float x, float y);

}  // namespace orvanite::plate
