// SPDX-License-Identifier: BSD-3-Clause
//
// The table look-ups of the integer kernels: plain loops of scalar loads, which beat gathers, over
// buffers that stay in the first cache.
#pragma once

#include <cstring>

#if defined(__AVX512VBMI__)
#include "engine/kernels/simd/IntegerPermutes.h"
#else
#include "engine/kernels/simd/IntegerBytes.h"
#endif

namespace orvanite::ORVANITE_SIMD_TARGET {

namespace {

/// Words of pixels with even and with odd numbers apart, so that two vectors of them make one of
/// shorts without crossing lanes.
template <>
struct KeyedBuffer<std::uint16_t> {
  HWY_ALIGN std::uint32_t even[3][blockPixels / 2];
  HWY_ALIGN std::uint32_t odd[3][blockPixels / 2];
};

HWY_NOINLINE inline void lookUpKeyed(const Pixels<std::uint16_t>& pixels,
                                     const IntegerPlan::Packed& table, std::size_t first,
                                     std::size_t n, KeyedBuffer<std::uint16_t>& to) {
  for (std::size_t c = 0; c < 3; ++c) {
    const std::uint16_t* const codes = pixels.channel(static_cast<int>(c));
    const std::uint32_t* const words = table.words[c];
    for (std::size_t i = first / 2; i < (first + n) / 2; ++i) {
      to.even[c][i] = words[codes[8 * i]];
      to.odd[c][i] = words[codes[8 * i + 4]];
    }
  }
}

/// Keys whose sums do not fit 16 bits come out limited to 0..4095.
HWY_INLINE Keyed loadKeyed(const KeyedBuffer<std::uint16_t>& from, std::size_t i, bool keysFit) {
  Keyed k;
  Words even[3], odd[3];
  for (std::size_t c = 0; c < 3; ++c) {
    even[c] = hn::Load(wordTag, from.even[c] + i / 2);
    odd[c] = hn::Load(wordTag, from.odd[c] + i / 2);
    k.colour[c] = join(even[c], odd[c]);
  }
  if (keysFit) {  // the working values below them never sum to 65536
    const Words evens = hn::Add(hn::Add(even[0], even[1]), even[2]);
    const Words odds = hn::Add(hn::Add(odd[0], odd[1]), odd[2]);
    k.key = joinUpper(evens, odds);
    return k;
  }
  const auto limitedSum = [](const Words(&words)[3]) {
    const auto share = [](Words v) { return hn::ShiftRight<16>(hn::BitCast(i32Tag, v)); };
    const auto sum = hn::Add(hn::Add(share(words[0]), share(words[1])), share(words[2]));
    return hn::BitCast(wordTag, hn::Min(hn::Max(sum, hn::Zero(i32Tag)), hn::Set(i32Tag, 4095)));
  };
  k.key = join(limitedSum(even), limitedSum(odd));
  return k;
}

/// Puts the keys themselves, limited to 0..4095, where their sum did not fit.
inline void limitKeys(const QMXOrvaniteTable& e, const Pixels<std::uint8_t>& pixels, std::size_t n,
                      KeyedBuffer<std::uint8_t>& to) {
  for (std::size_t i = 0; i < n; ++i) {
    int key = e.keyTable[0][pixels.channel(0)[4 * i]] + e.keyTable[1][pixels.channel(1)[4 * i]] +
              e.keyTable[2][pixels.channel(2)[4 * i]];
    key = key < 0 ? 0 : key > 4095 ? 4095 : key;
    to.setKey(i, key);
  }
}
inline void limitKeys(const QMXOrvaniteTable&, const Pixels<std::uint16_t>&, std::size_t,
                      KeyedBuffer<std::uint16_t>&) {}

/// One of the orders of a pixel's samples, from red, green, blue, alpha.
template <bool alphaFirst>
HWY_INLINE void storePixel(std::uint8_t* to, std::uint32_t r, std::uint32_t g, std::uint32_t b,
                           std::uint32_t a) {
  const std::uint32_t pixel =
      alphaFirst ? a | b << 8 | g << 16 | r << 24 : r | g << 8 | b << 16 | a << 24;
  std::memcpy(to, &pixel, sizeof pixel);
}
template <bool alphaFirst>
HWY_INLINE void storePixel(std::uint16_t* to, std::uint64_t r, std::uint64_t g, std::uint64_t b,
                           std::uint64_t a) {
  const std::uint64_t pixel =
      alphaFirst ? a | b << 16 | g << 32 | r << 48 : r | g << 16 | b << 32 | a << 48;
  std::memcpy(to, &pixel, sizeof pixel);
}

/// A pixel that already lies as red, green, blue, with its alpha.
template <bool alphaFirst>
HWY_INLINE void storeComposed(std::uint8_t* to, std::uint32_t colours, std::uint32_t alpha) {
  std::uint32_t pixel = colours | alpha << 24;
  if (alphaFirst) pixel = __builtin_bswap32(pixel);
  std::memcpy(to, &pixel, sizeof pixel);
}

/// Four shorts, lowest first.
HWY_INLINE std::uint64_t loadFour(const std::uint16_t* from) {
  std::uint64_t four;
  std::memcpy(&four, from, sizeof four);
  return four;
}
/// One of them.
HWY_INLINE std::size_t shortAt(std::uint64_t four, std::size_t k) { return four >> 16 * k & 65535; }

/// Four values through a table, in place. What look-ups wait for is the processor's ways to memory:
/// hence one load and one store for four.
HWY_INLINE void lookUpFour(const std::uint16_t* table, std::uint16_t* values) {
  const std::uint64_t from = loadFour(values);
  std::uint64_t to = 0;
  for (std::size_t k = 0; k < 4; ++k) {
    to |= std::uint64_t{table[shortAt(from, k)]} << 16 * k;
  }
  std::memcpy(values, &to, sizeof to);
}

/// Output codes of working values, of whole vectors.
template <bool alphaFirst, class T, class Entry>
inline void lookUpOutput(const Entry* const (&table)[3], const std::uint16_t* r,
                         const std::uint16_t* g, const std::uint16_t* b, const std::uint16_t* a,
                         std::size_t n, T* to) {
  // Copies: the compiler cannot know that the pixels written are none of the tables' pointers.
  const Entry* const red = table[0];
  const Entry* const green = table[1];
  const Entry* const blue = table[2];
  for (std::size_t i = 0; i < n; i += 4) {
    const std::uint64_t rs = loadFour(r + i), gs = loadFour(g + i), bs = loadFour(b + i);
    const std::uint64_t as = loadFour(a + i);
    for (std::size_t k = 0; k < 4; ++k) {
      storePixel<alphaFirst>(to + 4 * (i + k), red[shortAt(rs, k)], green[shortAt(gs, k)],
                             blue[shortAt(bs, k)], static_cast<std::uint16_t>(shortAt(as, k)));
    }
  }
}

/// 8-bit pixels of pure foreground or background.
template <bool alphaFirst>
inline void lookUpComposed(const Pixels<std::uint8_t>& from, const std::uint32_t (&table)[3][256],
                           const std::uint16_t* alpha, std::size_t first, std::size_t n,
                           std::uint8_t* dst) {
  const std::uint8_t* const r = from.channel(0);
  const std::uint8_t* const g = from.channel(1);
  const std::uint8_t* const b = from.channel(2);
  for (std::size_t i = first; i < first + n; ++i) {
    storeComposed<alphaFirst>(
        dst + 4 * i, table[0][r[4 * i]] | table[1][g[4 * i]] | table[2][b[4 * i]], alpha[i]);
  }
}

/// Where red, green and blue stand in a 16-bit pixel that is taken as one number, in bits.
struct Shifts {
  unsigned r, g, b;
  explicit Shifts(bool alphaFirst)
      : r(alphaFirst ? 48 : 0), g(alphaFirst ? 32 : 16), b(alphaFirst ? 16 : 32) {}
};

/// 16-bit pixels of pure background.
template <bool alphaFirst>
inline void lookUpComposed(const Pixels<std::uint16_t>& from,
                           const std::uint16_t* const (&table)[3], const std::uint16_t* alpha,
                           std::size_t first, std::size_t n, std::uint16_t* dst) {
  const Shifts at(from.alphaFirst);
  const std::uint16_t* const red = table[0];
  const std::uint16_t* const green = table[1];
  const std::uint16_t* const blue = table[2];
  for (std::size_t i = first; i < first + n; ++i) {
    const std::uint64_t pixel = loadFour(from.at + 4 * i);
    storePixel<alphaFirst>(dst + 4 * i, red[pixel >> at.r & 65535], green[pixel >> at.g & 65535],
                           blue[pixel >> at.b & 65535], alpha[i]);
  }
}

/// Working values of 16-bit pixels, as planes.
inline void lookUpWork(const Pixels<std::uint16_t>& from, const std::int16_t* const (&table)[3],
                       std::size_t first, std::size_t n, std::uint16_t (&to)[3][blockPixels]) {
  const Shifts at(from.alphaFirst);
  const std::int16_t* const red = table[0];
  const std::int16_t* const green = table[1];
  const std::int16_t* const blue = table[2];
  for (std::size_t i = first; i < first + n; i += 4) {
    std::uint64_t r = 0, g = 0, b = 0;
    for (std::size_t k = 0; k < 4; ++k) {
      const std::uint64_t pixel = loadFour(from.at + 4 * (i + k));
      // Working values are never below 0.
      r |= static_cast<std::uint64_t>(red[pixel >> at.r & 65535]) << 16 * k;
      g |= static_cast<std::uint64_t>(green[pixel >> at.g & 65535]) << 16 * k;
      b |= static_cast<std::uint64_t>(blue[pixel >> at.b & 65535]) << 16 * k;
    }
    std::memcpy(to[0] + i, &r, sizeof r);
    std::memcpy(to[1] + i, &g, sizeof g);
    std::memcpy(to[2] + i, &b, sizeof b);
  }
}

}  // namespace

}  // namespace orvanite::ORVANITE_SIMD_TARGET
