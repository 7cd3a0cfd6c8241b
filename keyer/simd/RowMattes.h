// SPDX-License-Identifier: BSD-3-Clause
//
// Rows of mattes and of planes. Built once per target: all that is here is the including file's
// own.
#pragma once

#include <bit>
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
typedef std::int32_t Wholes __attribute__((vector_size(4 * lanes)));
typedef std::uint16_t Codes __attribute__((vector_size(4 * lanes)));
typedef std::uint16_t HalfCodes __attribute__((vector_size(2 * lanes)));

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

inline void measureCodes(const std::uint16_t* codes, int count, std::uint16_t& least,
                         std::uint16_t& most) {
  std::uint16_t low = least, high = most;
  for (int x = 0; x < count; ++x) {
    low = codes[x] < low ? codes[x] : low;
    high = codes[x] > high ? codes[x] : high;
  }
  least = low;
  most = high;
}

void measureRows(const std::uint16_t* first, std::ptrdiff_t stride, int rows, int count,
                 std::uint16_t& least, std::uint16_t& most) {
  constexpr int together = static_cast<int>(2 * lanes);
  const int whole = rows == 1 ? 0 : count / together * together;
  if (whole > 0) {
    Codes low = Codes{} + least, high = Codes{} + most;
    for (int x = 0; x < whole; x += together) {
      for (int y = 0; y < rows; ++y) {
        Codes codes;
        std::memcpy(&codes, first + stride * y + x, sizeof codes);
        low = codes < low ? codes : low;
        high = codes > high ? codes : high;
      }
    }
    std::uint16_t lows[together], highs[together];
    std::memcpy(lows, &low, sizeof lows);
    std::memcpy(highs, &high, sizeof highs);
    measureCodes(lows, together, least, most);
    measureCodes(highs, together, least, most);
  }
  for (int y = 0; y < rows; ++y) {
    measureCodes(first + stride * y + whole, count - whole, least, most);
  }
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

// The longest sums that others are made of: of up to 255 samples no more than three.
constexpr int longestSum = 64;
constexpr int mostTerms = 9;

inline Wholes wholesAt(const std::uint16_t* from) {
  HalfCodes codes;
  std::memcpy(&codes, from, sizeof codes);
  return __builtin_convertvector(codes, Wholes);
}

inline Wholes wholesAt(const std::int32_t* from) {
  Wholes wholes;
  std::memcpy(&wholes, from, sizeof wholes);
  return wholes;
}

// Works on a row a register at a time; the last one takes some a second time. Rows that are shorter
// go one by one.
template <class Block, class Single>
inline void eachLanes(int count, Block block, Single single) {
  constexpr int together = static_cast<int>(lanes);
  int x = 0;
  for (; x + together <= count; x += together) block(x);
  if (x < count && count >= together) {
    block(count - together);
    return;
  }
  for (; x < count; ++x) single(x);
}

// Sums of four, each `apart` from the last.
template <class In>
void sumFours(const In* from, std::ptrdiff_t apart, int count, std::int32_t* to) {
  eachLanes(
      count,
      [&](int x) {
        const In* const at = from + x;
        const Wholes sum = wholesAt(at) + wholesAt(at + apart) + wholesAt(at + 2 * apart) +
                           wholesAt(at + 3 * apart);
        std::memcpy(to + x, &sum, sizeof sum);
      },
      [&](int x) {
        const In* const at = from + x;
        to[x] = at[0] + at[apart] + at[2 * apart] + at[3 * apart];
      });
}

// Sums over 4, 16 and 64 samples are made first, and the wanted one of as few as there can be.
// ones  how many samples go into it one by one
// ends  whether a part of one more at each end counts
template <int ones, bool ends>
void meanAlongBy(const std::uint16_t* row, int whole, int part, int count, std::int32_t* sums,
                 std::uint16_t* to) {
  const int border = whole + (ends ? 1 : 0);
  const float scale = scaleOf(whole, part);
  const int samples = 2 * whole + 1, length = count + 2 * whole;
  const std::uint16_t* const from = row + (border - whole);
  const std::int32_t* terms[mostTerms];
  int termCount = 0;
  int made = ones;
  std::int32_t* level = sums;
  const std::int32_t* shorter = nullptr;
  for (int of = 4; of <= samples && of <= longestSum; of *= 4) {
    const int here = length - of + 1;
    if (shorter == nullptr) {
      sumFours(from, 1, here, level);
    } else {
      sumFours(shorter, of / 4, here, level);
    }
    const int wanted = of == longestSum ? samples / of : samples / of % 4;
    for (int i = 0; i < wanted; ++i, made += of) terms[termCount++] = level + made;
    shorter = level;
    level += here;
  }
  const std::uint16_t* const end = row + std::ptrdiff_t{2} * border;
  eachLanes(
      count,
      [&](int x) {
        Wholes sum = {};
        for (int i = 0; i < ones; ++i) sum += wholesAt(from + x + i);
        for (int i = 0; i < termCount; ++i) sum += wholesAt(terms[i] + x);
        Lanes weighted = __builtin_convertvector(sum, Lanes) * 256.0f;
        if constexpr (ends) {
          const Wholes both = wholesAt(row + x) + wholesAt(end + x);
          weighted += __builtin_convertvector(both * part, Lanes);
        }
        const Wholes rounded = __builtin_convertvector(weighted * scale + 0.5f, Wholes);
        const HalfCodes mean = __builtin_convertvector(rounded, HalfCodes);
        std::memcpy(to + x, &mean, sizeof mean);
      },
      [&](int x) {
        std::int32_t sum = 0;
        for (int i = 0; i < ones; ++i) sum += from[x + i];
        for (int i = 0; i < termCount; ++i) sum += terms[i][x];
        to[x] = meanOf(sum, ends ? row[x] + end[x] : 0, part, scale);
      });
}

void meanAlongRow(const std::uint16_t* row, int whole, int part, int count, std::int32_t* sums,
                  std::uint16_t* to) {
  // 2 * whole + 1 samples go by fours but for one or three.
  const bool ends = part > 0;
  if (whole % 2 == 0) {
    (ends ? meanAlongBy<1, true> : meanAlongBy<1, false>)(row, whole, part, count, sums, to);
  } else {
    (ends ? meanAlongBy<3, true> : meanAlongBy<3, false>)(row, whole, part, count, sums, to);
  }
}

template <bool ends>
void meanAcrossBy(const std::uint16_t* come, const std::uint16_t* go, const std::uint16_t* low,
                  const std::uint16_t* high, int whole, int part, int count,
                  std::int32_t* __restrict sums, std::uint16_t* __restrict to) {
  const float scale = scaleOf(whole, part);
  for (int x = 0; x < count; ++x) {
    const std::int32_t sum = sums[x] + come[x];
    to[x] = meanOf(sum, ends ? low[x] + high[x] : 0, part, scale);
    sums[x] = sum - go[x];
  }
}

void meanAcrossRows(const std::uint16_t* come, const std::uint16_t* go, const std::uint16_t* low,
                    const std::uint16_t* high, int whole, int part, int count, std::int32_t* sums,
                    std::uint16_t* to) {
  (part > 0 ? meanAcrossBy<true> : meanAcrossBy<false>)(come, go, low, high, whole, part, count,
                                                        sums, to);
}

void nearerRow(const std::int16_t* above, const std::int16_t* below, std::int16_t more, int count,
               std::int16_t* __restrict least) {
  for (int x = 0; x < count; ++x) {
    const std::int16_t closer = above[x] < below[x] ? above[x] : below[x];
    const auto other = static_cast<std::int16_t>(closer + more);
    least[x] = least[x] < other ? least[x] : other;
  }
}

// How many pixels there are from the first that counts to the last.
template <class Counts>
[[gnu::always_inline]] inline int spanOf(int count, int& first, const Counts& counts) {
  constexpr int together = 32;
  const auto anyOf = [&](int from, int some) __attribute__((always_inline)) {
    std::uint16_t any = 0;
    for (int x = from; x < from + some; ++x) any |= counts(x);
    return any != 0;
  };
  if (!anyOf(0, count)) return 0;
  int from = 0, end = count;
  while (from + together <= end && !anyOf(from, together)) from += together;
  while (counts(from) == 0) ++from;
  while (end - together > from && !anyOf(end - together, together)) end -= together;
  while (counts(end - 1) == 0) --end;
  first = from;
  return end - from;
}

int wantedOf(const std::uint16_t* matte, const std::uint16_t* other, int count, int& first) {
  if (other == nullptr) {
    return spanOf(
        count, first, [&](int x) __attribute__((always_inline)) { return matte[x]; });
  }
  return spanOf(
      count, first, [&](int x) __attribute__((always_inline)) {
        return static_cast<std::uint16_t>(matte[x] & -int{other[x] < solidMatte});
      });
}

int softOf(const std::uint16_t* matte, int count, int& first) {
  return spanOf(
      count, first, [&](int x) __attribute__((always_inline)) {
        return static_cast<std::uint16_t>(isSoft(matte[x]));
      });
}

// A bit for each of sixteen codes, the first the lowest: whether it lies above the limit.
inline std::uint32_t above(const std::uint16_t* codes, std::uint16_t limit) {
  typedef std::uint16_t Sixteen __attribute__((vector_size(32)));
  constexpr Sixteen bits = {1,      1 << 1, 1 << 2,  1 << 3,  1 << 4,  1 << 5,  1 << 6,  1 << 7,
                            1 << 8, 1 << 9, 1 << 10, 1 << 11, 1 << 12, 1 << 13, 1 << 14, 1 << 15};
  Sixteen all;
  std::memcpy(&all, codes, sizeof all);
  all = all > limit ? bits : Sixteen{};
  std::uint64_t four[4];
  std::memcpy(four, &all, sizeof four);
  std::uint64_t found = four[0] | four[1] | four[2] | four[3];
  found |= found >> 32;
  return static_cast<std::uint16_t>(found | found >> 16);
}

int changesOf(const std::uint16_t* row, int count, std::uint16_t limit, bool isAbove, int* at) {
  constexpr int together = 16;
  int changes = 0;
  std::uint32_t before = isAbove ? 1 : 0;
  const auto take = [&](int first, std::uint32_t bits) {
    std::uint32_t changed = (bits ^ (bits << 1 | before)) & 0xFFFF;
    for (; changed != 0; changed &= changed - 1) at[changes++] = first + std::countr_zero(changed);
    before = bits >> 15;
  };
  int x = 0;
  for (; x + together <= count; x += together) take(x, above(row + x, limit));
  if (x < count) {
    std::uint16_t rest[together];
    for (int i = 0; i < together; ++i) rest[i] = row[x + i < count ? x + i : count - 1];
    take(x, above(rest, limit));
  }
  return changes;
}

}  // namespace
}  // namespace orvanite::ORVANITE_SIMD_TARGET
