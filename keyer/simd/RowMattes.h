// SPDX-License-Identifier: BSD-3-Clause
//
// Rows of mattes and of planes. Built once per target: all that is here is the including file's
// own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace orvanite::ORVANITE_SIMD_TARGET {
namespace {

constexpr int solidMatte = 65535;

// As wide as the machine's registers.
#if defined(__AVX512F__)
constexpr std::ptrdiff_t lanes = 16;
#elif defined(__AVX__)
constexpr std::ptrdiff_t lanes = 8;
#else
constexpr std::ptrdiff_t lanes = 4;
#endif
typedef float Lanes __attribute__((vector_size(4 * lanes)));

// The sums of a block stay in registers; compilers left alone put them into memory.
void weighRow(const float* taps, const float* const* at, int terms, int width, float* to) {
  constexpr int block = static_cast<int>(4 * lanes);
  const auto weighBlock = [&](int x) {
    Lanes a = {}, b = {}, c = {}, d = {};
    for (int t = 0; t < terms; ++t) {
      const float tap = taps[t];
      const float* const from = at[t] + x;
      Lanes in;
      std::memcpy(&in, from, sizeof in);
      a += tap * in;
      std::memcpy(&in, from + lanes, sizeof in);
      b += tap * in;
      std::memcpy(&in, from + 2 * lanes, sizeof in);
      c += tap * in;
      std::memcpy(&in, from + 3 * lanes, sizeof in);
      d += tap * in;
    }
    float* const out = to + x;
    std::memcpy(out, &a, sizeof a);
    std::memcpy(out + lanes, &b, sizeof b);
    std::memcpy(out + 2 * lanes, &c, sizeof c);
    std::memcpy(out + 3 * lanes, &d, sizeof d);
  };
  int x = 0;
  for (; x + block <= width; x += block) weighBlock(x);
  if (x < width && width >= block) {
    weighBlock(width - block);  // some a second time
    return;
  }
  for (; x < width; ++x) {
    float sum = 0;
    for (int t = 0; t < terms; ++t) sum += taps[t] * at[t][x];
    to[x] = sum;
  }
}

void measureRow(const std::uint16_t* row, int count, std::uint16_t& least, std::uint16_t& most) {
  std::uint16_t low = least, high = most;
  for (int x = 0; x < count; ++x) {
    low = row[x] < low ? row[x] : low;
    high = row[x] > high ? row[x] : high;
  }
  least = low;
  most = high;
}

void turnRow(std::uint16_t* row, int count) {
  for (int x = 0; x < count; ++x) row[x] = static_cast<std::uint16_t>(solidMatte - row[x]);
}

// sqrt 2 - 1 in 65536ths.
constexpr std::uint32_t diagonalPart = 27146;
constexpr std::uint32_t wholeStep = 65536;

inline std::uint16_t lesser(std::uint16_t a, std::uint16_t b) { return a < b ? a : b; }

template <bool whole>
void shrinkBy(const std::uint16_t* above, const std::uint16_t* here, const std::uint16_t* below,
              std::uint32_t part, int count, std::uint16_t* __restrict to) {
  for (int x = 0; x < count; ++x) {
    const std::uint16_t middle = here[x + 1];
    const std::uint16_t row = lesser(lesser(here[x], here[x + 2]), middle);
    const std::uint16_t cross = lesser(row, lesser(above[x + 1], below[x + 1]));
    const std::uint16_t corners =
        lesser(lesser(above[x], above[x + 2]), lesser(below[x], below[x + 2]));
    const std::uint16_t square = lesser(cross, corners);
    const auto moved = static_cast<std::uint16_t>(
        cross - ((static_cast<std::uint32_t>(cross - square) * diagonalPart) >> 16));
    to[x] = whole ? moved
                  : static_cast<std::uint16_t>(
                        middle - ((static_cast<std::uint32_t>(middle - moved) * part) >> 16));
  }
}

void shrinkRow(const std::uint16_t* above, const std::uint16_t* here, const std::uint16_t* below,
               std::uint32_t part, int count, std::uint16_t* to) {
  (part == wholeStep ? shrinkBy<true> : shrinkBy<false>)(above, here, below, part, count, to);
}

float scaleOf(int whole, int part) {
  return 1.0f / static_cast<float>(256 * (2 * whole + 1) + 2 * part);
}

// Even samples come out as they are: the roundings to 24 bits move 65535 by less than .02.
inline std::uint16_t meanOf(std::int32_t sum, std::int32_t ends, std::int32_t part, float scale) {
  const float weighted = static_cast<float>(sum) * 256.0f + static_cast<float>(ends * part);
  return static_cast<std::uint16_t>(static_cast<std::int32_t>(weighted * scale + 0.5f));
}

void meanAlongRow(const std::uint16_t* row, int whole, int part, int count,
                  std::int32_t* __restrict sums, std::uint16_t* __restrict to) {
  const int border = whole + (part > 0 ? 1 : 0);
  const float scale = scaleOf(whole, part);
  // Sums over 1, 2, 4 samples and so on, of which the wanted one is made.
  const int samples = 2 * whole + 1, length = count + 2 * whole;
  std::int32_t* __restrict const some = sums + count;
  const std::uint16_t* const from = row + (border - whole);
  for (int x = 0; x < length; ++x) some[x] = from[x];
  for (int x = 0; x < count; ++x) sums[x] = some[x];
  int made = 1;  // the first is always one of them: their number is odd
  for (int of = 2; of <= samples; of *= 2) {
    const int half = of / 2;
    for (int x = 0; x + of <= length; ++x) some[x] += some[x + half];
    if ((samples & of) == 0) continue;
    for (int x = 0; x < count; ++x) sums[x] += some[x + made];
    made += of;
  }
  const std::uint16_t* const end = row + std::ptrdiff_t{2} * border;
  for (int x = 0; x < count; ++x) to[x] = meanOf(sums[x], row[x] + end[x], part, scale);
}

void meanAcrossRows(const std::uint16_t* come, const std::uint16_t* go, const std::uint16_t* low,
                    const std::uint16_t* high, int whole, int part, int count,
                    std::int32_t* __restrict sums, std::uint16_t* __restrict to) {
  const float scale = scaleOf(whole, part);
  for (int x = 0; x < count; ++x) {
    const std::int32_t sum = sums[x] + come[x];
    to[x] = meanOf(sum, low[x] + high[x], part, scale);
    sums[x] = sum - go[x];
  }
}

void nearerRow(const std::int16_t* above, const std::int16_t* below, std::int16_t more, int count,
               std::int16_t* __restrict least) {
  for (int x = 0; x < count; ++x) {
    const std::int16_t closer = above[x] < below[x] ? above[x] : below[x];
    const auto other = static_cast<std::int16_t>(closer + more);
    least[x] = least[x] < other ? least[x] : other;
  }
}

int wantedOf(const std::uint16_t* matte, const std::uint16_t* other, int count, int& first) {
  std::uint16_t any = 0;
  if (other != nullptr) {
    for (int x = 0; x < count; ++x) {
      any |= static_cast<std::uint16_t>(other[x] < solidMatte ? matte[x] : 0);
    }
  } else {
    for (int x = 0; x < count; ++x) any |= matte[x];
  }
  if (any == 0) return 0;
  const auto counts = [&](int x) {
    return matte[x] > 0 && (other == nullptr || other[x] < solidMatte);
  };
  first = 0;
  while (!counts(first)) ++first;
  int last = count - 1;
  while (!counts(last)) --last;
  return last - first + 1;
}

}  // namespace
}  // namespace orvanite::ORVANITE_SIMD_TARGET
