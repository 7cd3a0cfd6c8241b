// SPDX-License-Identifier: BSD-3-Clause
//
// Rows of a plate whose colour is led by its light. Built once per target: all that is here is the
// including file's own.
#pragma once

#include <cstddef>
#include <cstdint>

#include "keyer/simd/RowWords.h"

namespace orvanite::ORVANITE_SIMD_TARGET {
namespace {

// So many pixels at a time, and one more at either end.
constexpr int chromaBlock = 64;

// Of a square of 3 x 3 pixels.
constexpr float ninth = 1.0f / 9.0f;

inline float threeFrom(const float* at) { return (at[0] + at[1]) + at[2]; }

// ITU-R BT.601, as JPEG and most movies have it.
template <class Sample>
inline void splitBy(const Sample* const* channels, std::ptrdiff_t step, int count,
                    std::ptrdiff_t stride, float* __restrict light) {
  float* __restrict const red = light + stride;
  float* __restrict const blue = red + stride;
  const Sample *const r = channels[0], *const g = channels[1], *const b = channels[2];
  for (int x = 0; x < count; ++x) {
    const float ofRed = codeOf(r[x * step], 16.0f), ofBlue = codeOf(b[x * step], 16.0f);
    const float all = 0.299f * ofRed + 0.587f * codeOf(g[x * step], 16.0f) + 0.114f * ofBlue;
    light[x] = all;
    red[x] = ofRed - all;
    blue[x] = ofBlue - all;
  }
}

template <class Sample>
void splitChroma(const Sample* const* channels, std::ptrdiff_t step, int count,
                 std::ptrdiff_t stride, float* light) {
  if (step == 4) {
    splitBy(channels, 4, count, stride, light);
  } else {
    splitBy(channels, step, count, stride, light);
  }
}

// A line through nine pixels by least squares, of each difference of colour over light. The flatter
// the light the flatter the line: a variance of a hundredth of a code's range, squared, halves it.
[[gnu::always_inline]] inline void fitBlock(const float* const* rows, std::ptrdiff_t stride,
                                            int first, int some, float* lines) {
  constexpr float flat = 1e-4f;
  float sums[6][chromaBlock + 2];
  for (int x = 0; x < some + 2; ++x) {
    const std::ptrdiff_t at = first + x - 1;
    float sum[6] = {};
    for (int row = 0; row < 3; ++row) {
      const float light = rows[row][at];
      const float red = rows[row][stride + at], blue = rows[row][2 * stride + at];
      sum[0] += light;
      sum[1] += red;
      sum[2] += blue;
      sum[3] += light * light;
      sum[4] += light * red;
      sum[5] += light * blue;
    }
    for (int i = 0; i < 6; ++i) sums[i][x] = sum[i];
  }
  float* __restrict const redSlope = lines + first;
  float* __restrict const redStart = redSlope + stride;
  float* __restrict const blueSlope = redStart + stride;
  float* __restrict const blueStart = blueSlope + stride;
  for (int x = 0; x < some; ++x) {
    const float light = threeFrom(sums[0] + x) * ninth;
    const float red = threeFrom(sums[1] + x) * ninth, blue = threeFrom(sums[2] + x) * ninth;
    const float varies = threeFrom(sums[3] + x) * ninth - light * light;
    const float withRed = threeFrom(sums[4] + x) * ninth - light * red;
    const float withBlue = threeFrom(sums[5] + x) * ninth - light * blue;
    const float part = 1.0f / ((varies > 0.0f ? varies : 0.0f) + flat);
    redSlope[x] = withRed * part;
    redStart[x] = red - withRed * part * light;
    blueSlope[x] = withBlue * part;
    blueStart[x] = blue - withBlue * part * light;
  }
}

void fitChroma(const float* const* rows, std::ptrdiff_t stride, int count, float* lines) {
  eachBlock<chromaBlock>(
      count, [&](int first, int some)
                 __attribute__((always_inline)) { fitBlock(rows, stride, first, some, lines); });
}

// A pixel's colour is the mean of what the nine lines that it helped to find say of it.
[[gnu::always_inline]] inline void leadBlock(const float* const* lines, const float* row,
                                             std::ptrdiff_t stride, float lead, int first, int some,
                                             std::uint16_t* const* words) {
  float sums[4][chromaBlock + 2];
  for (int i = 0; i < 4; ++i) {
    const std::ptrdiff_t at = i * stride + first - 1;
    const float *const above = lines[0] + at, *const here = lines[1] + at;
    const float* const below = lines[2] + at;
    for (int x = 0; x < some + 2; ++x) sums[i][x] = (above[x] + here[x]) + below[x];
  }
  float led[3][chromaBlock];
  const float* const light = row + first;
  for (std::ptrdiff_t c = 0; c < 2; ++c) {
    const float* const own = light + (c + 1) * stride;
    const float *const slope = sums[2 * c], *const start = sums[2 * c + 1];
    for (int x = 0; x < some; ++x) {
      const float mean = (threeFrom(slope + x) * light[x] + threeFrom(start + x)) * ninth;
      led[2 * c][x] = own[x] + lead * (mean - own[x]);
    }
  }
  for (int x = 0; x < some; ++x) {
    // What is left of light .299 R + .587 G + .114 B.
    led[1][x] = light[x] - (0.299f * led[0][x] + 0.114f * led[2][x]) * (1.0f / 0.587f);
    led[0][x] += light[x];
    led[2][x] += light[x];
  }
  for (int c = 0; c < 3; ++c) {
    std::uint16_t* const to = words[c] + first;
    for (int x = 0; x < some; ++x) to[x] = wordOfCode(led[c][x]);
  }
}

void leadChroma(const float* const* lines, const float* row, std::ptrdiff_t stride, float lead,
                int count, std::uint16_t* const* words) {
  eachBlock<chromaBlock>(
      count, [&](int first, int some) __attribute__((always_inline)) {
        leadBlock(lines, row, stride, lead, first, some, words);
      });
}

}  // namespace
}  // namespace orvanite::ORVANITE_SIMD_TARGET
