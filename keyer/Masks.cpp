// SPDX-License-Identifier: BSD-3-Clause
#include "keyer/Masks.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <numeric>

#include "keyer/simd/RowTable.h"

namespace orvanite {
namespace {

constexpr double pi = 3.14159265358979323846;
constexpr float farBeyond = 1e6f;
constexpr int nowhere = -(1 << 20);

/// For each pixel the row of the nearest one of a mask in its column; the upper of two.
Raster<int> nearestInColumns(const Mask& mask) {
  const int w = mask.width;
  const int h = mask.height;
  Raster<int> source = Raster<int>::unset(w, h);
  for (int y = 0; y < h; ++y) {
    const std::uint8_t* in = &mask(0, y);
    int* to = &source(0, y);
    const int* above = y > 0 ? &source(0, y - 1) : nullptr;
    for (int x = 0; x < w; ++x) to[x] = in[x] != 0 ? y : above != nullptr ? above[x] : nowhere;
  }
  for (int y = h - 2; y >= 0; --y) {
    const int* under = &source(0, y + 1);
    int* to = &source(0, y);
    // What is nowhere is too far away to be nearer than anything.
    for (int x = 0; x < w; ++x) {
      to[x] = std::abs(under[x] - y) < std::abs(to[x] - y) ? under[x] : to[x];
    }
  }
  return source;
}

/// The lower envelope of parabolas over a stretch of a row, in whole numbers.
class Envelope {
 public:
  explicit Envelope(std::size_t width) : parts_(width) {}
  void clear() { count_ = at_ = 0; }
  bool empty() const { return count_ == 0; }

  /// Adds the parabola height + (x - vertex)^2; vertices come in order.
  void add(std::int64_t vertex, std::int64_t height) {
    const std::int64_t sum = height + vertex * vertex;
    Part part{vertex, sum, 0, 0};
    while (count_ > 0) {
      const Part& last = parts_[count_ - 1];
      part.start = sum - last.sum;
      part.of = 2 * (vertex - last.vertex);
      if (last.of == 0 || part.start * last.of > last.start * part.of) break;
      --count_;
      part.of = 0;
    }
    parts_[count_++] = part;
  }

  /// The vertex of the lowest one at x, the first of equals; x must not fall from call to call.
  int lowestAt(std::int64_t x) {
    while (at_ + 1 < count_ && parts_[at_ + 1].start < x * parts_[at_ + 1].of) ++at_;
    return static_cast<int>(parts_[at_].vertex);
  }

 private:
  /// Lowest from start / of on; from everywhere on where that is 0 / 0.
  struct Part {
    std::int64_t vertex, sum, start, of;
  };
  std::vector<Part> parts_;
  std::size_t count_ = 0, at_ = 0;
};

}  // namespace

// Exact: along columns first, then along rows. A pixel of the mask is its own nearest one, and
// nothing beyond it is nearest to any pixel before it: each gap between two is a row of its own.
Plane distanceTo(const Mask& mask, std::vector<std::uint32_t>* nearest, const RowLoop& rows) {
  const int w = mask.width;
  const int h = mask.height;
  Plane out = Plane::unset(w, h);
  if (nearest != nullptr) nearest->assign(mask.size(), 0);
  if (w == 0 || h == 0) return out;
  const Raster<int> source = nearestInColumns(mask);
  const auto along = [&](int y, Envelope& envelope) {
    const int* row = &source(0, y);
    float* to = &out(0, y);
    std::uint32_t* which = nearest != nullptr ? nearest->data() + mask.index(0, y) : nullptr;
    const auto height = [&](int x) {
      const std::int64_t d = row[x] - y;
      return d * d;
    };
    int left = 0;
    while (left < w) {
      if (row[left] == y) {
        to[left] = 0;
        if (which != nullptr) which[left] = static_cast<std::uint32_t>(mask.index(left, y));
        ++left;
        continue;
      }
      int right = left;
      envelope.clear();
      if (left > 0) envelope.add(left - 1, 0);
      for (; right < w && row[right] != y; ++right) {
        if (row[right] != nowhere) envelope.add(right, height(right));
      }
      if (right < w) envelope.add(right, 0);
      for (int x = left; x < right; ++x) {
        if (envelope.empty()) {
          to[x] = farBeyond;
          continue;
        }
        const int v = envelope.lowestAt(x);
        const std::int64_t across = x - v;
        to[x] = static_cast<float>(std::sqrt(static_cast<double>(height(v) + across * across)));
        if (which != nullptr) which[x] = static_cast<std::uint32_t>(mask.index(v, row[v]));
      }
      left = right;
    }
  };
  rows(h, leastRows, [&](int first, int count) {
    Envelope envelope(static_cast<std::size_t>(w) + 2);
    for (int y = first; y < first + count; ++y) along(y, envelope);
  });
  return out;
}

// Squares of distances along each row, then the least sum with a square of rows in between: 16 bits
// hold what counts.
Plane distanceWithin(const Mask& mask, float reach, const RowLoop& rows) {
  constexpr int widest = 127;             // its square and `none` are together below 2^15
  constexpr std::int16_t none = 1 << 14;  // above the square of the widest
  if (reach > widest) return distanceTo(mask, nullptr, rows);
  const int w = mask.width;
  const int h = mask.height;
  const int whole = static_cast<int>(reach);
  const int limit = static_cast<int>(reach * reach) + 1;  // whatever the product was rounded to
  std::vector<float> roots(static_cast<std::size_t>(limit) + 2, farBeyond);
  for (int i = 0; i <= limit; ++i) {
    roots[static_cast<std::size_t>(i)] = std::sqrt(static_cast<float>(i));
  }
  Raster<std::int16_t> squares = Raster<std::int16_t>::unset(w, h);
  rows(h, leastRows, [&](int first, int count) {
    for (int y = first; y < first + count; ++y) {
      const std::uint8_t* in = &mask(0, y);
      std::int16_t* to = &squares(0, y);
      int away = whole + 1;
      for (int x = 0; x < w; ++x) {
        away = in[x] != 0 ? 0 : std::min(away + 1, whole + 1);
        to[x] = static_cast<std::int16_t>(away);
      }
      away = whole + 1;
      for (int x = w - 1; x >= 0; --x) {
        away = in[x] != 0 ? 0 : std::min(away + 1, whole + 1);
        to[x] = std::min(to[x], static_cast<std::int16_t>(away));
      }
      for (int x = 0; x < w; ++x) {
        to[x] = to[x] <= whole ? static_cast<std::int16_t>(to[x] * to[x]) : none;
      }
    }
  });
  Plane out = Plane::unset(w, h);
  rows(h, leastRows, [&](int first, int count) {
    std::vector<std::int16_t> least(static_cast<std::size_t>(w));
    for (int y = first; y < first + count; ++y) {
      std::copy_n(&squares(0, y), w, least.begin());
      for (int away = 1; away <= whole; ++away) {
        const auto more = static_cast<std::int16_t>(away * away);
        const std::int16_t* above = &squares(0, std::max(y - away, 0));
        const std::int16_t* below = &squares(0, std::min(y + away, h - 1));
        // Beyond the frame its outermost row, which is nearer, has been looked at already.
        rowTable().nearer(above, below, more, w, least.data());
      }
      float* to = &out(0, y);
      for (std::size_t x = 0; x < least.size(); ++x) {
        to[x] = roots[static_cast<std::size_t>(std::min<int>(least[x], limit + 1))];
      }
    }
  });
  return out;
}

namespace {

/// The least of three rows' values, or the greatest, and then of three neighbours in the row.
template <class Pick>
void extremeRow(const Mask& mask, int y, std::vector<std::uint8_t>& room, std::uint8_t* to,
                Pick pick) {
  const int w = mask.width;
  const std::uint8_t* above = &mask(0, std::max(y - 1, 0));
  const std::uint8_t* here = &mask(0, y);
  const std::uint8_t* below = &mask(0, std::min(y + 1, mask.height - 1));
  // One more at either end: the outermost again.
  std::uint8_t* down = room.data() + 1;
  for (int x = 0; x < w; ++x) down[x] = pick(pick(above[x], here[x]), below[x]);
  down[-1] = down[0];
  down[w] = down[w - 1];
  for (int x = 0; x < w; ++x) to[x] = pick(pick(down[x - 1], down[x]), down[x + 1]);
}

template <class Pick>
Mask extreme(const Mask& mask, const RowLoop& rows, Pick pick) {
  Mask out = Mask::unset(mask.width, mask.height);
  rows(mask.height, leastRows, [&](int first, int count) {
    std::vector<std::uint8_t> room(static_cast<std::size_t>(mask.width) + 2);
    for (int y = first; y < first + count; ++y) extremeRow(mask, y, room, &out(0, y), pick);
  });
  return out;
}

}  // namespace

Mask opened(const Mask& mask, const RowLoop& rows) {
  if (mask.size() == 0) return mask;
  const auto least = [](std::uint8_t a, std::uint8_t b) { return std::min(a, b); };
  const auto most = [](std::uint8_t a, std::uint8_t b) { return std::max(a, b); };
  return extreme(extreme(mask, rows, least), rows, most);
}

namespace {

/// Where the pixels of a row that are like the one at x end.
int endOfLike(const std::uint8_t* row, int x, int width) {
  const std::uint8_t like = row[x];
  std::uint64_t eight = 0, here = 0;
  std::memset(&eight, like, sizeof eight);
  for (; x + 8 <= width; x += 8) {
    std::memcpy(&here, row + x, sizeof here);
    if (here != eight) break;
  }
  while (x < width && row[x] == like) ++x;
  return x;
}

}  // namespace

// Runs of a row are joined with those of the row before that they touch; the earliest is the root,
// and its first pixel the least index.
Values<std::uint32_t> partsOf(const Mask& mask) {
  struct Run {
    std::uint32_t first, end, root;
    int left, right;  // columns, the second exclusive
  };
  std::vector<Run> runs;
  const auto rootOf = [&](std::uint32_t i) {
    while (runs[i].root != i) i = runs[i].root = runs[runs[i].root].root;
    return i;
  };
  std::size_t before = 0;  // the first run of the row before
  for (int y = 0; y < mask.height; ++y) {
    const std::uint8_t* row = &mask(0, y);
    const auto start = static_cast<std::uint32_t>(mask.index(0, y));
    const std::size_t own = runs.size();
    std::size_t above = before;
    for (int x = 0; x < mask.width;) {
      const int end = endOfLike(row, x, mask.width);
      if (row[x] != 0) {
        const auto at = static_cast<std::uint32_t>(runs.size());
        runs.push_back({start + static_cast<std::uint32_t>(x),
                        start + static_cast<std::uint32_t>(end), at, x, end});
        // Corners touch.
        while (above < own && runs[above].right < x) ++above;
        for (; above < own && runs[above].left <= end; ++above) {
          const std::uint32_t a = rootOf(static_cast<std::uint32_t>(above)), b = rootOf(at);
          runs[std::max(a, b)].root = std::min(a, b);
          if (runs[above].right > end) break;  // it may touch the next one too
        }
      }
      x = end;
    }
    before = own;
  }
  Values<std::uint32_t> part(mask.size());
  std::iota(part.begin(), part.end(), 0U);
  for (std::uint32_t i = 0; i < runs.size(); ++i) {
    std::fill(part.begin() + runs[i].first, part.begin() + runs[i].end, runs[rootOf(i)].first);
  }
  return part;
}

Mask largeOf(const Mask& mask) {
  const auto size = static_cast<float>(std::max(mask.width, mask.height));
  const auto few = static_cast<std::uint32_t>(0.004f * size * size);
  const Values<std::uint32_t> part = partsOf(mask);
  Values<std::uint32_t> count(part.size(), 0);
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

}  // namespace orvanite
