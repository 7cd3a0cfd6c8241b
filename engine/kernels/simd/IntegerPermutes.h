// SPDX-License-Identifier: BSD-3-Clause
//
// The look-ups of 8-bit pictures for processors whose registers hold their tables: 256 bytes are
// four registers, and two permutes look 64 codes up in them.
#pragma once

#include "engine/kernels/simd/IntegerSamples.h"
#include "engine/tables/IntegerPlan.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

namespace {

template <>
struct KeyedBuffer<std::uint8_t> {
  HWY_ALIGN std::uint16_t planes[4][blockPixels];  // red, green, blue, key

  void setKey(std::size_t i, int key) { planes[3][i] = static_cast<std::uint16_t>(key); }
};

/// A table of 256 bytes.
struct ByteTable {
  __m512i quarter[4];

  explicit HWY_INLINE ByteTable(const std::uint8_t* entries) {
    for (std::size_t q = 0; q < 4; ++q) quarter[q] = _mm512_loadu_si512(entries + 64 * q);
  }
  /// The entries of 64 codes; `upper` has those from 128 on.
  HWY_INLINE __m512i at(__m512i codes, __mmask64 upper) const {
    const __m512i low = _mm512_permutex2var_epi8(quarter[0], codes, quarter[1]);
    const __m512i high = _mm512_permutex2var_epi8(quarter[2], codes, quarter[3]);
    return _mm512_mask_blend_epi8(upper, low, high);
  }
};

/// Where the first of four samples lies of 32 pixels, eight after eight, each eight twice: of bytes
/// so placed, unpacking makes shorts in order.
struct EightsTwice {
  alignas(64) std::uint8_t at[64];
};
constexpr EightsTwice eightsTwice = [] {
  EightsTwice places = {};
  for (unsigned i = 0; i < 64; ++i) {
    places.at[i] = static_cast<std::uint8_t>(4 * (8 * (i / 16) + i % 8));
  }
  return places;
}();

/// One sample of 32 pixels at `first` and of 32 at `second`, eights of the one and of the other in
/// turn.
HWY_INLINE __m512i alternatingEights(const std::uint8_t* first, const std::uint8_t* second,
                                     __m512i places) {
  const auto half = [places](const std::uint8_t* pixels) {
    return _mm512_permutex2var_epi8(_mm512_loadu_si512(pixels), places,
                                    _mm512_loadu_si512(pixels + 64));
  };
  return _mm512_mask_blend_epi8(0xFF00FF00FF00FF00u, half(first), half(second));
}

HWY_NOINLINE inline void lookUpKeyed(const Pixels<std::uint8_t>& pixels,
                                     const IntegerPlan::Packed& table, std::size_t first,
                                     std::size_t n, KeyedBuffer<std::uint8_t>& to) {
  const auto load = [](const std::uint16_t* from) { return _mm512_load_si512(from); };
  const auto store = [](std::uint16_t* at, __m512i v) { _mm512_store_si512(at, v); };
  const std::size_t lanes = shortLanes();
  for (int c = 0; c < 3; ++c) {
    const auto& parts = table.parts[c];
    const ByteTable workLow(parts[0]), workHigh(parts[1]), keyLow(parts[2]), keyHigh(parts[3]);
    const int sample = static_cast<int>(pixels.channel(c) - pixels.at);
    const __m512i places = _mm512_add_epi8(_mm512_load_si512(eightsTwice.at),
                                           _mm512_set1_epi8(static_cast<char>(sample)));
    for (std::size_t i = first; i < first + n; i += 2 * lanes) {
      const std::size_t other = i + lanes < first + n ? i + lanes : i;
      const __m512i codes = alternatingEights(pixels.at + 4 * i, pixels.at + 4 * other, places);
      const __mmask64 upper = _mm512_movepi8_mask(codes);
      const __m512i low = workLow.at(codes, upper), high = workHigh.at(codes, upper);
      store(to.planes[c] + i, _mm512_unpacklo_epi8(low, high));
      store(to.planes[c] + other, _mm512_unpackhi_epi8(low, high));
      const __m512i keyLows = keyLow.at(codes, upper), keyHighs = keyHigh.at(codes, upper);
      __m512i key = _mm512_unpacklo_epi8(keyLows, keyHighs);
      __m512i otherKey = _mm512_unpackhi_epi8(keyLows, keyHighs);
      std::uint16_t* const keys = to.planes[3];
      if (c > 0) {
        key = _mm512_add_epi16(key, load(keys + i));
        otherKey = _mm512_add_epi16(otherKey, load(keys + other));
      }
      store(keys + i, key);
      store(keys + other, otherKey);
    }
  }
}

HWY_INLINE Keyed loadKeyed(const KeyedBuffer<std::uint8_t>& from, std::size_t i, bool) {
  return {{hn::Load(u16Tag, from.planes[0] + i), hn::Load(u16Tag, from.planes[1] + i),
           hn::Load(u16Tag, from.planes[2] + i)},
          hn::Load(u16Tag, from.planes[3] + i)};
}

}  // namespace

}  // namespace orvanite::ORVANITE_SIMD_TARGET
