// SPDX-License-Identifier: BSD-3-Clause
//
// Every pixel of the result is fetched from where its orientation puts it.
#include "media/Orientation.h"

#include <array>
#include <cstddef>
#include <type_traits>
#include <utility>

namespace orvanite::media {
namespace {

template <class Pixel>
void turn(const Picture& from, Picture& to, Orientation orientation) {
  const auto* source = reinterpret_cast<const Pixel*>(from.pixels.get());
  auto* out = reinterpret_cast<Pixel*>(to.pixels.get());
  const std::ptrdiff_t width = from.data.width;
  const std::ptrdiff_t height = from.data.height;
  // Where the first pixel of the result comes from, and the steps to its right and lower
  // neighbours.
  const std::ptrdiff_t right = width - 1;
  const std::ptrdiff_t bottom = (height - 1) * width;
  struct Way {
    std::ptrdiff_t first, across, down;
  };
  const Way ways[] = {
      {0, 1, width}, {right, -1, width},  {bottom + right, -1, -width}, {bottom, 1, -width},
      {0, width, 1}, {bottom, -width, 1}, {bottom + right, -width, -1}, {right, width, -1}};
  const Way& way = ways[orientation - 1];
  for (std::ptrdiff_t y = 0; y < to.data.height; ++y) {
    const Pixel* pixel = source + way.first + y * way.down;
    for (std::ptrdiff_t x = 0; x < to.data.width; ++x) *out++ = pixel[x * way.across];
  }
}

}  // namespace

const char* nameOfOrientation(Orientation orientation) {
  constexpr const char* names[] = {"upright",
                                   "mirrored",
                                   "turned by 180 degrees",
                                   "turned by 180 degrees and mirrored",
                                   "turned by 90 degrees and mirrored",
                                   "turned by 90 degrees",
                                   "turned by 270 degrees and mirrored",
                                   "turned by 270 degrees"};
  return names[orientation - 1];
}

Picture upright(Picture picture, Orientation orientation) {
  if (orientation <= 1 || orientation > 8) return picture;
  const Window& data = picture.data;
  const bool side = liesOnItsSide(orientation);
  Picture result =
      Picture::make({0, 0, side ? data.height : data.width, side ? data.width : data.height},
                    picture.depth, picture.samples);
  result.channels = picture.channels;
  result.hasAlpha = picture.hasAlpha;
  result.premultiplied = picture.premultiplied;
  result.header = std::move(picture.header);
  withSampleOf(picture.depth, [&]<class Sample>(std::type_identity<Sample>) {
    turn<std::array<Sample, 4>>(picture, result, orientation);
  });
  return result;
}

}  // namespace orvanite::media
