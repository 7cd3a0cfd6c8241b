// SPDX-License-Identifier: BSD-3-Clause
#include "keyer/CleanPlate.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "keyer/ScreenHue.h"
#include "keyer/ScreenPlate.h"

namespace orvanite {

void writeStretched(const Colours& codes, Encoding encoding, int width, int height,
                    const OtileImage& picture, Depth depth) {
  const std::array<void*, 4> channels = {picture.red, picture.green, picture.blue, picture.alpha};
  std::vector<float> row(static_cast<std::size_t>(width));
  for (std::size_t c = 0; c < 4; ++c) {
    if (channels[c] == nullptr) continue;
    std::optional<Stretch> colour;
    if (c < 3) colour.emplace(codes[c], width, height);
    for (int y = 0; y < height; ++y) {
      if (colour) {
        colour->row(y, row.data());
        if (encoding == Encoding::light) {
          for (float& v : row) v = lightOfCode(v);
        }
      } else {
        std::fill(row.begin(), row.end(), 1.0f);
      }
      const std::ptrdiff_t at = std::ptrdiff_t{y} * picture.lineStep;
      for (int x = 0; x < width; ++x) {
        const std::ptrdiff_t i = at + std::ptrdiff_t{x} * picture.pixelStep;
        const float v = row[static_cast<std::size_t>(x)];
        const float code = std::clamp(v, 0.0f, 1.0f);
        if (depth == Depth::bytes) {
          static_cast<std::uint8_t*>(channels[c])[i] = static_cast<std::uint8_t>(code * 255 + 0.5f);
        } else if (depth == Depth::shorts) {
          static_cast<std::uint16_t*>(channels[c])[i] =
              static_cast<std::uint16_t>(code * 65535 + 0.5f);
        } else {
          static_cast<float*>(channels[c])[i] = v;
        }
      }
    }
  }
}

CleanPlate::CleanPlate(const Plate& plate, const Screen& screen)
    : width_(plate.width),
      height_(plate.height),
      encoding_(plate.depth == Depth::floats ? Encoding::light : Encoding::codes) {
  Look look = lookAt(plate, encoding_);
  Rgb colour = screen.colour;
  if (encoding_ == Encoding::light) {
    for (float& v : colour) v = codeOfLight(v);
  }
  const ScreenHue hue = hueOfColour(colour);
  ScreenPlate estimate = rigidPlate(look, hue);
  estimateClean(estimate, look, hue);
  clean_ = std::move(estimate.clean);
}

Rgb CleanPlate::at(int x, int y) const {
  Rgb colour{};
  for (std::size_t c = 0; c < 3; ++c) {
    const float code = stretchedAt(clean_[c], width_, height_, x, y);
    colour[c] = encoding_ == Encoding::light ? lightOfCode(code) : code;
  }
  return colour;
}

void CleanPlate::write(const OtileImage& picture, Depth depth) const {
  writeStretched(clean_, encoding_, width_, height_, picture, depth);
}

}  // namespace orvanite
