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

// Exact: along columns first, then the lower envelope of parabolas along rows.
Plane distanceTo(const Mask& mask, std::vector<std::uint32_t>* nearest) {
  const int w = mask.width;
  const int h = mask.height;
  Plane out(w, h);
  if (nearest != nullptr) nearest->assign(mask.size(), 0);
  if (w == 0 || h == 0) return out;
  constexpr int none = 1 << 20;
  Raster<int> source(w, h, -none);  // the row of the nearest one in the column
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      source(x, y) = mask(x, y) != 0 ? y : y > 0 ? source(x, y - 1) : -none;
    }
  }
  for (int y = h - 2; y >= 0; --y) {
    for (int x = 0; x < w; ++x) {
      const int below = source(x, y + 1);
      if (below != -none && std::abs(below - y) < std::abs(source(x, y) - y)) source(x, y) = below;
    }
  }
  std::vector<int> vertex(static_cast<std::size_t>(w));
  std::vector<double> from(static_cast<std::size_t>(w) + 1);
  for (int y = 0; y < h; ++y) {
    int count = 0;
    const auto height = [&](int x) {
      const double d = source(x, y) - y;
      return d * d;
    };
    for (int x = 0; x < w; ++x) {
      if (source(x, y) == -none) continue;
      double start = -1e30;
      while (count > 0) {
        const int v = vertex[static_cast<std::size_t>(count - 1)];
        start = (height(x) + static_cast<double>(x) * x - height(v) - static_cast<double>(v) * v) /
                (2.0 * (x - v));
        if (start > from[static_cast<std::size_t>(count - 1)]) break;
        --count;
        start = -1e30;
      }
      vertex[static_cast<std::size_t>(count)] = x;
      from[static_cast<std::size_t>(count)] = start;
      ++count;
    }
    int at = 0;
    for (int x = 0; x < w; ++x) {
      if (count == 0) {
        out(x, y) = 1e6f;
        continue;
      }
      while (at + 1 < count && from[static_cast<std::size_t>(at + 1)] < x) ++at;
      const int v = vertex[static_cast<std::size_t>(at)];
      const double across = x - v;
      out(x, y) = static_cast<float>(std::sqrt(height(v) + across * across));
      if (nearest != nullptr) {
        (*nearest)[mask.index(x, y)] = static_cast<std::uint32_t>(mask.index(v, source(v, y)));
      }
    }
  }
  return out;
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

Mask opened(const Mask& mask) { return extreme(extreme(mask, least), most); }

Plane contrast(const Plane& plane) {
  Plane high = extreme(plane, most);
  const Plane low = extreme(plane, least);
  for (std::size_t i = 0; i < high.size(); ++i) high[i] -= low[i];
  return high;
}

std::vector<std::uint32_t> partsOf(const Mask& mask) {
  std::vector<std::uint32_t> part(mask.size());
  const auto root = [&](std::uint32_t i) {
    while (part[i] != i) i = part[i] = part[part[i]];
    return i;
  };
  const auto w = static_cast<std::uint32_t>(mask.width);
  for (int y = 0; y < mask.height; ++y) {
    for (int x = 0; x < mask.width; ++x) {
      const auto i = static_cast<std::uint32_t>(mask.index(x, y));
      part[i] = i;
      if (mask[i] == 0) continue;
      const auto join = [&](std::uint32_t other) {
        if (mask[other] == 0) return;
        const std::uint32_t a = root(other), b = root(i);
        part[std::max(a, b)] = std::min(a, b);
      };
      if (x > 0) join(i - 1);
      if (y > 0) join(i - w);
      if (x > 0 && y > 0) join(i - w - 1);
      if (x + 1 < mask.width && y > 0) join(i - w + 1);
    }
  }
  for (std::uint32_t i = 0; i < part.size(); ++i) part[i] = root(i);
  return part;
}

Mask largeOf(const Mask& mask) {
  const auto size = static_cast<float>(std::max(mask.width, mask.height));
  const auto few = static_cast<std::uint32_t>(0.004f * size * size);
  const std::vector<std::uint32_t> part = partsOf(mask);
  std::vector<std::uint32_t> count(part.size());
  for (std::size_t i = 0; i < part.size(); ++i) count[part[i]] += mask[i];
  Mask large(mask.width, mask.height);
  std::size_t all = 0, some = 0;
  for (std::size_t i = 0; i < part.size(); ++i) {
    large[i] = mask[i] != 0 && count[part[i]] > few;
    all += mask[i];
    some += large[i];
  }
  return 2 * some > all ? large : mask;
}

Mask hullOf(const Mask& mask, float inset) {
  constexpr int directions = 24;
  std::array<float, directions> dx{}, dy{}, reach{};
  for (std::size_t d = 0; d < directions; ++d) {
    const double angle = 2 * pi * static_cast<double>(d) / directions;
    dx[d] = static_cast<float>(std::cos(angle));
    dy[d] = static_cast<float>(std::sin(angle));
    reach[d] = -1e9f;
  }
  for (int y = 0; y < mask.height; ++y) {
    // Of a row only the outermost pixels can reach furthest.
    int left = 0;
    int right = mask.width - 1;
    while (left < mask.width && mask(left, y) == 0) ++left;
    while (right > left && mask(right, y) == 0) --right;
    if (left == mask.width) continue;
    for (std::size_t d = 0; d < directions; ++d) {
      for (const int x : {left, right}) {
        reach[d] =
            std::max(reach[d], dx[d] * static_cast<float>(x) + dy[d] * static_cast<float>(y));
      }
    }
  }
  // Along the frame's edge the hull ends where the frame does.
  Mask hull(mask.width, mask.height);
  for (int y = 0; y < mask.height; ++y) {
    float left = 0;
    float right = static_cast<float>(mask.width - 1);
    for (std::size_t d = 0; d < directions; ++d) {
      const float rest = reach[d] - inset - dy[d] * static_cast<float>(y);
      if (dx[d] > 1e-4f) {
        right = std::min(right, rest / dx[d]);
      } else if (dx[d] < -1e-4f) {
        left = std::max(left, rest / dx[d]);
      } else if (rest < 0) {
        right = -1;
      }
    }
    for (int x = static_cast<int>(std::ceil(left)); static_cast<float>(x) <= right; ++x) {
      hull(x, y) = 1;
    }
  }
  return hull;
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
