// SPDX-License-Identifier: BSD-3-Clause
//
// Vectors of floats to and from half patterns, rounding to nearest even like the processor's own
// instruction and like Imath. Where the target has no such instruction, by integers.
#pragma once

#include "engine/kernels/simd/Lanes.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

namespace {

using PatternTag = hn::Rebind<std::uint16_t, FloatTag>;
inline constexpr PatternTag patternTag;

/// The half patterns, sign dropped, of values that are not below 0. A NaN gives a NaN.
HWY_INLINE hn::Vec<PatternTag> halfPatterns(Floats v) {
#if defined(__F16C__)
  const hn::Rebind<hwy::float16_t, FloatTag> halfTag;
  return hn::And(hn::BitCast(patternTag, hn::DemoteTo(halfTag, v)), hn::Set(patternTag, 0x7FFF));
#else
  const Words bits = hn::And(hn::BitCast(wordTag, v), hn::Set(wordTag, 0x7FFFFFFF));
  // Normal: move the exponent's bias, round away 13 bits, ties to even.
  const Words odd = hn::And(hn::ShiftRight<13>(bits), hn::Set(wordTag, 1));
  const Words normal =
      hn::ShiftRight<13>(hn::Add(hn::Add(bits, odd), hn::Set(wordTag, 0x0FFFU - 0x38000000U)));
  // Subnormal: adding 0.5 has the adder round at the half's last place.
  const Floats shifted = hn::Add(hn::BitCast(floatTag, bits), floats(0.5f));
  const Words subnormal = hn::Sub(hn::BitCast(wordTag, shifted), hn::Set(wordTag, 0x3F000000));
  const hn::RebindToSigned<WordTag> signedTag;
  const auto magnitude = hn::BitCast(signedTag, bits);
  const auto small = hn::Lt(magnitude, hn::Set(signedTag, 0x38800000));
  const auto large = hn::Gt(magnitude, hn::Set(signedTag, 0x477FEFFF));
  const auto nan = hn::Gt(magnitude, hn::Set(signedTag, 0x7F800000));
  auto result =
      hn::IfThenElse(small, hn::BitCast(signedTag, subnormal), hn::BitCast(signedTag, normal));
  result = hn::IfThenElse(large, hn::Set(signedTag, 0x7C00), result);
  result = hn::IfThenElse(nan, hn::Set(signedTag, 0x7E00), result);
  return hn::DemoteTo(patternTag, result);
#endif
}

/// The half patterns of any values; a zero of either sign gives pattern 0.
HWY_INLINE hn::Vec<PatternTag> signedHalfPatterns(Floats v) {
  const auto sign = hn::And(hn::BitCast(wordTag, v), hn::Set(wordTag, 0x80000000));
  const hn::RebindToSigned<WordTag> signedTag;
  const auto signs = hn::DemoteTo(patternTag, hn::BitCast(signedTag, hn::ShiftRight<16>(sign)));
  const auto patterns = hn::Or(halfPatterns(hn::Abs(v)), signs);
  const auto zero = hn::Eq(v, hn::Zero(floatTag));
  const auto kept = hn::BitCast(signedTag, hn::VecFromMask(floatTag, hn::Not(zero)));
  const hn::Rebind<std::int16_t, FloatTag> shortTag;
  return hn::And(patterns, hn::BitCast(patternTag, hn::DemoteTo(shortTag, kept)));
}

/// The values of half patterns.
HWY_INLINE Floats fromHalf(hn::Vec<PatternTag> patterns) {
#if defined(__F16C__)
  const hn::Rebind<hwy::float16_t, FloatTag> halfTag;
  return hn::PromoteTo(floatTag, hn::BitCast(halfTag, patterns));
#else
  const Words bits = hn::PromoteTo(wordTag, patterns);
  const Words sign = hn::ShiftLeft<16>(hn::And(bits, hn::Set(wordTag, 0x8000)));
  const Words magnitude = hn::ShiftLeft<13>(hn::And(bits, hn::Set(wordTag, 0x7FFF)));
  // Scaling by 2^112 moves the bias, of subnormals too.
  const Floats finite = hn::Mul(hn::BitCast(floatTag, magnitude), floats(0x1p112f));
  const Words endless = hn::Or(magnitude, hn::Set(wordTag, 0x7F800000));
  const hn::RebindToSigned<WordTag> signedTag;
  const auto isEndless =
      hn::Gt(hn::BitCast(signedTag, magnitude), hn::Set(signedTag, (0x7C00 << 13) - 1));
  const auto value =
      hn::IfThenElse(isEndless, hn::BitCast(signedTag, endless), hn::BitCast(signedTag, finite));
  return hn::BitCast(floatTag, hn::Or(hn::BitCast(wordTag, value), sign));
#endif
}

/// Values rounded to halves.
HWY_INLINE Floats roundedToHalf(Floats v) {
#if defined(__F16C__)
  const hn::Rebind<hwy::float16_t, FloatTag> halfTag;
  return hn::PromoteTo(floatTag, hn::DemoteTo(halfTag, v));
#else
  return fromHalf(signedHalfPatterns(v));
#endif
}

}  // namespace

}  // namespace orvanite::ORVANITE_SIMD_TARGET
