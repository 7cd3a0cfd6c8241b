// SPDX-License-Identifier: BSD-3-Clause
//
// Pictures in memory.
#include "apps/media/Picture.h"

#include <new>

#include "keyer/Error.h"

namespace orvanite::media {
namespace {

template <class Code, unsigned maximum>
void multiplyCodes(Picture& picture) {
  auto* pixel = reinterpret_cast<Code*>(picture.pixels.get());
  const auto* end = pixel + picture.bytes() / sizeof(Code);
  for (; pixel != end; pixel += 4) {
    for (int c = 0; c < 3; ++c) {
      pixel[c] = static_cast<Code>((unsigned{pixel[c]} * pixel[3] + maximum / 2) / maximum);
    }
  }
}

}  // namespace

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

void multiplyByAlpha(Picture& picture) {
  switch (picture.depth) {
    case 1:
      multiplyCodes<unsigned char, 255>(picture);
      break;
    case 2:
      multiplyCodes<unsigned short, 65535>(picture);
      break;
    default: {
      auto* pixel = reinterpret_cast<float*>(picture.pixels.get());
      const auto* end = pixel + picture.bytes() / sizeof(float);
      for (; pixel != end; pixel += 4) {
        for (int c = 0; c < 3; ++c) pixel[c] *= pixel[3];
      }
    }
  }
}

}  // namespace orvanite::media
