// SPDX-License-Identifier: BSD-3-Clause
//
// A picture of any depth to draw plates on.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

#include "keyer/Screen.h"

namespace orvanite {

/// Four interleaved channels of a depth.
class Canvas {
 public:
  Canvas(int width, int height, int depth)
      : width_(width),
        height_(height),
        depth_(depth),
        bytes_(static_cast<std::size_t>(4 * width * height * depth), std::uint8_t{0xA5}) {}

  Plate plate() {
    std::uint8_t* p = bytes_.data();
    return {{p, p + depth_, p + 2 * depth_, p + 3 * depth_, 4, 4 * width_},
            width_,
            height_,
            Depth{depth_}};
  }

  void set(int x, int y, const Rgb& c) {
    for (std::size_t k = 0; k < 3; ++k) {
      std::uint8_t* at = bytes_.data() + static_cast<std::size_t>(((y * width_ + x) * 4) * depth_) +
                         k * static_cast<std::size_t>(depth_);
      if (depth_ == 4) {
        std::memcpy(at, &c[k], 4);
      } else {
        const float most = depth_ == 1 ? 255.0f : 65535.0f;
        const auto code =
            static_cast<std::uint16_t>(std::lround(std::clamp(c[k], 0.0f, 1.0f) * most));
        std::memcpy(at, &code, static_cast<std::size_t>(depth_));
      }
    }
  }

  void fill(const std::function<Rgb(int, int)>& colour) {
    for (int y = 0; y < height_; ++y) {
      for (int x = 0; x < width_; ++x) set(x, y, colour(x, y));
    }
  }

  const std::vector<std::uint8_t>& bytes() const { return bytes_; }

 private:
  int width_, height_, depth_;
  std::vector<std::uint8_t> bytes_;
};

}  // namespace orvanite
