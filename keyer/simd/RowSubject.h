// SPDX-License-Identifier: BSD-3-Clause
//
// Rows of a matte that the subject's colours around it say: how far a pixel lies on the way from
// the screen's colour to theirs. Sums are of whole numbers. Built once per target: all that is here
// is the including file's own.
#pragma once

#include <cstddef>
#include <cstdint>

#include "keyer/simd/RowTable.h"
#include "keyer/simd/RowWords.h"

namespace orvanite::ORVANITE_SIMD_TARGET {
namespace {

// What is that solid counts as subject. Chosen with the next three on three draws of 120 plates,
// where 0.75 to 0.9, 0.2 to 0.4, 2 to 16 and 2 to 256 serve, and so that a plate without grain,
// whose key knows better, loses little.
constexpr float subjectFrom = 0.8f;
// How far the subject's colours are followed where they are all the same and the pixel is a mix of
// them,
constexpr float subjectTrust = 0.2f;
// and how much less where they are not or it is not: the colours' variance counts so often, and the
// square of how far the pixel lies beside the line from the screen's colour to theirs.
constexpr float subjectSpread = 4.0f, subjectBeside = 64.0f;
// What is another hue than the screen's is at least so solid, where it lies as far from the screen
// as the subject does: 0.5 to 0.7 serve. Never more than that.
constexpr float subjectLeast = 0.6f, mostOfLeast = 0.9f;
// Fewer pixels, or colours as near to the screen's, say nothing.
constexpr float fewestOfSubject = 4.0f, leastContrast = 1e-6f;

constexpr int subjectBlock = 128;
constexpr int subjectSide = 2 * subjectReach + 1;

void gatherSubject(const float* row, std::ptrdiff_t stride, int count, std::int32_t* held,
                   std::int32_t* sums) {
  const float *const red = row, *const green = red + stride, *const blue = green + stride;
  const float* const matte = blue + stride;
  const auto word = [](float code) __attribute__((always_inline)) {
    return static_cast<std::int32_t>(code * 65535.0f + 0.5f);
  };
  const auto exchange = [&](std::ptrdiff_t plane, const auto& valueAt)
      __attribute__((always_inline)) {
    std::int32_t* __restrict const own = held + plane * stride;
    std::int32_t* __restrict const sum = sums + plane * stride;
    for (int x = 0; x < count; ++x) {
      const std::int32_t value = valueAt(x) & -static_cast<std::int32_t>(matte[x] >= subjectFrom);
      sum[x] += value - own[x];
      own[x] = value;
    }
  };
  exchange(0, [](int) { return 1; });
  exchange(1, [&](int x) { return word(red[x]); });
  exchange(2, [&](int x) { return word(green[x]); });
  exchange(3, [&](int x) { return word(blue[x]); });
  // Squares of 256ths: 289 of three colours of up to 4 stay below 2^31.
  exchange(4, [&](int x) {
    const std::int32_t r = (word(red[x]) + 128) >> 8, g = (word(green[x]) + 128) >> 8;
    const std::int32_t b = (word(blue[x]) + 128) >> 8;
    return (r * r + g * g) + b * b;
  });
}

// Sums of subjectSide neighbours of each plane, from each pixel on. Plane by plane within a step:
// what was just written is not read at once.
[[gnu::always_inline]] inline void sumAlong(const SubjectRow& row, int first, int some,
                                            float (&__restrict to)[subjectPlanes][subjectBlock]) {
  static_assert(subjectSide == 17);
  std::int32_t two[subjectPlanes][subjectBlock + 16], four[subjectPlanes][subjectBlock + 16];
  const auto each = [&](int count, const auto& step) __attribute__((always_inline)) {
    for (int i = 0; i < subjectPlanes; ++i) {
      const std::int32_t* const columns = row.sums + i * row.stride + first;
      std::int32_t* __restrict const a = two[i];
      std::int32_t* __restrict const b = four[i];
      for (int x = 0; x < count; ++x) step(columns, a, b, to[i], x);
    }
  };
  each(
      some + 15, [](const auto* c, auto* a, auto*, auto*, int x)
                     __attribute__((always_inline)) { a[x] = c[x] + c[x + 1]; });
  each(
      some + 13, [](const auto*, auto* a, auto* b, auto*, int x)
                     __attribute__((always_inline)) { b[x] = a[x] + a[x + 2]; });
  each(
      some + 9, [](const auto*, auto* a, auto* b, auto*, int x)
                    __attribute__((always_inline)) { a[x] = b[x] + b[x + 4]; });
  each(
      some, [](const auto* c, auto* a, auto*, auto* sum, int x) __attribute__((always_inline)) {
        sum[x] = static_cast<float>((a[x] + a[x + 8]) + c[x + 16]);
      });
}

[[gnu::always_inline]] inline void mixBlock(const SubjectRow& row, int first, int some) {
  float sums[subjectPlanes][subjectBlock];
  sumAlong(row, first, some, sums);
  const float *const red = row.pixels + first, *const green = red + row.stride;
  const float *const blue = green + row.stride, *const screenRed = row.screen + first;
  const float* const screenGreen = screenRed + row.stride;
  const float* const screenBlue = screenGreen + row.stride;
  float* __restrict const matte = row.pixels + 3 * row.stride + first;
  for (int x = 0; x < some; ++x) {
    const float count = sums[0][x];
    const float part = 1.0f / (count > 1.0f ? count : 1.0f), each = part * (1.0f / 65535);
    const float r = sums[1][x] * each, g = sums[2][x] * each, b = sums[3][x] * each;
    const float spread =
        sums[4][x] * (part * (256.0f / 65535 * (256.0f / 65535))) - ((r * r + g * g) + b * b);
    const float sr = screenRed[x], sg = screenGreen[x], sb = screenBlue[x];
    const float dr = r - sr, dg = g - sg, db = b - sb;
    const float contrast = (dr * dr + dg * dg) + db * db;
    const float divisor = contrast > leastContrast ? contrast : leastContrast;
    const float cr = red[x] - sr, cg = green[x] - sg, cb = blue[x] - sb;
    const float dot = (cr * dr + cg * dg) + cb * db, way = dot / divisor;
    const float above = way > 0.0f ? way : 0.0f, held = above < 1.0f ? above : 1.0f;
    const float away = (cr * cr + cg * cg) + cb * cb, beside = away - way * dot;
    const float doubt = subjectSpread * (spread > 0.0f ? spread : 0.0f) +
                        subjectBeside * (beside > 0.0f ? beside : 0.0f);
    const float trust = subjectTrust * contrast / (divisor + doubt);
    const float own = matte[x], mix = own + trust * (held - own);
    // Whatever the colour is a mix with, so much of it is not screen, in more or less light.
    const float light = (sr * sr + sg * sg) + sb * sb, along = (cr * sr + cg * sg) + cb * sb;
    const float hued = away - along * along / (light > leastContrast ? light : leastContrast);
    const float apart = subjectLeast * __builtin_sqrtf((hued > 0.0f ? hued : 0.0f) / divisor);
    const float least = apart < mostOfLeast ? apart : mostOfLeast;
    const float mixed = mix < least ? least : mix;
    const bool told = (own > nearlyClear * (1.0f / 65535)) & (own < nearlySolid * (1.0f / 65535)) &
                      (count >= fewestOfSubject) & (contrast > leastContrast);
    matte[x] = either(told, mixed, own);
  }
}

void mixMatte(const SubjectRow& row) {
  eachBlock<subjectBlock>(
      row.count, [&](int first, int some)
                     __attribute__((always_inline)) { mixBlock(row, first, some); });
}

}  // namespace
}  // namespace orvanite::ORVANITE_SIMD_TARGET
