// SPDX-License-Identifier: BSD-3-Clause
#include "keyer/Planes.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <mutex>
#include <numeric>
#include <utility>

#include "base/Mutex.h"
#include "keyer/simd/RowTable.h"

namespace orvanite {
namespace {

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

// Sums a row's neighbours by their taps; `at` says where the row of each tap's neighbours is.
void weigh(const std::vector<float>& taps, const std::vector<const float*>& at, int width,
           float* to) {
  rowTable().weigh(taps.data(), at.data(), static_cast<int>(taps.size()), width, to);
}

Plane filtered(const Plane& plane, const std::vector<float>& taps, const RowLoop& rows) {
  const int radius = static_cast<int>(taps.size() / 2);
  const int w = plane.width;
  const int h = plane.height;
  Plane across = Plane::unset(w, h), out = Plane::unset(w, h);
  rows(h, leastRows, [&](int first, int count) {
    std::vector<float> row(static_cast<std::size_t>(w + 2 * radius));
    std::vector<const float*> at(taps.size());
    for (std::size_t t = 0; t < taps.size(); ++t) at[t] = row.data() + t;
    for (int y = first; y < first + count; ++y) {
      const float* from = &plane(0, y);
      std::fill_n(row.begin(), radius, from[0]);
      std::copy_n(from, w, row.begin() + radius);
      std::fill_n(row.begin() + radius + w, radius, from[w - 1]);
      weigh(taps, at, w, &across(0, y));
    }
  });
  rows(h, leastRows, [&](int first, int count) {
    std::vector<const float*> at(taps.size());
    for (int y = first; y < first + count; ++y) {
      for (std::size_t t = 0; t < taps.size(); ++t) {
        at[t] = &across(0, std::clamp(y + static_cast<int>(t) - radius, 0, h - 1));
      }
      weigh(taps, at, w, &out(0, y));
    }
  });
  return out;
}

Plane halved(const Plane& plane, const RowLoop& rows) {
  Plane out = Plane::unset((plane.width + 1) / 2, (plane.height + 1) / 2);
  rows(out.height, leastRows, [&](int first, int count) {
    for (int y = first; y < first + count; ++y) {
      const float* high = &plane(0, 2 * y);
      const float* low = &plane(0, std::min(2 * y + 1, plane.height - 1));
      float* to = &out(0, y);
      const auto pairs = static_cast<std::size_t>(plane.width / 2);
      for (std::size_t x = 0; x < pairs; ++x) {
        to[x] = 0.25f * (high[2 * x] + high[2 * x + 1] + low[2 * x] + low[2 * x + 1]);
      }
      if (plane.width % 2 != 0) {
        const float a = high[2 * pairs], b = low[2 * pairs];
        to[pairs] = 0.25f * (a + a + b + b);
      }
    }
  });
  return out;
}

}  // namespace

Plane blurred(const Plane& plane, float sigma, const RowLoop& rows) {
  if (plane.size() == 0 || sigma <= 0.05f) return plane;
  constexpr float widest = 3.2f;
  if (sigma <= widest || plane.width < 8 || plane.height < 8) {
    return filtered(plane, gaussian(sigma), rows);
  }
  // Halving and stretching blur by about half a pixel of the fine grid and of the coarse one.
  const Plane coarse =
      blurred(halved(plane, rows), std::sqrt(std::max(0.25f * sigma * sigma - 0.2f, 0.01f)), rows);
  Plane out = Plane::unset(plane.width, plane.height);
  const Stretch stretch(coarse, 2 * coarse.width, 2 * coarse.height);
  rows(plane.height, leastRows, [&](int first, int count) {
    std::vector<float> row(static_cast<std::size_t>(2 * coarse.width));
    for (int y = first; y < first + count; ++y) {
      stretch.row(y, row.data());
      std::copy_n(row.begin(), plane.width, &out(0, y));
    }
  });
  return out;
}

Colours blurred(const Colours& planes, float sigma, const RowLoop& rows) {
  return {blurred(planes[0], sigma, rows), blurred(planes[1], sigma, rows),
          blurred(planes[2], sigma, rows)};
}

Plane planeOf(const Mask& mask) {
  Plane plane = Plane::unset(mask.width, mask.height);
  for (std::size_t i = 0; i < mask.size(); ++i) plane[i] = mask[i];
  return plane;
}

Plane contrast(const Plane& plane, const RowLoop& rows) {
  const int w = plane.width;
  const int h = plane.height;
  Plane out = Plane::unset(w, h);
  if (out.size() == 0) return out;
  rows(h, leastRows, [&](int first, int count) {
    // One more at either end: the outermost again.
    std::vector<float> highest(static_cast<std::size_t>(w) + 2);
    std::vector<float> lowest(highest.size());
    float *high = highest.data() + 1, *low = lowest.data() + 1;
    for (int y = first; y < first + count; ++y) {
      const float* above = &plane(0, std::max(y - 1, 0));
      const float* here = &plane(0, y);
      const float* below = &plane(0, std::min(y + 1, h - 1));
      for (int x = 0; x < w; ++x) {
        high[x] = std::max(std::max(above[x], here[x]), below[x]);
        low[x] = std::min(std::min(above[x], here[x]), below[x]);
      }
      high[-1] = high[0];
      high[w] = high[w - 1];
      low[-1] = low[0];
      low[w] = low[w - 1];
      float* to = &out(0, y);
      for (int x = 0; x < w; ++x) {
        to[x] = std::max(std::max(high[x - 1], high[x]), high[x + 1]) -
                std::min(std::min(low[x - 1], low[x]), low[x + 1]);
      }
    }
  });
  return out;
}

namespace {

// Of many values only those are put in order that start as the wanted one does: their order as
// whole numbers is looked at so many bits at a time.
constexpr std::size_t few = 2000;
constexpr int startBits = 11;
constexpr int firstShift = 32 - startBits;

using Counts = std::array<std::size_t, 1 << startBits>;

/// The start of a number that is the greater the greater a float is.
std::uint32_t startOf(float v, int shift) {
  const auto bits = std::bit_cast<std::uint32_t>(v);
  const std::uint32_t order = bits >> 31 != 0 ? ~bits : bits | 0x80000000U;
  return order >> shift & ((1U << startBits) - 1);
}

/// Where among so many values, in order, that one lies which a share of them lies below.
std::size_t rankOf(double share, std::size_t count) {
  return static_cast<std::size_t>(
      std::min(static_cast<double>(count - 1), share * static_cast<double>(count)));
}

/// The start of the value at a rank, which becomes its rank among those that start alike.
std::uint32_t startAt(const Counts& counts, std::size_t& rank) {
  std::uint32_t start = 0;
  for (; rank >= counts[start]; ++start) rank -= counts[start];
  return start;
}

/// The value at a rank; `shift` says what of them is looked at next.
float valueAt(std::span<float> values, std::size_t rank, int shift) {
  Values<float> some;
  for (; values.size() > few && shift > 0; shift -= startBits) {
    Counts counts{};
    for (const float v : values) ++counts[startOf(v, shift)];
    const std::uint32_t start = startAt(counts, rank);
    Values<float> like;
    like.reserve(counts[start]);
    for (const float v : values) {
      if (startOf(v, shift) == start) like.push_back(v);
    }
    some = std::move(like);
    values = some;
  }
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(rank);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

}  // namespace

float quantile(std::span<float> values, double share) {
  if (values.empty()) return 0;
  return valueAt(values, rankOf(share, values.size()), firstShift);
}

float quantile(const Plane& plane, const Mask& mask, double share, const RowLoop& rows) {
  Mutex mutex;
  Counts counts{};
  const auto eachMasked = [&](int first, int count, const auto& body) {
    const std::size_t end = plane.index(0, first + count);
    for (std::size_t i = plane.index(0, first); i < end; ++i) {
      if (mask[i] != 0) body(plane[i]);
    }
  };
  rows(plane.height, leastRows, [&](int first, int count) {
    std::array<std::uint32_t, 1 << startBits> own{};
    eachMasked(first, count, [&](float v) { ++own[startOf(v, firstShift)]; });
    const std::lock_guard lock(mutex);
    for (std::size_t i = 0; i < own.size(); ++i) counts[i] += own[i];
  });
  const std::size_t all = std::accumulate(counts.begin(), counts.end(), std::size_t{0});
  if (all == 0) return 0;
  std::size_t rank = rankOf(share, all);
  const std::uint32_t start = startAt(counts, rank);
  Values<float> like;
  like.reserve(counts[start]);
  rows(plane.height, leastRows, [&](int first, int count) {
    std::vector<float> own;
    eachMasked(first, count, [&](float v) {
      if (startOf(v, firstShift) == start) own.push_back(v);
    });
    const std::lock_guard lock(mutex);
    like.insert(like.end(), own.begin(), own.end());
  });
  return valueAt(like, rank, firstShift - startBits);
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

Stretch::Stretch(const Plane& plane, int width, int height)
    : plane_(plane), height_(height), repeats_(width / std::max(1, plane.width)) {
  if (repeats_ * plane.width != width || repeats_ > mostRepeats) repeats_ = 0;
  cells_.reserve(static_cast<std::size_t>(width));
  shares_.reserve(static_cast<std::size_t>(width));
  for (int x = 0; x < width; ++x) {
    const Between across = placeOf(x, width, plane.width);
    cells_.push_back(across.cell);
    shares_.push_back(across.share);
    if (repeats_ > 0 && across.cell != (x + (repeats_ + 1) / 2) / repeats_) repeats_ = 0;
  }
}

void Stretch::row(int y, float* values) const {
  const Rows rows = rowsAt(plane_, y, height_);
  const std::size_t width = cells_.size(), cells = static_cast<std::size_t>(plane_.width);
  std::vector<float> room(cells + width + 2 * static_cast<std::size_t>(mostRepeats) + 2);
  rowTable().stretch({rows.above, rows.below, rows.share, plane_.width, repeats_, cells_.data(),
                      shares_.data(), static_cast<int>(width)},
                     room.data(), values);
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
