// SPDX-License-Identifier: BSD-3-Clause
//
// The screen's light changes slowly, so it is kept as a coarse grid of cells. A cell without screen
// takes its colour from ever larger surroundings (a pyramid of sums and weights), and the grid is
// read smoothly.
#include "keyer/CleanPlate.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace orvanite {
namespace {

struct Sum {
  float r = 0, g = 0, b = 0, weight = 0;
  void add(const Sum& s, float share) {
    r += share * s.r;
    g += share * s.g;
    b += share * s.b;
    weight += share * s.weight;
  }
};

struct Level {
  int columns, rows;
  std::vector<Sum> sums;
  Sum& at(int x, int y) {
    return sums[static_cast<std::size_t>(std::clamp(y, 0, rows - 1) * columns +
                                         std::clamp(x, 0, columns - 1))];
  }
};

Level halved(Level& fine) {
  Level coarse{(fine.columns + 1) / 2, (fine.rows + 1) / 2, {}};
  coarse.sums.resize(static_cast<std::size_t>(coarse.columns * coarse.rows));
  for (int y = 0; y < fine.rows; ++y) {
    for (int x = 0; x < fine.columns; ++x) coarse.at(x / 2, y / 2).add(fine.at(x, y), 1);
  }
  return coarse;
}

/// The value between four cells around a place given in cells, from the centre of the first.
template <class Get>
auto between(float x, float y, Get&& get) {
  const float fx = std::floor(x);
  const float fy = std::floor(y);
  const float u = x - fx;
  const float v = y - fy;
  const int ix = static_cast<int>(fx);
  const int iy = static_cast<int>(fy);
  return get(ix, iy, (1 - u) * (1 - v), ix + 1, iy, u * (1 - v), ix, iy + 1, (1 - u) * v, ix + 1,
             iy + 1, u * v);
}

/// From the top down: what a cell lacks in certainty it takes from the level above.
void spread(Level& finest, float full) {
  std::vector<Level> pyramid;
  pyramid.push_back(std::move(finest));
  while (pyramid.back().columns > 1 || pyramid.back().rows > 1) {
    pyramid.push_back(halved(pyramid.back()));
  }
  for (std::size_t i = pyramid.size() - 1; i-- > 0;) {
    Level& fine = pyramid[i];
    Level& coarse = pyramid[i + 1];
    for (int y = 0; y < fine.rows; ++y) {
      for (int x = 0; x < fine.columns; ++x) {
        Sum above;
        const auto take = [&](int ax, int ay, float share) {
          const Sum& s = coarse.at(ax, ay);
          if (s.weight > 0) above.add(s, share / s.weight);
        };
        between((static_cast<float>(x) - 0.5F) / 2, (static_cast<float>(y) - 0.5F) / 2,
                [&](int ax, int ay, float as, int bx, int by, float bs, int cx, int cy, float cs,
                    int dx, int dy, float ds) {
                  take(ax, ay, as);
                  take(bx, by, bs);
                  take(cx, cy, cs);
                  take(dx, dy, ds);
                });
        Sum& own = fine.at(x, y);
        const float missing = std::max(0.0F, full - own.weight);
        if (above.weight > 0) own.add(above, missing / above.weight);
      }
    }
  }
  finest = std::move(pyramid[0]);
}

}  // namespace

CleanPlate::CleanPlate(const Plate& plate, const Screen& screen)
    : width_(plate.width),
      height_(plate.height),
      cell_(std::max(4, std::max(plate.width, plate.height) / 96)),
      columns_((plate.width + cell_ - 1) / cell_),
      rows_((plate.height + cell_ - 1) / cell_) {
  // A hundred and some pixels say what a cell's colour is.
  const int step = std::max(1, cell_ / 12);
  const float full = 0.25F * static_cast<float>((cell_ / step) * (cell_ / step));
  // Where a screen is lit too much or too little its hue drifts. So the crowd grows, round by
  // round, by pixels that are like the screen beside them.
  constexpr int rounds = 4;
  for (int round = 0; round < rounds; ++round) {
    Level level{columns_, rows_, {}};
    level.sums.resize(static_cast<std::size_t>(columns_ * rows_));
    for (int y = step / 2; y < height_; y += step) {
      for (int x = step / 2; x < width_; x += step) {
        const Rgb c = colourAt(plate, x, y);
        if (screen.holds(c) || (round > 0 && screen.holdsBeside(c, at(x, y)))) {
          level.at(x / cell_, y / cell_).add({c[0], c[1], c[2], 1}, 1);
        }
      }
    }
    spread(level, full);
    cells_.clear();
    for (const Sum& s : level.sums) {
      cells_.push_back(s.weight > 0 ? Rgb{s.r / s.weight, s.g / s.weight, s.b / s.weight}
                                    : screen.colour);
    }
  }
}

Rgb CleanPlate::at(int x, int y) const {
  const auto cell = [this](int cx, int cy) -> const Rgb& {
    return cells_[static_cast<std::size_t>(std::clamp(cy, 0, rows_ - 1) * columns_ +
                                           std::clamp(cx, 0, columns_ - 1))];
  };
  const float size = static_cast<float>(cell_);
  return between((static_cast<float>(x) + 0.5F) / size - 0.5F,
                 (static_cast<float>(y) + 0.5F) / size - 0.5F,
                 [&](int ax, int ay, float as, int bx, int by, float bs, int cx, int cy, float cs,
                     int dx, int dy, float ds) {
                   Rgb out{};
                   for (std::size_t c = 0; c < 3; ++c) {
                     out[c] = as * cell(ax, ay)[c] + bs * cell(bx, by)[c] + cs * cell(cx, cy)[c] +
                              ds * cell(dx, dy)[c];
                   }
                   return out;
                 });
}

void CleanPlate::write(const OtileImage& picture, int depth) const {
  const float most = depth == 1 ? 255.0F : 65535.0F;
  const auto put = [&](void* channel, std::ptrdiff_t at, float v) {
    if (channel == nullptr) return;
    const float code = std::clamp(v, 0.0F, 1.0F) * most + 0.5F;
    if (depth == 1) {
      static_cast<std::uint8_t*>(channel)[at] = static_cast<std::uint8_t>(code);
    } else {
      static_cast<std::uint16_t*>(channel)[at] = static_cast<std::uint16_t>(code);
    }
  };
  for (int y = 0; y < height_; ++y) {
    for (int x = 0; x < width_; ++x) {
      const Rgb c = at(x, y);
      const std::ptrdiff_t place = static_cast<std::ptrdiff_t>(y) * picture.lineStep +
                                   static_cast<std::ptrdiff_t>(x) * picture.pixelStep;
      put(picture.red, place, c[0]);
      put(picture.green, place, c[1]);
      put(picture.blue, place, c[2]);
      put(picture.alpha, place, 1);
    }
  }
}

}  // namespace orvanite
