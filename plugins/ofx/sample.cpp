// SPDX-License-Identifier: BSD-3-Clause
//
// The button that measures the screen: the search that every front end shares, on the plate's
// current frame.
#include <cstring>
#include <vector>

#include "keyer/Screen.h"
#include "plugins/ofx/images.h"
#include "plugins/ofx/instance.h"

namespace orvanite::ofxPlugin {

namespace {

// The pixels of a host's picture, whose rows may lie anyhow.
struct Copy {
  Copy(const Picture& picture, int depth)
      : width(picture.bounds.x2 - picture.bounds.x1),
        height(picture.bounds.y2 - picture.bounds.y1),
        bytes(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
              static_cast<std::size_t>(picture.channels * depth)) {
    const std::size_t row =
        static_cast<std::size_t>(width) * static_cast<std::size_t>(picture.channels * depth);
    for (int y = 0; y < height; ++y) {
      std::memcpy(bytes.data() + static_cast<std::size_t>(y) * row,
                  picture.data + y * picture.rowBytes, row);
    }
  }
  int width, height;
  std::vector<std::byte> bytes;
};

}  // namespace

ofx::Status Instance::sampleScreen(ofx::Time time) {
  const Image image(source_.clip, time);
  const int depth = image ? image.depth() : 0;
  if (depth == 0) {
    report(ofx::message::warning, "Sample screen: there is no plate at this frame");
    return ofx::ok;
  }
  const Picture picture = image.picture(ofx::sourceClip);
  Screen screen;
  if (picture.channels >= 3 && !isEmpty(picture.bounds)) {
    Copy copy(picture, depth);
    std::byte* const at = copy.bytes.data();
    Plate plate;
    plate.image = OtileImage{at,      at + depth,       at + std::ptrdiff_t{2} * depth,
                             nullptr, picture.channels, picture.channels * copy.width};
    plate.width = copy.width;
    plate.height = copy.height;
    plate.depth = depth;
    screen = findScreen(plate);
  }
  if (!screen.found) {
    report(ofx::message::warning, "Sample screen: this frame shows no blue or green screen");
    return ofx::ok;
  }
  parameters_.setScreen(static_cast<double>(screen.colour[0]),
                        static_cast<double>(screen.colour[1]),
                        static_cast<double>(screen.colour[2]), time);
  parameters_.followScreen(time);
  return ofx::ok;
}

}  // namespace orvanite::ofxPlugin
