// SPDX-License-Identifier: BSD-3-Clause
#include "keyer/Planes.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace orvanite {
namespace {

constexpr double pi = 3.14159265358979323846;

std::vector<float> gaussian(float sigma) {
  const int radius = std::max(1, static_cast<int>(std::ceil(2.6f * sigma)));
  std::vector<float> taps;
  double sum = 0;
  for (int i = -radius; i <= radius; ++i) {
    const double at = static_cast<double>(i) / static_cast<double>(sigma);
    taps.push_back(static_cast<float>(std::exp(-0.5 * at * at)));
    sum += static_cast<double>(taps.back());
  }
  for (float& tap : taps) tap = static_cast<float>(static_cast<double>(tap) / sum);
  return taps;
}

Plane filtered(const Plane& plane, const std::vector<float>& taps) {
  const int radius = static_cast<int>(taps.size() / 2);
  const int w = plane.width;
  const int h = plane.height;
  Plane across(w, h), out(w, h);
  std::vector<float> row(static_cast<std::size_t>(w + 2 * radius));
  for (int y = 0; y < h; ++y) {
    const float* from = &plane.values[plane.index(0, y)];
    std::fill_n(row.begin(), radius, from[0]);
    std::copy_n(from, w, row.begin() + radius);
    std::fill_n(row.begin() + radius + w, radius, from[w - 1]);
    float* to = &across.values[across.index(0, y)];
    for (std::size_t t = 0; t < taps.size(); ++t) {
      const float tap = taps[t];
      const float* in = row.data() + t;
      for (int x = 0; x < w; ++x) to[x] += tap * in[x];
    }
  }
  for (int y = 0; y < h; ++y) {
    float* to = &out.values[out.index(0, y)];
    for (std::size_t t = 0; t < taps.size(); ++t) {
      const int at = std::clamp(y + static_cast<int>(t) - radius, 0, h - 1);
      const float tap = taps[t];
      const float* in = &across.values[across.index(0, at)];
      for (int x = 0; x < w; ++x) to[x] += tap * in[x];
    }
  }
  return out;
}

Plane halved(const Plane& plane) {
  Plane out((plane.width + 1) / 2, (plane.height + 1) / 2);
  for (int y = 0; y < out.height; ++y) {
    const int below = std::min(2 * y + 1, plane.height - 1);
    for (int x = 0; x < out.width; ++x) {
      const int right = std::min(2 * x + 1, plane.width - 1);
      out(x, y) = 0.25f * (plane(2 * x, 2 * y) + plane(right, 2 * y) + plane(2 * x, below) +
                           plane(right, below));
    }
  }
  return out;
}

}  // namespace

Plane blurred(const Plane& plane, float sigma) {
  if (plane.size() == 0 || sigma <= 0.05f) return plane;
  constexpr float widest = 3.2f;
  if (sigma <= widest || plane.width < 8 || plane.height < 8) {
    return filtered(plane, gaussian(sigma));
  }
  // Halving and stretching blur by about half a pixel of the fine grid and of the coarse one.
  const Plane coarse =
      blurred(halved(plane), std::sqrt(std::max(0.25f * sigma * sigma - 0.2f, 0.01f)));
  Plane out(plane.width, plane.height);
  const Stretch stretch(coarse, 2 * coarse.width, 2 * coarse.height);
  std::vector<float> row(static_cast<std::size_t>(2 * coarse.width));
  for (int y = 0; y < plane.height; ++y) {
    stretch.row(y, row.data());
    std::copy_n(row.begin(), plane.width, &out(0, y));
  }
  return out;
}

Colours blurred(const Colours& planes, float sigma) {
  return {blurred(planes[0], sigma), blurred(planes[1], sigma), blurred(planes[2], sigma)};
}

Plane planeOf(const Mask& mask) {
  Plane plane(mask.width, mask.height);
  for (std::size_t i = 0; i < mask.size(); ++i) plane[i] = mask[i];
  return plane;
}

namespace {

/// The extreme of each pixel and its eight neighbours.
template <class T, class Pick>
Raster<T> extreme(const Raster<T>& raster, Pick pick) {
  const int w = raster.width;
  const int h = raster.height;
  Raster<T> across(w, h), out(w, h);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      across(x, y) = pick(pick(raster(std::max(x - 1, 0), y), raster(x, y)),
                          raster(std::min(x + 1, w - 1), y));
    }
  }
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      out(x, y) = pick(pick(across(x, std::max(y - 1, 0)), across(x, y)),
                       across(x, std::min(y + 1, h - 1)));
    }
  }
  return out;
}

constexpr auto least = [](auto a, auto b) { return std::min(a, b); };
constexpr auto most = [](auto a, auto b) { return std::max(a, b); };

}  // namespace

Plane contrast(const Plane& plane) {
  Plane high = extreme(plane, most);
  const Plane low = extreme(plane, least);
  for (std::size_t i = 0; i < high.size(); ++i) high[i] -= low[i];
  return high;
}

float quantile(std::vector<float>& values, double share) {
  if (values.empty()) return 0;
  const auto at = static_cast<std::ptrdiff_t>(
      std::min(static_cast<double>(values.size() - 1), share * static_cast<double>(values.size())));
  std::nth_element(values.begin(), values.begin() + at, values.end());
  return values[static_cast<std::size_t>(at)];
}

namespace {

/// Where a pixel's middle lies among cells: after how many of their middles, and how far on.
struct Between {
  int cell;  // 0 before the first, `cells` after the last
  float share;
};

Between placeOf(int at, int of, int cells) {
  const float place =
      (static_cast<float>(at) + 0.5f) * static_cast<float>(cells) / static_cast<float>(of) - 0.5f;
  const float first = std::floor(place);
  return {std::clamp(static_cast<int>(first) + 1, 0, cells), place - first};
}

struct Rows {
  const float *above, *below;
  float share;
};

Rows rowsAt(const Plane& plane, int y, int height) {
  const Between down = placeOf(y, height, plane.height);
  return {&plane.values[plane.index(0, std::max(down.cell - 1, 0))],
          &plane.values[plane.index(0, std::min(down.cell, plane.height - 1))], down.share};
}

float blend(float from, float to, float share) { return from + share * (to - from); }

}  // namespace

Stretch::Stretch(const Plane& plane, int width, int height) : plane_(plane), height_(height) {
  cells_.reserve(static_cast<std::size_t>(width));
  shares_.reserve(static_cast<std::size_t>(width));
  for (int x = 0; x < width; ++x) {
    const Between across = placeOf(x, width, plane.width);
    cells_.push_back(across.cell);
    shares_.push_back(across.share);
  }
}

void Stretch::row(int y, float* values) const {
  struct Cell {
    float value, step;  // to the next
  };
  const Rows rows = rowsAt(plane_, y, height_);
  const auto count = static_cast<std::size_t>(plane_.width);
  std::vector<Cell> cells(count + 1);
  const float* above = rows.above;
  const float* below = rows.below;
  float left = blend(above[0], below[0], rows.share);
  for (std::size_t i = 0; i <= count; ++i) {
    const std::size_t next = std::min(i, count - 1);
    const float right = blend(above[next], below[next], rows.share);
    cells[i] = {left, right - left};
    left = right;
  }
  const std::size_t width = cells_.size();
  for (std::size_t x = 0; x < width; ++x) {
    const Cell cell = cells[static_cast<std::size_t>(cells_[x])];
    values[x] = cell.value + shares_[x] * cell.step;
  }
}

float stretchedAt(const Plane& plane, int width, int height, int x, int y) {
  const Rows rows = rowsAt(plane, y, height);
  const Between across = placeOf(x, width, plane.width);
  const auto at = [&](int cell) {
    const int i = std::clamp(cell, 0, plane.width - 1);
    return blend(rows.above[i], rows.below[i], rows.share);
  };
  return blend(at(across.cell - 1), at(across.cell), across.share);
}

}  // namespace orvanite
