// SPDX-License-Identifier: BSD-3-Clause
//
// Rows of a matte that is led by the plate's colours, and of the colours that go with it. Built
// once per target: all that is here is the including file's own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "keyer/simd/RowTable.h"
#include "keyer/simd/RowWords.h"

namespace orvanite::ORVANITE_SIMD_TARGET {
namespace {

// So many pixels at a time, and guideReach more at either end.
constexpr int guideBlock = 64;
constexpr int guideSide = 2 * guideReach + 1;
constexpr int guideWide = guideBlock + 2 * guideReach;
constexpr float guidePart = 1.0f / static_cast<float>(guideSide * guideSide);

template <class Sample>
[[gnu::always_inline]] inline void takeGuideBy(const GuideRow<Sample>& row, std::ptrdiff_t step,
                                               int count, std::ptrdiff_t stride,
                                               float* __restrict red) {
  float* __restrict const green = red + stride;
  float* __restrict const blue = green + stride;
  float* __restrict const matte = blue + stride;
  for (int x = 0; x < count; ++x) {
    red[x] = codeOf(row.red[x * step], 4.0f);
    green[x] = codeOf(row.green[x * step], 4.0f);
    blue[x] = codeOf(row.blue[x * step], 4.0f);
  }
  for (int x = 0; row.matte != nullptr && x < count; ++x) {
    matte[x] = static_cast<float>(row.matte[x]) * (1.0f / 65535);
  }
}

template <class Sample>
void takeGuide(const GuideRow<Sample>& row, int count, std::ptrdiff_t stride, float* values) {
  if (row.step == 4) {
    takeGuideBy(row, 4, count, stride, values);
  } else {
    takeGuideBy(row, row.step, count, stride, values);
  }
}

template <class Sample>
[[gnu::always_inline]] inline void uncutBy(const Sample* garbage, std::ptrdiff_t step,
                                           const std::uint16_t* matte, int count,
                                           std::uint16_t* __restrict to) {
  for (int x = 0; x < count; ++x) {
    const Sample code = garbage[x * step];
    bool whole = false;
    if constexpr (std::is_floating_point_v<Sample>) {
      whole = wordOfCode(code) == solidMatte;
    } else {
      whole = code == static_cast<Sample>(~Sample{0});
    }
    to[x] = either(whole, std::uint16_t{0}, matte[x]);
  }
}

template <class Sample>
void uncutRow(const Sample* garbage, std::ptrdiff_t step, const std::uint16_t* matte, int count,
              std::uint16_t* to) {
  if (step == 1) {
    uncutBy(garbage, 1, matte, count, to);
  } else if (step == 4) {
    uncutBy(garbage, 4, matte, count, to);
  } else {
    uncutBy(garbage, step, matte, count, to);
  }
}

// The mean of a square, of its columns' sums.
inline float squareFrom(const float* sums) {
  static_assert(guideSide == 5);
  return ((((sums[0] + sums[1]) + sums[2]) + sums[3]) + sums[4]) * guidePart;
}

// Least squares in three unknowns by cofactors: the covariances have `flat` added to their
// diagonal, so that the determinant is well above 0.
[[gnu::always_inline]] inline void fitMatteBlock(const float* const* rows, std::ptrdiff_t stride,
                                                 float flat, int first, int some, float* lines) {
  float sums[13][guideWide];
  const std::ptrdiff_t begin = first - guideReach;
  // Columns' sums of a channel, and of the products of two: red, green, blue, matte.
  const auto sum = [&](float* __restrict to, std::ptrdiff_t c) __attribute__((always_inline)) {
    const float *const a = rows[0] + c * stride + begin, *const b = rows[1] + c * stride + begin;
    const float *const d = rows[2] + c * stride + begin, *const e = rows[3] + c * stride + begin;
    const float* const f = rows[4] + c * stride + begin;
    for (int x = 0; x < some + 2 * guideReach; ++x) {
      to[x] = (((a[x] + b[x]) + d[x]) + e[x]) + f[x];
    }
  };
  const auto product = [&](float* __restrict to, std::ptrdiff_t c, std::ptrdiff_t with)
      __attribute__((always_inline)) {
    const float *const a = rows[0] + begin, *const b = rows[1] + begin, *const d = rows[2] + begin;
    const float *const e = rows[3] + begin, *const f = rows[4] + begin;
    const std::ptrdiff_t p = c * stride, q = with * stride;
    for (int x = 0; x < some + 2 * guideReach; ++x) {
      to[x] = (((a[p + x] * a[q + x] + b[p + x] * b[q + x]) + d[p + x] * d[q + x]) +
               e[p + x] * e[q + x]) +
              f[p + x] * f[q + x];
    }
  };
  for (int c = 0; c < 4; ++c) sum(sums[c], c);
  constexpr int pairs[9][2] = {{0, 0}, {0, 1}, {0, 2}, {1, 1}, {1, 2},
                               {2, 2}, {0, 3}, {1, 3}, {2, 3}};
  for (int i = 0; i < 9; ++i) product(sums[4 + i], pairs[i][0], pairs[i][1]);
  float* __restrict const redSlope = lines + first;
  float* __restrict const greenSlope = redSlope + stride;
  float* __restrict const blueSlope = greenSlope + stride;
  float* __restrict const start = blueSlope + stride;
  for (int x = 0; x < some; ++x) {
    const float r = squareFrom(sums[0] + x), g = squareFrom(sums[1] + x);
    const float b = squareFrom(sums[2] + x), m = squareFrom(sums[3] + x);
    const float rr = (squareFrom(sums[4] + x) - r * r) + flat;
    const float gg = (squareFrom(sums[7] + x) - g * g) + flat;
    const float bb = (squareFrom(sums[9] + x) - b * b) + flat;
    const float rg = squareFrom(sums[5] + x) - r * g, rb = squareFrom(sums[6] + x) - r * b;
    const float gb = squareFrom(sums[8] + x) - g * b;
    const float rm = squareFrom(sums[10] + x) - r * m, gm = squareFrom(sums[11] + x) - g * m;
    const float bm = squareFrom(sums[12] + x) - b * m;
    const float ofRR = gg * bb - gb * gb, ofRG = gb * rb - rg * bb, ofRB = rg * gb - gg * rb;
    const float ofGG = rr * bb - rb * rb, ofGB = rg * rb - rr * gb, ofBB = rr * gg - rg * rg;
    const float part = 1.0f / ((rr * ofRR + rg * ofRG) + rb * ofRB);
    const float red = ((ofRR * rm + ofRG * gm) + ofRB * bm) * part;
    const float green = ((ofRG * rm + ofGG * gm) + ofGB * bm) * part;
    const float blue = ((ofRB * rm + ofGB * gm) + ofBB * bm) * part;
    redSlope[x] = red;
    greenSlope[x] = green;
    blueSlope[x] = blue;
    start[x] = m - ((red * r + green * g) + blue * b);
  }
}

void fitMatte(const float* const* rows, std::ptrdiff_t stride, float flat, int count,
              float* lines) {
  eachBlock<guideBlock>(
      count, [&](int first, int some) __attribute__((always_inline)) {
        fitMatteBlock(rows, stride, flat, first, some, lines);
      });
}

// A pixel's matte is the mean of what the lines that it helped to find say of its colour.
[[gnu::always_inline]] inline void followBlock(const float* const* lines, const float* row,
                                               std::ptrdiff_t stride, float share,
                                               const std::uint16_t* was, const std::uint16_t* uncut,
                                               int first, int some, std::uint16_t* is) {
  float sums[4][guideWide];
  for (int i = 0; i < 4; ++i) {
    const std::ptrdiff_t at = i * stride + first - guideReach;
    for (int x = 0; x < some + 2 * guideReach; ++x) {
      sums[i][x] = (((lines[0][at + x] + lines[1][at + x]) + lines[2][at + x]) + lines[3][at + x]) +
                   lines[4][at + x];
    }
  }
  const float *const red = row + first, *const green = red + stride, *const blue = green + stride;
  const std::uint16_t *const from = was + first, *const kept = uncut + first;
  std::uint16_t* __restrict const to = is + first;
  for (int x = 0; x < some; ++x) {
    const float led = (squareFrom(sums[0] + x) * red[x] + squareFrom(sums[1] + x) * green[x]) +
                      (squareFrom(sums[2] + x) * blue[x] + squareFrom(sums[3] + x));
    const float above = led > 0.0f ? led : 0.0f, held = above < 1.0f ? above : 1.0f;
    const float own = static_cast<float>(from[x]) * (1.0f / 65535);
    const auto word = static_cast<std::uint16_t>(
        static_cast<std::int32_t>((own + share * (held - own)) * 65535.0f + 0.5f));
    to[x] = either(isSoft(kept[x]), word, from[x]);
  }
}

void followMatte(const float* const* lines, const float* row, std::ptrdiff_t stride, float share,
                 const std::uint16_t* was, const std::uint16_t* uncut, int count,
                 std::uint16_t* is) {
  eachBlock<guideBlock>(
      count, [&](int first, int some) __attribute__((always_inline)) {
        followBlock(lines, row, stride, share, was, uncut, first, some, is);
      });
}

template <class Sample>
constexpr float fullSample = std::is_floating_point_v<Sample> ? 1.0f
                             : sizeof(Sample) == 1            ? 255.0f
                                                              : 65535.0f;

// A colour as a sample; it is at least 0 where samples are whole numbers.
template <class Sample>
inline Sample sampleOfColour(float v) {
  if constexpr (std::is_floating_point_v<Sample>) {
    return v;
  } else {
    const float held = v < fullSample<Sample> ? v : fullSample<Sample>;
    return static_cast<Sample>(static_cast<std::int32_t>(held + 0.5f));
  }
}

template <class Sample>
[[gnu::always_inline]] inline void recolourBlock(const RefinedRow<Sample>& row, std::ptrdiff_t step,
                                                 int first, int some) {
  const std::uint16_t *const was = row.was + first, *const is = row.is + first;
  std::uint32_t moved = 0;
  for (int x = 0; x < some; ++x) moved |= static_cast<std::uint32_t>(was[x] ^ is[x]);
  if (moved == 0) return;
  Sample* const pixels = row.pixels + std::ptrdiff_t{4} * first;
  float own[3][guideBlock], now[3][guideBlock];
  for (std::ptrdiff_t x = 0; x < some; ++x) {
    own[0][x] = static_cast<float>(pixels[4 * x]);
    own[1][x] = static_cast<float>(pixels[4 * x + 1]);
    own[2][x] = static_cast<float>(pixels[4 * x + 2]);
  }
  for (int c = 0; c < 3; ++c) {
    // What the plate shows is the same: matte times colour, and screen for the rest.
    const auto mix = [&](int x, float seen) __attribute__((always_inline)) {
      const auto before = static_cast<float>(was[x]), after = static_cast<float>(is[x]);
      const float mixed =
          (before * own[c][x] + (after - before) * seen) / (after > 0.0f ? after : 1.0f);
      const float least = 0.0f < own[c][x] ? 0.0f : own[c][x];
      now[c][x] = mixed < least ? least : mixed;
    };
    if (row.screen != nullptr) {
      const Sample* const screen = row.screen[c] + step * first;
      for (int x = 0; x < some; ++x) mix(x, static_cast<float>(screen[step * x]));
    } else {
      const float seen = row.colour[static_cast<std::size_t>(c)] * fullSample<Sample>;
      for (int x = 0; x < some; ++x) mix(x, seen);
    }
  }
  const int p = row.primary, q = (p + 1) % 3, r = (p + 2) % 3;
  for (int x = 0; x < some; ++x) {
    const float others = 0.5f * (now[q][x] + now[r][x]);
    const float most = others < own[p][x] ? own[p][x] : others;
    now[p][x] = most < now[p][x] ? most : now[p][x];
  }
  for (int x = 0; x < some; ++x) {
    const bool changed = (was[x] != is[x]) & (is[x] != 0);
    Sample* const pixel = pixels + std::ptrdiff_t{4} * x;
    const Sample red = pixel[0], green = pixel[1], blue = pixel[2], alpha = pixel[3];
    pixel[0] = either(changed, sampleOfColour<Sample>(now[0][x]), red);
    pixel[1] = either(changed, sampleOfColour<Sample>(now[1][x]), green);
    pixel[2] = either(changed, sampleOfColour<Sample>(now[2][x]), blue);
    pixel[3] = alpha;
  }
}

template <class Sample>
void recolourRow(const RefinedRow<Sample>& row) {
  const auto by = [&](std::ptrdiff_t step) __attribute__((always_inline)) {
    eachBlock<guideBlock>(
        row.count, [&](int first, int some)
                       __attribute__((always_inline)) { recolourBlock(row, step, first, some); });
  };
  if (row.step == 1) {
    by(1);
  } else if (row.step == 4) {
    by(4);
  } else {
    by(row.step);
  }
}

}  // namespace
}  // namespace orvanite::ORVANITE_SIMD_TARGET
