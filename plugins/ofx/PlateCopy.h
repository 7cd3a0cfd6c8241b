// SPDX-License-Identifier: BSD-3-Clause
//
// A host's picture as the keyer's searches read one: first row on top, whatever its rows' order.
#pragma once

#include <cstddef>
#include <vector>

#include "keyer/Screen.h"
#include "plugins/ofx/Window.h"

namespace orvanite::ofxPlugin {

/// The pixels of a picture of three or four channels, which is not needed any more then.
struct PlateCopy {
  explicit PlateCopy(const Picture& picture) : bounds(picture.bounds) {
    const Depth depth = workingDepth(picture.sample, false);
    plate.width = bounds.x2 - bounds.x1;
    plate.height = bounds.y2 - bounds.y1;
    plate.depth = depth;
    const auto samples = static_cast<std::size_t>(plate.width * picture.channels);
    const std::size_t row = samples * static_cast<std::size_t>(bytesOf(depth));
    bytes.resize(row * static_cast<std::size_t>(plate.height));
    for (int y = 0; y < plate.height; ++y) {
      toWorking(bytes.data() + static_cast<std::size_t>(plate.height - 1 - y) * row, depth,
                picture.data + y * picture.rowBytes, picture.sample, samples);
    }
    std::byte* const at = bytes.data();
    const std::ptrdiff_t sample = bytesOf(depth);
    plate.image = OtileImage{at,      at + sample,      at + 2 * sample,
                             nullptr, picture.channels, picture.channels * plate.width};
  }

  ofx::RectI bounds;             // the picture's
  std::vector<std::byte> bytes;  // `plate` points here
  Plate plate;
};

}  // namespace orvanite::ofxPlugin
