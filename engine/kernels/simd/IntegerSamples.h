// SPDX-License-Identifier: BSD-3-Clause
//
// One vector of pixels as four planes: brought in, put back, and what the tables say of linear
// pictures, computed where the tables are straight lines.
#pragma once

#include "engine/kernels/simd/IntegerTile.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

namespace {

/// Every sample's plane of one vector of pixels.
struct Samples {
  U16 r, g, b, a;
};

HWY_INLINE Samples loadSamples(const std::uint8_t* from, bool alphaFirst) {
  const std::uint16_t* const pairs = reinterpret_cast<const std::uint16_t*>(from);
  U16 low, high;
  hn::LoadInterleaved2(u16Tag, pairs, low, high);
  const U16 byte = shorts(255);
  const U16 s0 = hn::And(low, byte), s1 = hn::ShiftRight<8>(low);
  const U16 s2 = hn::And(high, byte), s3 = hn::ShiftRight<8>(high);
  return alphaFirst ? Samples{s3, s2, s1, s0} : Samples{s0, s1, s2, s3};
}
HWY_INLINE Samples loadSamples(const std::uint16_t* from, bool alphaFirst) {
  U16 s0, s1, s2, s3;
  hn::LoadInterleaved4(u16Tag, from, s0, s1, s2, s3);
  return alphaFirst ? Samples{s3, s2, s1, s0} : Samples{s0, s1, s2, s3};
}

template <class T>
HWY_INLINE Samples loadSamples(const Pixels<T>& from, std::size_t i) {
  return loadSamples(from.at + 4 * i, from.alphaFirst);
}

HWY_INLINE void storeSamples(const Samples& s, bool alphaFirst, std::uint8_t* to) {
  const U16 low =
      alphaFirst ? hn::Or(s.a, hn::ShiftLeft<8>(s.b)) : hn::Or(s.r, hn::ShiftLeft<8>(s.g));
  const U16 high =
      alphaFirst ? hn::Or(s.g, hn::ShiftLeft<8>(s.r)) : hn::Or(s.b, hn::ShiftLeft<8>(s.a));
  hn::StoreInterleaved2(low, high, u16Tag, reinterpret_cast<std::uint16_t*>(to));
}
HWY_INLINE void storeSamples(const Samples& s, bool alphaFirst, std::uint16_t* to) {
  if (alphaFirst) {
    hn::StoreInterleaved4(s.a, s.b, s.g, s.r, u16Tag, to);
  } else {
    hn::StoreInterleaved4(s.r, s.g, s.b, s.a, u16Tag, to);
  }
}

/// Whether the alpha of a vector's pixels is full throughout.
template <class T>
HWY_INLINE bool areOpaque(const Pixels<T>& from, std::size_t i) {
  using Pixel = std::conditional_t<sizeof(T) == 1, std::uint32_t, std::uint64_t>;
  constexpr hn::ScalableTag<Pixel> tag;
  constexpr Pixel full = static_cast<T>(~T{0});
  const auto colours = hn::Set(tag, ~(from.alphaFirst ? full : full << 24 * sizeof(T)));
  const Pixel* const pixels = reinterpret_cast<const Pixel*>(from.at + 4 * i);
  auto all = hn::LoadU(tag, pixels);
  for (std::size_t k = hn::Lanes(tag); k < shortLanes(); k += hn::Lanes(tag)) {
    all = hn::And(all, hn::LoadU(tag, pixels + k));
  }
  return hn::AllTrue(tag, hn::Eq(hn::Or(all, colours), hn::Set(tag, ~Pixel{0})));
}

/// One vector of pixels: working values, and the sum of the key contributions (signed).
struct Keyed {
  U16 colour[3];
  U16 key;
};

/// Working values and key contributions of a block, as the look-ups leave them.
template <class T>
struct KeyedBuffer;

/// What the plate's tables hold of linear pictures: their key contributions are factor * light.
template <class T>
HWY_INLINE Keyed keyedLine(const Samples& s, const Floats (&factor)[3]) {
  constexpr int max = static_cast<T>(~T{0});
  Keyed k;
  EvenOdd sum = {hn::Zero(wordTag), hn::Zero(wordTag)};
  const U16 codes[3] = {s.r, s.g, s.b};
  for (std::size_t c = 0; c < 3; ++c) {
    k.colour[c] = workOfCode<T>(codes[c]);
    const EvenOdd share = scaled(lightOf<max>(codes[c]), factor[c]);
    sum = {hn::Add(sum.even, share.even), hn::Add(sum.odd, share.odd)};
  }
  k.key = join(sum.even, sum.odd);
  return k;
}

/// The working values of a linear picture.
template <class T>
HWY_INLINE void workLine(const Samples& s, U16 (&work)[3]) {
  work[0] = workOfCode<T>(s.r);
  work[1] = workOfCode<T>(s.g);
  work[2] = workOfCode<T>(s.b);
}

}  // namespace

}  // namespace orvanite::ORVANITE_SIMD_TARGET
