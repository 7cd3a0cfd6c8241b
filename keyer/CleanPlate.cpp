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
#include <limits>
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

/// Where a place lies between the centres of two cells: the first one's number and the share of the
/// second.
struct Between {
  int cell;
  float share;
};

Between betweenCells(float place) {
  const float first = std::floor(place - 0.5F);
  return {static_cast<int>(first), place - 0.5F - first};
}

Rgb mixed(const Rgb& a, const Rgb& b, float share) {
  Rgb out{};
  for (std::size_t c = 0; c < 3; ++c) out[c] = (1 - share) * a[c] + share * b[c];
  return out;
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
        const auto [column, u] = betweenCells((static_cast<float>(x) + 0.5F) / 2);
        const auto [row, v] = betweenCells((static_cast<float>(y) + 0.5F) / 2);
        take(column, row, (1 - u) * (1 - v));
        take(column + 1, row, u * (1 - v));
        take(column, row + 1, (1 - u) * v);
        take(column + 1, row + 1, u * v);
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
  // A hundred pixels say what a cell's colour is.
  const int step = std::max(1, (cell_ + 5) / 10);
  const float full = 0.25F * static_cast<float>((cell_ / step) * (cell_ / step));
  Level crowd{columns_, rows_, {}};
  crowd.sums.resize(static_cast<std::size_t>(columns_ * rows_));
  const auto join = [this](Level& level, const Pixel& p) {
    level.at(p.x / cell_, p.y / cell_).add({p.colour[0], p.colour[1], p.colour[2], 1}, 1);
  };
  std::vector<Pixel> doubtful;
  for (int y = step / 2; y < height_; y += step) {
    for (int x = step / 2; x < width_; x += step) {
      const Pixel p = {colourAt(plate, x, y), x, y};
      if (screen.holds(p.colour)) {
        join(crowd, p);
      } else if (screen.mayHold(p.colour)) {
        doubtful.push_back(p);
      }
    }
  }
  // Where a screen is lit too much or too little its hue drifts. So the crowd grows, round by
  // round, by pixels that are like the screen beside them.
  constexpr int rounds = 4;
  for (int round = 0; round < rounds; ++round) {
    Level level = crowd;
    for (const Pixel& p : doubtful) {
      if (round > 0 && screen.holdsBeside(p.colour, at(p.x, p.y))) join(level, p);
    }
    spread(level, full);
    cells_.clear();
    for (const Sum& s : level.sums) {
      cells_.push_back(s.weight > 0 ? Rgb{s.r / s.weight, s.g / s.weight, s.b / s.weight}
                                    : screen.colour);
    }
  }
}

const Rgb& CleanPlate::cell(int x, int y) const {
  return cells_[static_cast<std::size_t>(std::clamp(y, 0, rows_ - 1) * columns_ +
                                         std::clamp(x, 0, columns_ - 1))];
}

// What lies between two cells of a column.
Rgb CleanPlate::down(int column, int row, float share) const {
  return mixed(cell(column, row), cell(column, row + 1), share);
}

Rgb CleanPlate::at(int x, int y) const {
  const auto [column, u] = betweenCells((static_cast<float>(x) + 0.5F) / static_cast<float>(cell_));
  const auto [row, v] = betweenCells((static_cast<float>(y) + 0.5F) / static_cast<float>(cell_));
  return mixed(down(column, row, v), down(column + 1, row, v), u);
}

template <class Code>
void CleanPlate::writeCodes(const OtileImage& picture) const {
  constexpr Code most = std::numeric_limits<Code>::max();
  const std::array<Code*, 3> colours = {static_cast<Code*>(picture.red),
                                        static_cast<Code*>(picture.green),
                                        static_cast<Code*>(picture.blue)};
  std::vector<float> shares;
  shares.reserve(static_cast<std::size_t>(width_));
  for (int x = 0; x < width_; ++x) {
    shares.push_back(
        betweenCells((static_cast<float>(x) + 0.5F) / static_cast<float>(cell_)).share);
  }
  for (int y = 0; y < height_; ++y) {
    const std::ptrdiff_t line = std::ptrdiff_t{y} * picture.lineStep;
    const auto [row, v] = betweenCells((static_cast<float>(y) + 0.5F) / static_cast<float>(cell_));
    // From the centre of one cell to that of the next.
    Rgb right = down(-1, row, v);
    int column = -1;
    for (int x = 0, end = cell_ / 2; x < width_; x = end, end = std::min(width_, end + cell_)) {
      const Rgb left = right;
      right = down(++column, row, v);
      for (std::size_t c = 0; c < 3; ++c) {
        if (colours[c] == nullptr) continue;
        Code* to = colours[c] + line + std::ptrdiff_t{x} * picture.pixelStep;
        for (int i = x; i < std::min(width_, end); ++i, to += picture.pixelStep) {
          const float u = shares[static_cast<std::size_t>(i)];
          const float colour = std::clamp((1 - u) * left[c] + u * right[c], 0.0F, 1.0F);
          *to = static_cast<Code>(colour * float{most} + 0.5F);
        }
      }
    }
    if (picture.alpha == nullptr) continue;
    Code* alpha = static_cast<Code*>(picture.alpha) + line;
    for (int x = 0; x < width_; ++x, alpha += picture.pixelStep) *alpha = most;
  }
}

void CleanPlate::write(const OtileImage& picture, int depth) const {
  return depth == 1 ? writeCodes<std::uint8_t>(picture) : writeCodes<std::uint16_t>(picture);
}

}  // namespace orvanite
