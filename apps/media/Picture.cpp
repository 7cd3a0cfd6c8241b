// SPDX-License-Identifier: BSD-3-Clause
//
// Pictures in memory.
#include "apps/media/Picture.h"

#include <new>

#include "keyer/Error.h"

namespace orvanite::media {

int depthOf(Samples samples) {
  return samples == Samples::uint8 ? 1 : samples == Samples::uint16 ? 2 : 4;
}

std::string nameOf(Samples samples) {
  switch (samples) {
    case Samples::uint8:
      return "8-bit";
    case Samples::uint16:
      return "16-bit";
    case Samples::half:
      return "half";
    default:
      return "float";
  }
}

Picture Picture::make(const Window& data, int depth, Samples samples) {
  Picture picture;
  picture.data = data;
  picture.depth = depth;
  picture.samples = samples;
  try {
    picture.pixels = std::make_unique_for_overwrite<std::byte[]>(picture.bytes());
  } catch (const std::bad_alloc&) {
    throw Error(Fault::failure, "picture",
                "out of memory for " + std::to_string(data.width) + "x" +
                    std::to_string(data.height) + " pixels");
  }
  return picture;
}

OtileImage Picture::image() const {
  std::byte* first = pixels.get();
  return {
      first, first + depth, first + std::ptrdiff_t{2} * depth, first + std::ptrdiff_t{3} * depth,
      4,     4 * data.width};
}

}  // namespace orvanite::media
