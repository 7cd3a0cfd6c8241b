// SPDX-License-Identifier: BSD-3-Clause
//
// What of a plate is surely screen, what is surely subject, and which pixels lie between: decided
// on the matte of a plain key, with its grain taken out first.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "keyer/ScreenPlate.h"

namespace orvanite {

/// The parts of a look. A matte here is 1 at the subject.
struct KeyRegions {
  Plane share;      // how much screen a plain key sees in each pixel, 1 all; with grain
  Plane calmShare;  // the same with its grain averaged away
  float alike = 0;  // whether subjects may be as full of colour, 0..1: leaves before a dull screen
  float grain = 0;  // standard deviation of `share` on the screen
  float calm = 0;   // what is left of it in `calmShare`
  float radius = 0.8f;  // sigma of that average, in pixels
  Plane light;          // how light a pixel's neighbourhood is beside the screen there: 1 as light
  Mask alien;    // more screen than its colour can hold: its own hue is much like the screen's
  Mask screen;   // surely screen
  Mask subject;  // surely subject, or most of it
  Mask inside;   // within the screen's hull: what is around it is no part of the picture
  Mask core;     // subject, well inside its edges
  Mask pure;     // subject without any screen in it
  std::vector<std::uint32_t> nearestPure;  // index of the nearest pure pixel
  std::size_t pureCount = 0;
};

/// The screen's light at a pixel, its three channels together, and no less than can be compared
/// with.
inline float screenLight(const ScreenPlate& plate, std::size_t i) {
  return std::max(sumAt(plate.clean, i), 0.15f);
}

KeyRegions keyRegions(const Look& look, const ScreenHue& hue, const ScreenPlate& plate);

}  // namespace orvanite
