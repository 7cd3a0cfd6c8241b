// SPDX-License-Identifier: BSD-3-Clause
//
// Rows of planes on their way to the words that are keyed. Built once per target: all that is here
// is the including file's own.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "keyer/simd/RowTable.h"

namespace orvanite::ORVANITE_SIMD_TARGET {
namespace {

// Calls work(first, count) for a row's blocks of pixels. It is inlined, so that loops over whole
// blocks know how long they are.
template <int pixels, class Work>
[[gnu::always_inline]] inline void eachBlock(int count, const Work& work) {
  const int whole = count / pixels * pixels;
  for (int first = 0; first < whole; first += pixels) work(first, pixels);
  if (whole < count) work(whole, count - whole);
}

// One of two, without a branch: compilers would put into it what they cannot do for several at
// once.
template <class Value>
[[gnu::always_inline]] inline Value either(bool first, Value a, Value b) {
  using Wide = std::conditional_t<sizeof(Value) == 8, std::uint64_t, Value>;
  using Bits = std::conditional_t<sizeof(Value) == 4, std::uint32_t, Wide>;
  const auto mask = static_cast<Bits>(first ? ~std::uint64_t{} : 0);
  return std::bit_cast<Value>(
      static_cast<Bits>((std::bit_cast<Bits>(a) & mask) | (std::bit_cast<Bits>(b) & ~mask)));
}

// Whether a matte is refined.
inline bool isSoft(std::uint16_t matte) { return (matte > nearlyClear) & (matte < nearlySolid); }

// A code as a float, at most `most`; NaN is not above 0.
template <class Sample>
inline float codeOf(Sample v, float most) {
  if constexpr (std::is_floating_point_v<Sample>) {
    const float positive = v > 0.0f ? v : 0.0f;
    return positive < most ? positive : most;
  } else {
    return static_cast<float>(v) * (sizeof(Sample) == 1 ? 1.0f / 255 : 1.0f / 65535);
  }
}

inline std::uint16_t wordOfCode(float code) {
  const float above = code > 0.0f ? code : 0.0f;
  const float held = above < 1.0f ? above : 1.0f;
  return static_cast<std::uint16_t>(static_cast<std::int32_t>(held * 65535.0f + 0.5f));
}

void wordsOf(const float* codes, int count, std::uint16_t* __restrict to) {
  for (int x = 0; x < count; ++x) to[x] = wordOfCode(codes[x]);
}

inline float between(float from, float to, float share) { return from + share * (to - from); }

typedef float Repeated __attribute__((vector_size(4 * mostRepeats)));

void stretchRow(const StretchedRow& row, float* __restrict room, float* __restrict values) {
  float* __restrict const cells = room + 1;
  for (int i = 0; i < row.cells; ++i) cells[i] = between(row.above[i], row.below[i], row.share);
  // The outermost go on.
  room[0] = cells[0];
  cells[row.cells] = cells[row.cells - 1];
  if (row.repeats == 0) {
    for (int x = 0; x < row.count; ++x) {
      const float* const cell = room + row.places[x];
      values[x] = between(cell[0], cell[1], row.shares[x]);
    }
    return;
  }
  // Each as often as there are columns from one to the next; what is too much the next one takes.
  float* __restrict const all = cells + row.cells + 1;
  float* end = all;
  for (int i = 0; i < row.cells + 2; ++i, end += row.repeats) {
    const Repeated repeated = Repeated{} + room[i];
    std::memcpy(end, &repeated, sizeof repeated);
  }
  const float* const first = all + (row.repeats + 1) / 2;
  for (int x = 0; x < row.count; ++x) {
    values[x] = between(first[x], first[x + row.repeats], row.shares[x]);
  }
}

}  // namespace
}  // namespace orvanite::ORVANITE_SIMD_TARGET
