// SPDX-License-Identifier: BSD-3-Clause
//
// Smaller pictures, and pictures as a screen shows them.
// Knows media, OpenImageIO and oneTBB.
#pragma once

#include <cstdint>
#include <vector>

#include "base/Depth.h"
#include "media/Picture.h"

namespace orvanite::view {

/// A picture of ceil(width / divisor) x ceil(height / divisor) pixels, each the mean of the code
/// values of the divisor x divisor pixels under it; those beyond the edge do not count.
media::Picture shrink(const media::Picture& picture, int divisor);

/// 8-bit RGBA, rows from the top.
struct ScreenPicture {
  int width = 0, height = 0;
  std::vector<std::uint8_t> rgba;
};

/// The 8-bit form of rows of RGBA samples: what a file of 8-bit samples would hold, by
/// OpenImageIO's conversion.
///
/// pixels  `height` rows of `width` pixels, `rowBytes` from one row to the next
/// light   whether floats are light, whose codes are shown (toCodes)
ScreenPicture toScreen(const std::byte* pixels, std::size_t rowBytes, int width, int height,
                       Depth depth, bool light = false);

/// The mean of divisor x divisor pixels for each pixel, as in shrink.
ScreenPicture shrink(const ScreenPicture& picture, int divisor);

}  // namespace orvanite::view
