// SPDX-License-Identifier: BSD-3-Clause
//
// What is done to masks of a plate that is looked at: distances, openings, connected parts, hulls.
// None of it depends on how many threads work.
#pragma once

#include <cstdint>
#include <vector>

#include "keyer/Loops.h"
#include "keyer/Planes.h"

namespace orvanite {

/// How far each pixel is from the nearest one of a mask, in pixels; far beyond the frame where the
/// mask is empty. `nearest`, where given, takes that one's index.
Plane distanceTo(const Mask& mask, std::vector<std::uint32_t>* nearest = nullptr,
                 const RowLoop& rows = bandAfterBand);

/// The same as far as `reach`, at a fraction of the cost where that is short; what is farther away
/// is anything above it.
Plane distanceWithin(const Mask& mask, float reach, const RowLoop& rows = bandAfterBand);

/// What is left of a mask when all that is narrower than 3 pixels goes.
Mask opened(const Mask& mask, const RowLoop& rows = bandAfterBand);

/// Connected parts of a mask: for each pixel the least index of its part, 8 neighbours; its own
/// where the mask is 0.
Values<std::uint32_t> partsOf(const Mask& mask);

/// The parts of a mask that are large for its frame; all of it where they are not most of it.
Mask largeOf(const Mask& mask);

/// The pixels of a mask within its own convex hull, `inset` pixels in from it: a frame of other
/// things around a screen stays out.
Mask hullOf(const Mask& mask, float inset);

}  // namespace orvanite
