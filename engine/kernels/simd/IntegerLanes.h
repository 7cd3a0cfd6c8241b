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
/// The same of their upper halves.
HWY_INLINE U16 joinUpper(Words even, Words odd) {
  return hn::OddEven(hn::BitCast(u16Tag, odd), hn::BitCast(u16Tag, hn::ShiftRight<16>(even)));
}

HWY_INLINE Floats toFloats(Words v) { return hn::ConvertTo(floatTag, hn::BitCast(i32Tag, v)); }

/// Floats that fit 32 bits, truncated. Highway mends those that do not, with three instructions
/// more.
HWY_INLINE Words truncated(Floats v) {
#if HWY_ARCH_X86 && HWY_MAX_BYTES == 64
  return Words{_mm512_cvttps_epi32(v.raw)};
#elif HWY_ARCH_X86 && HWY_MAX_BYTES == 32
  return Words{_mm256_cvttps_epi32(v.raw)};
#elif HWY_ARCH_X86
  return Words{_mm_cvttps_epi32(v.raw)};
#else
  return hn::BitCast(wordTag, hn::ConvertTo(i32Tag, v));
#endif
}

/// Applies a function of floats that gives 0..2^31 to every lane, and truncates; from 32767 on it
/// is 32767.
template <class Function>
HWY_INLINE U16 byFloats(U16 v, const Function& f) {
  const auto half = [&f](U16 words) {
    return hn::BitCast(i32Tag, truncated(f(toFloats(hn::BitCast(wordTag, words)))));
  };
  const auto low = half(hn::InterleaveLower(u16Tag, v, hn::Zero(u16Tag)));
  const auto high = half(hn::InterleaveUpper(u16Tag, v, hn::Zero(u16Tag)));
  return asUnsigned(hn::ReorderDemote2To(i16Tag, low, high));  // the order that they came in
}

/// v / max rounded once, of whole v in 0..max, max one less than a power of 2: what v is of that
/// power, exactly, and the small rest. No such quotient lies so near the middle of two floats that
/// the rest's own rounding could matter.
template <int max>
HWY_INLINE Floats fraction(Floats v) {
  constexpr double power = max + 1;
  const Floats rest = hn::Mul(v, floats(static_cast<float>(1.0 / max - 1 / power)));
  return hn::MulAdd(v, floats(static_cast<float>(1 / power)), rest);
}

/// What codes or working values from 0 to max are of max.
struct Light {
  Floats even, odd;
};
template <int max>
HWY_INLINE Light lightOf(U16 v) {
  const EvenOdd s = split(v);
  return {fraction<max>(toFloats(s.even)), fraction<max>(toFloats(s.odd))};
}

/// factor * light + 0.5, truncated; may be below 0.
HWY_INLINE EvenOdd scaled(Light light, Floats factor) {
  const auto entry = [factor](Floats v) {
    return truncated(hn::Add(hn::Mul(factor, v), floats(0.5f)));
  };
  return {entry(light.even), entry(light.odd)};
}

/// The working value of a linear code.
template <class T>
HWY_INLINE U16 workOfCode(U16 code) {
  if constexpr (sizeof(T) == 1) {
    // 16383 / 65535 is a quarter, less what MulHigh gives before the quarter is taken.
    const U16 v = hn::Mul(code, shorts(257));
    return hn::ShiftRight<2>(hn::Sub(hn::Add(v, shorts(1)), hn::MulHigh(v, shorts(3))));
  } else {
    // The same; where 1 and where 2 more are taken, single precision decides: from 21872 and 43743.
    const U16 more = hn::ShiftRight<14>(hn::MulHigh(code, shorts(49094)));
    return hn::ShiftRight<2>(hn::Sub(hn::Add(code, shorts(1)), more));
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
    const EvenOdd s = scaled(lightOf<16383>(work), floats(65535.0f));
    return join(s.even, s.odd);
  }
}

/// min(16384, k * scale + 0.5), truncated, k in 0..4095.
HWY_INLINE U16 screenAmount(U16 k, Floats scale) {
  const U16 amount =
      byFloats(k, [scale](Floats v) { return hn::Add(hn::Mul(v, scale), floats(0.5f)); });
  return hn::Min(amount, shorts(16384));
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
  U16 divisor, lessOne, multiplier, whole, fraction;
};

/// Prepares colour * 16383 / largest where raised, colour * 4096 / matte elsewhere. The divisor is
/// the one or the other and at least 1; where not raised it is at most 4096 and at least a
/// quarter of every colour.
///
/// Multiplier and divisor make a factor with 16 bits of fraction, a little too small: by a
/// millionth at most, and by what is cut off. A quotient taken with it is right or 1 too small.
HWY_INLINE Divisor prepareDivision(U16 divisor, U16Mask raised) {
  const U16 lessOne = hn::IfThenElse(raised, shorts(16382), shorts(4095));
  const U16 parts = shorts(0xFF00);  // of the one that is less, all but 1 / 256
  const U16 even = hn::BitCast(u16Tag, hn::ShiftLeft<16>(hn::BitCast(wordTag, lessOne)));
  const EvenOdd d = split(divisor);
  const auto factor = [parts](U16 multipliers, Words divisors) {
    const Words multiplier = hn::BitCast(wordTag, hn::OddEven(multipliers, parts));
    return truncated(hn::Div(toFloats(multiplier), toFloats(divisors)));
  };
  const Words evens = factor(even, d.even), odds = factor(lessOne, d.odd);
  return {divisor, hn::Sub(divisor, shorts(1)), hn::Add(lessOne, shorts(1)), joinUpper(evens, odds),
          join(evens, odds)};
}

HWY_INLINE U16 divide(U16 colour, const Divisor& d) {
  const U16 q = hn::Add(hn::Mul(colour, d.whole), hn::MulHigh(colour, d.fraction));
  const U16 remainder = hn::Sub(hn::Mul(colour, d.multiplier), hn::Mul(q, d.divisor));
  return countIf(above(remainder, d.lessOne), q);
}

/// The clip curve: IntegerPlan::clipLow, and clipSlope or clipRange.
template <bool bySlope>
HWY_INLINE U16 clipMatte(U16 matte, U16 low, Floats slopeOrRange) {
  const U16 line = byFloats(hn::SaturatedSub(matte, low), [slopeOrRange](Floats above) {
    return hn::Add(bySlope ? hn::Mul(above, slopeOrRange) : hn::Div(above, slopeOrRange),
                   floats(0.5f));
  });
  return hn::Min(line, shorts(4096));
}

/// under + ((matte * (over - under) + 2048) >> 12).
HWY_INLINE U16 mix(U16 matte, U16 over, U16 under) {
  // Both factors negated: -8 * 4096 still fits, 8 * 4096 would not.
  const U16 share = hn::Sub(hn::Zero(u16Tag), hn::ShiftLeft<3>(matte));
  return hn::Add(under, multiplyRound15(share, hn::Sub(under, over)));
}

/// A saturation matrix over three vectors, in 32-bit lanes.
HWY_INLINE void saturate(const int (&matrix)[3][3], U16 (&v)[3]) {
  const EvenOdd in[3] = {split(v[0]), split(v[1]), split(v[2])};
  const auto row = [](const int(&m)[3], Words a, Words b, Words c) {
    const auto product = [](int k, Words x) {
      return hn::Mul(hn::Set(i32Tag, k), hn::BitCast(i32Tag, x));
    };
    const auto sum = hn::Add(hn::Add(product(m[0], a), product(m[1], b)),
                             hn::Add(product(m[2], c), hn::Set(i32Tag, 2048)));
    const auto limited =
        hn::Min(hn::Max(hn::ShiftRight<12>(sum), hn::Zero(i32Tag)), hn::Set(i32Tag, 16383));
    return hn::BitCast(wordTag, limited);
  };
  for (std::size_t c = 0; c < 3; ++c) {
    v[c] = join(row(matrix[c], in[0].even, in[1].even, in[2].even),
                row(matrix[c], in[0].odd, in[1].odd, in[2].odd));
  }
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
