// SPDX-License-Identifier: BSD-3-Clause
//
// The look-ups of 8-bit plates, clean plates and backgrounds: one scalar load a channel and pixel
// brings working value and key contribution where they belong.
#pragma once

#include <cstring>

#include "engine/kernels/simd/IntegerSamples.h"
#include "engine/tables/IntegerPlan.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

namespace {

/// A vector's pixels dealt out in turn: four vectors of them then make four of shorts by shifts
/// and blends alone.
template <>
struct KeyedBuffer<std::uint8_t> {
  HWY_ALIGN std::uint64_t packed[blockPixels];

  void setKey(std::size_t i, int key) {
    const std::size_t lanes = shortLanes(), in = i % lanes, quarter = lanes / 4;
    std::uint64_t& pixel = packed[i - in + in / 4 + quarter * (in % 4)];
    pixel = (pixel & 0xFFFFFFFFFFFFu) | static_cast<std::uint64_t>(key) << 48;
  }
};

/// One pixel, with one load of all its codes.
template <bool alphaFirst>
HWY_INLINE std::uint64_t lookUpPixel(const std::uint8_t* at, const std::uint64_t (&table)[3][256]) {
  std::uint32_t codes;
  std::memcpy(&codes, at, sizeof codes);
  constexpr int r = alphaFirst ? 24 : 0, g = alphaFirst ? 16 : 8, b = alphaFirst ? 8 : 16;
  return table[0][codes >> r & 255] + table[1][codes >> g & 255] + table[2][codes >> b & 255];
}

template <bool alphaFirst>
HWY_INLINE void deal(const std::uint8_t* at, const std::uint64_t (&table)[3][256],
                     std::size_t first, std::size_t n, std::uint64_t* packed) {
  const std::size_t lanes = shortLanes(), quarter = lanes / 4;
  for (std::size_t i = first; i < first + n; i += lanes) {
    for (std::size_t k = 0; k < quarter; ++k) {
      const std::uint8_t* const four = at + 4 * (i + 4 * k);
      std::uint64_t* const to = packed + i + k;
      to[0] = lookUpPixel<alphaFirst>(four, table);
      to[quarter] = lookUpPixel<alphaFirst>(four + 4, table);
      to[2 * quarter] = lookUpPixel<alphaFirst>(four + 8, table);
      to[3 * quarter] = lookUpPixel<alphaFirst>(four + 12, table);
    }
  }
}

HWY_NOINLINE inline void lookUpKeyed(const Pixels<std::uint8_t>& pixels,
                                     const IntegerPlan::Packed& table, std::size_t first,
                                     std::size_t n, KeyedBuffer<std::uint8_t>& to) {
  if (pixels.alphaFirst) return deal<true>(pixels.at, table.bytes, first, n, to.packed);
  return deal<false>(pixels.at, table.bytes, first, n, to.packed);
}

HWY_INLINE Keyed loadKeyed(const KeyedBuffer<std::uint8_t>& from, std::size_t i, bool) {
  using Longs = hn::Vec<LongTag>;
  const auto load = [at = from.packed + i, quarter = shortLanes() / 4](std::size_t k) {
    return hn::Load(longTag, at + quarter * k);
  };
  // Words of red and green, and of blue and key, of every pixel of two of the vectors.
  const auto lower = [](Longs even, Longs odd) {
    return hn::OddEven(hn::BitCast(wordTag, hn::ShiftLeft<32>(odd)), hn::BitCast(wordTag, even));
  };
  const auto upper = [](Longs even, Longs odd) {
    return hn::OddEven(hn::BitCast(wordTag, odd), hn::BitCast(wordTag, hn::ShiftRight<32>(even)));
  };
  const Longs p0 = load(0), p1 = load(1), p2 = load(2), p3 = load(3);
  const Words even[2] = {lower(p0, p2), upper(p0, p2)};
  const Words odd[2] = {lower(p1, p3), upper(p1, p3)};
  return {{join(even[0], odd[0]), joinUpper(even[0], odd[0]), join(even[1], odd[1])},
          joinUpper(even[1], odd[1])};
}

}  // namespace

}  // namespace orvanite::ORVANITE_SIMD_TARGET
