// SPDX-License-Identifier: BSD-3-Clause
//
// The arithmetic of the integer kernels in 16-bit lanes: every product, shift and division of the
// definition, with the same result, from values that fit 16 bits.
//
// Colours are 0..16383, key quantities 0..4096 unless told otherwise; lanes are unsigned.
// tests/engine/IntegerLanesTest.cpp holds each function against the definition it replaces.
#pragma once

#include "engine/kernels/simd/Lanes.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

namespace {

using U16Tag = hn::ScalableTag<std::uint16_t>;
using I16Tag = hn::ScalableTag<std::int16_t>;
using I32Tag = hn::ScalableTag<std::int32_t>;
using U16 = hn::Vec<U16Tag>;
using U16Mask = hn::Mask<U16Tag>;

inline constexpr U16Tag u16Tag;
inline constexpr I16Tag i16Tag;
inline constexpr I32Tag i32Tag;

constexpr std::size_t maxShortLanes = 2 * maxFloatLanes;

HWY_INLINE std::size_t shortLanes() { return hn::Lanes(u16Tag); }

HWY_INLINE U16 shorts(int v) { return hn::Set(u16Tag, static_cast<std::uint16_t>(v)); }
HWY_INLINE hn::Vec<I16Tag> asSigned(U16 v) { return hn::BitCast(i16Tag, v); }
HWY_INLINE U16 asUnsigned(hn::Vec<I16Tag> v) { return hn::BitCast(u16Tag, v); }

/// a > b of values below 32768 or of signed ones.
HWY_INLINE U16Mask above(U16 a, U16 b) {
  return hn::RebindMask(u16Tag, hn::Gt(asSigned(a), asSigned(b)));
}

/// v + 1 where the mask holds.
HWY_INLINE U16 countIf(U16Mask mask, U16 v) { return hn::Sub(v, hn::VecFromMask(u16Tag, mask)); }

/// (a * b + 2^14) >> 15, signed; exact unless both are -32768.
HWY_INLINE U16 multiplyRound15(U16 a, U16 b) {
  return asUnsigned(hn::MulFixedPoint15(asSigned(a), asSigned(b)));
}

/// (a * b) >> 12 for a and b up to 4096, or b up to 16383.
HWY_INLINE U16 keyProduct(U16 a, U16 b) {
  return hn::MulHigh(hn::ShiftLeft<2>(a), hn::ShiftLeft<2>(b));
}

/// Lanes with even and with odd numbers as 32-bit lanes, and back.
struct EvenOdd {
  Words even, odd;
};
HWY_INLINE EvenOdd split(U16 v) {
  const Words w = hn::BitCast(wordTag, v);
  return {hn::And(w, hn::Set(wordTag, 0xFFFF)), hn::ShiftRight<16>(w)};
}
HWY_INLINE U16 join(Words even, Words odd) {
  return hn::OddEven(hn::BitCast(u16Tag, hn::ShiftLeft<16>(odd)), hn::BitCast(u16Tag, even));
}

HWY_INLINE Floats toFloats(Words v) { return hn::ConvertTo(floatTag, hn::BitCast(i32Tag, v)); }
HWY_INLINE Words truncated(Floats v) { return hn::BitCast(wordTag, hn::ConvertTo(i32Tag, v)); }

/// Applies a function of floats that gives 0..65535 to every lane, and truncates.
template <class Function>
HWY_INLINE U16 byFloats(U16 v, const Function& f) {
  const EvenOdd s = split(v);
  return join(truncated(f(toFloats(s.even))), truncated(f(toFloats(s.odd))));
}

/// v / max rounded once, of whole v in 0..max: the product with 1 / max, corrected by what it
/// leaves.
HWY_INLINE Floats fraction(Floats v, float max) {
#if HWY_NATIVE_FMA
  const Floats inverse = floats(1 / max);
  const Floats q = hn::Mul(v, inverse);
  return hn::MulAdd(hn::NegMulAdd(q, floats(max), v), inverse, q);
#else
  return hn::Div(v, floats(max));
#endif
}

/// What codes or working values from 0 to max are of max.
struct Light {
  Floats even, odd;
};
HWY_INLINE Light lightOf(U16 v, int max) {
  const EvenOdd s = split(v);
  const float most = static_cast<float>(max);
  return {fraction(toFloats(s.even), most), fraction(toFloats(s.odd), most)};
}

/// factor * light + 0.5, truncated; may be below 0.
HWY_INLINE EvenOdd scaled(Light light, Floats factor) {
  const auto entry = [factor](Floats v) {
    return truncated(hn::Add(hn::Mul(factor, v), floats(0.5f)));
  };
  return {entry(light.even), entry(light.odd)};
}

/// The working value of linear light.
HWY_INLINE U16 workOf(Light light) {
  const EvenOdd s = scaled(light, floats(16383.0f));
  return join(s.even, s.odd);
}

/// The working value of a linear code.
template <class T>
HWY_INLINE U16 workOfCode(U16 code) {
  if constexpr (sizeof(T) == 1) {
    // 16383 / 65535 is a quarter, less what MulHigh gives before the quarter is taken.
    const U16 v = hn::Mul(code, shorts(257));
    return hn::ShiftRight<2>(hn::Sub(hn::Add(v, shorts(1)), hn::MulHigh(v, shorts(3))));
  } else {
    return workOf(lightOf(code, 65535));
  }
}

/// The linear code of a working value: its part of 16383 times 255 or 65535, rounded.
template <class T>
HWY_INLINE U16 codeOf(U16 work) {
  if constexpr (sizeof(T) == 1) {
    // In 64ths of a code: 16321 / 16384 is 64 * 255 / 16383 but for 3 parts in ten million.
    const U16 parts = hn::MulHigh(hn::ShiftLeft<2>(work), shorts(16321));
    return hn::ShiftRight<6>(hn::Add(parts, shorts(32)));
  } else {
    const EvenOdd s = scaled(lightOf(work, 16383), floats(65535.0f));
    return join(s.even, s.odd);
  }
}

/// min(16384, k * scale + 0.5), truncated, k in 0..4095.
HWY_INLINE U16 screenAmount(U16 k, Floats scale) {
  return byFloats(k, [scale](Floats v) {
    const Floats amount = hn::Add(hn::Mul(v, scale), floats(0.5f));
    return hn::Min(amount, floats(16384.0f));
  });
}

/// The screen amount against a clean plate: min(16384, k * 4096 / p) truncated for k above 0, else
/// 0. k and p are signed, p at least 1.
HWY_INLINE U16 screenAmount(U16 k, U16 p) {
  const EvenOdd ks = split(hn::BitCast(u16Tag, hn::Max(asSigned(k), hn::Zero(i16Tag))));
  const EvenOdd ps = split(p);
  const auto quotient = [](Words n, Words d) {
    const Floats q = hn::Mul(hn::Div(toFloats(n), toFloats(d)), floats(4096.0f));
    return truncated(hn::Min(q, floats(16384.0f)));
  };
  // Rounding may have carried the quotient up to the next integer: then the remainder is negative.
  const U16 q = join(quotient(ks.even, ps.even), quotient(ks.odd, ps.odd));
  const U16 n = asUnsigned(hn::Max(asSigned(k), hn::Zero(i16Tag)));
  const U16 remainder = hn::Sub(hn::ShiftLeft<12>(n), hn::Mul(q, p));
  const U16 corrected = hn::Add(q, asUnsigned(hn::ShiftRight<15>(asSigned(remainder))));
  // From k = 4 p on it is at the ceiling, and the remainder no longer fits.
  return hn::IfThenElse(above(p, hn::ShiftRight<2>(n)), corrected, shorts(16384));
}

/// max(0, colour - ((amount * screen + 2048) >> 12)), amount 0..16384.
HWY_INLINE U16 removeScreen(U16 colour, U16 whole, U16 part8, U16 screen) {
  const U16 removed = hn::SaturatedAdd(hn::Mul(whole, screen), multiplyRound15(part8, screen));
  return hn::SaturatedSub(colour, removed);
}

/// floor(m * 4096 / 16383): the matte that holds a colour whose largest channel is m.
HWY_INLINE U16 matteOfColour(U16 m) {
  return hn::ShiftRight<2>(countIf(hn::Eq(m, shorts(16383)), m));
}

/// What dividing by one matte or colour needs.
struct Divisor {
  U16 divisor, lessOne, multiplier, reciprocal, factor;
};

/// Prepares colour * 16383 / largest where raised, colour * 4096 / matte elsewhere. The divisor is
/// the one or the other and at least 1; where not raised it is at most 4096 and at least a
/// quarter of every colour.
///
/// The divisor times 2^n is brought into 8192..16383; its reciprocal, rounded down, then has 16
/// bits, and a quotient taken with it is right or 1 too small.
HWY_INLINE Divisor prepareDivision(U16 divisor, U16Mask raised) {
  struct Half {
    Words reciprocal, factor;
  };
  const Words exponent = hn::Set(wordTag, 0x7F800000u);
  const auto half = [exponent](Words v) -> Half {
    const Words bits = hn::BitCast(wordTag, toFloats(v));
    const Words normal = hn::Or(hn::AndNot(exponent, bits), hn::Set(wordTag, 140u << 23));
    // A little below 2^29, so that rounding cannot carry a reciprocal upwards.
    const Floats r = hn::Div(floats(536870880.0f), hn::BitCast(floatTag, normal));
    const Words power = hn::Sub(hn::Set(wordTag, 268u << 23), hn::And(bits, exponent));
    return {truncated(r), truncated(hn::BitCast(floatTag, power))};  // 2^(n + 1)
  };
  const EvenOdd d = split(divisor);
  const Half even = half(d.even), odd = half(d.odd);
  const U16 r = join(even.reciprocal, odd.reciprocal);
  const U16 factor = join(even.factor, odd.factor);
  // 65532 / 65536 is 16383 / 16384.
  return {divisor, hn::Sub(divisor, shorts(1)), hn::IfThenElse(raised, shorts(16383), shorts(4096)),
          hn::IfThenElse(raised, hn::MulHigh(r, shorts(65532)), r),
          hn::IfThenElse(raised, factor, hn::ShiftRight<2>(factor))};
}

HWY_INLINE U16 divide(U16 colour, const Divisor& d) {
  const U16 q = hn::MulHigh(hn::Mul(colour, d.factor), d.reciprocal);
  const U16 remainder = hn::Sub(hn::Mul(colour, d.multiplier), hn::Mul(q, d.divisor));
  return countIf(above(remainder, d.lessOne), q);
}

/// The clip curve: IntegerPlan::clipLow, and clipSlope or clipRange.
template <bool bySlope>
HWY_INLINE U16 clipMatte(U16 matte, Floats low, Floats slopeOrRange) {
  return byFloats(matte, [low, slopeOrRange](Floats v) {
    const Floats above = hn::Sub(v, low);
    const Floats line = bySlope ? hn::Mul(above, slopeOrRange) : hn::Div(above, slopeOrRange);
    return hn::Add(hn::Max(hn::Min(line, floats(4096.0f)), hn::Zero(floatTag)), floats(0.5f));
  });
}

/// under + ((matte * (over - under) + 2048) >> 12).
HWY_INLINE U16 mix(U16 matte, U16 over, U16 under) {
  // Both factors negated: -8 * 4096 still fits, 8 * 4096 would not.
  const U16 share = hn::Sub(hn::Zero(u16Tag), hn::ShiftLeft<3>(matte));
  return hn::Add(under, multiplyRound15(share, hn::Sub(under, over)));
}

/// Matte code to key units: (4096 * code + max / 2) / max, truncated.
template <class T>
HWY_INLINE U16 matteKey(U16 code) {
  if constexpr (sizeof(T) == 1) {
    const U16 x = hn::Add(hn::ShiftLeft<4>(code), shorts(128));  // 16 * code + 127, and 1
    return hn::Add(hn::ShiftLeft<4>(code),
                   hn::ShiftRight<8>(hn::Add(x, hn::ShiftRight<8>(hn::Sub(x, shorts(1))))));
  } else {
    return hn::Add(hn::ShiftRight<4>(code), hn::And(hn::ShiftRight<3>(code), shorts(1)));
  }
}

/// matte + (4096 - matte) * alpha / max, truncated; alpha a background code.
template <class T>
HWY_INLINE U16 mergeAlpha(U16 matte, U16 alpha) {
  const U16 rest = hn::Sub(shorts(4096), matte);
  if constexpr (sizeof(T) == 1) {
    // alpha * 64.25 is at most 1.25 below alpha * 16384 / 255.
    const U16 scaled = hn::MulHigh(hn::ShiftLeft<8>(alpha), shorts(0x4040));
    const U16 q = hn::MulHigh(hn::ShiftLeft<2>(rest), scaled);
    const U16 remainder = hn::Sub(hn::Mul(rest, alpha), hn::Mul(q, shorts(255)));
    return hn::Add(matte, countIf(above(remainder, shorts(254)), q));
  } else {
    const U16 q = hn::MulHigh(rest, alpha);
    const U16 low = hn::Mul(rest, alpha);  // the remainder by 65535 is low + q
    return hn::Add(matte, countIf(hn::Eq(hn::Max(low, hn::Not(q)), low), q));
  }
}

/// A matte as a destination code: (max * matte + 2048) >> 12.
template <class T>
HWY_INLINE U16 matteCode(U16 matte) {
  if constexpr (sizeof(T) == 1) return multiplyRound15(matte, shorts(8 * 255));
  // 65535 * matte is 65536 * matte less the matte, which costs one code from the rounding on.
  return hn::Add(hn::ShiftLeft<4>(matte), hn::VecFromMask(u16Tag, above(matte, shorts(2048))));
}

/// The status view's brightness: a quarter of the codes and (key * the rest) >> 12.
template <class T>
HWY_INLINE U16 statusCode(U16 key) {
  if constexpr (sizeof(T) == 1) return hn::Add(shorts(63), keyProduct(key, shorts(192)));
  return hn::Add(shorts(16383), hn::Mul(key, shorts(12)));  // 49152 is 12 * 4096
}

}  // namespace

}  // namespace orvanite::ORVANITE_SIMD_TARGET
