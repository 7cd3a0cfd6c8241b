// SPDX-License-Identifier: BSD-3-Clause
//
// The encodings and the grading formula on packs of float vectors: exactly the bits of
// colour/Encoding.h for every float.
//
// Each is a small class: what depends on parameters alone is done when it is made. Called with one
// float, it is the definition itself.
#pragma once

#include "engine/colour/Encoding.h"
#include "engine/colour/Power.h"
#include "engine/kernels/simd/Powers.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

namespace {

constexpr double log2Of10 = 0x1.a934f0979a371p+1;
constexpr double log10Of2 = 0x1.34413509f79ffp-2;

struct Identity {
  template <std::size_t n>
  HWY_INLINE FloatPack<n> operator()(const FloatPack<n>& in) const {
    FloatPack<n> out;  // vector by vector: a copy of the whole goes through memory
    for (std::size_t i = 0; i < n; ++i) out.v[i] = in.v[i];
    return out;
  }
};

struct LogToLinear {
  float operator()(float v) const { return orvanite::toLinear(v, logSpace); }

  template <std::size_t n>
  HWY_INLINE FloatPack<n> operator()(const FloatPack<n>& in) const {
    FloatPack<n> exponent;
    for (std::size_t i = 0; i < n; ++i) {
      exponent.v[i] = hn::Div(hn::Sub(in.v[i], floats(1)), floats(logScale));
    }
    Guess<n> power = roundSafely(exp2Of(withinReach(scaled(promote(exponent), log2Of10))));
    for (std::size_t i = 0; i < n; ++i) {
      const FloatMask number = hn::Eq(in.v[i], in.v[i]);
      power.value.v[i] = hn::IfThenElse(number, power.value.v[i], exponent.v[i]);
      power.doubtful.v[i] = hn::And(power.doubtful.v[i], number);
    }
    return settle(*this, in, power);
  }
};

struct LinearToLog {
  float operator()(float v) const { return orvanite::fromLinear(v, logSpace); }

  template <std::size_t n>
  HWY_INLINE FloatPack<n> operator()(const FloatPack<n>& in) const {
    MaskPack<n> positive;
    const FloatPack<n> base = positives(in, positive);
    Guess<n> result = roundSafely(scaled(log2Of(promote(base)), log10Of2));
    for (std::size_t i = 0; i < n; ++i) {
      // Infinities and NaNs pass as they are; what is not above 0 becomes 0.
      const Floats logarithm = hn::IfThenElse(positive.v[i], result.value.v[i], in.v[i]);
      const Floats coded = fused(floats(logScale), logarithm, floats(1));
      result.value.v[i] = hn::IfThenZeroElse(hn::Le(in.v[i], hn::Zero(floatTag)), coded);
    }
    return settle(*this, in, result);
  }
};

/// (T rounded)^q from T = 2^y: with T rounded to T (1 + d), T^q (1 + q d) up to d^2 < 2^-48. So
/// one logarithm serves two powers in a row.
template <std::size_t n>
HWY_INLINE DoublePack<n> secondPower(const DoublePack<n>& y, const DoublePack<n>& t,
                                     const DoublePack<n>& rounded, float exponent) {
  const double q = static_cast<double>(exponent);
  DoublePack<n> d;
  for (std::size_t i = 0; i < 2 * n; ++i) {
    d.v[i] = hn::Div(hn::Sub(rounded.v[i], t.v[i]), t.v[i]);
  }
  DoublePack<n> power = exp2Of(withinReach(scaled(y, q)));
  for (std::size_t i = 0; i < 2 * n; ++i) {
    power.v[i] = hn::MulAdd(power.v[i], hn::Mul(d.v[i], doubles(q)), power.v[i]);
  }
  return power;
}

struct VideoToLinear {
  float operator()(float v) const { return orvanite::toLinear(v, videoSpace); }

  template <std::size_t n>
  HWY_INLINE FloatPack<n> operator()(const FloatPack<n>& in) const {
    FloatPack<n> base, exponent;
    MaskPack<n> toe, positive;
    for (std::size_t i = 0; i < n; ++i) {
      const Floats w = hn::IfThenZeroElse(hn::Lt(in.v[i], hn::Zero(floatTag)), in.v[i]);
      toe.v[i] = hn::Le(w, floats(videoKneeEncoded));
      base.v[i] = hn::IfThenElse(toe.v[i], hn::Div(w, floats(videoSlope)),
                                 hn::Div(hn::Add(w, floats(videoOffset)), floats(videoScale)));
      exponent.v[i] = hn::IfThenElse(toe.v[i], floats(1), floats(videoDecodeExponent));
    }
    DoublePack<n> y = log2Of(promote(positives(base, positive)));
    const DoublePack<n> p = promote(exponent);
    for (std::size_t i = 0; i < 2 * n; ++i) y.v[i] = hn::Mul(y.v[i], p.v[i]);
    const DoublePack<n> t = exp2Of(withinReach(y));
    Guess<n> first = roundSafely(t);
    for (std::size_t i = 0; i < n; ++i) {
      first.value.v[i] = hn::IfThenElse(toe.v[i], base.v[i], first.value.v[i]);
    }
    Guess<n> result = roundSafely(secondPower(y, t, promote(first.value), videoDecodeTone));
    for (std::size_t i = 0; i < n; ++i) {
      // 0 stays 0; infinities and NaNs are what base is.
      const Floats special = hn::IfThenZeroElse(hn::Eq(base.v[i], hn::Zero(floatTag)), base.v[i]);
      result.value.v[i] = hn::IfThenElse(positive.v[i], result.value.v[i], special);
      const FloatMask either =
          hn::Or(hn::AndNot(toe.v[i], first.doubtful.v[i]), result.doubtful.v[i]);
      result.doubtful.v[i] = hn::And(either, positive.v[i]);
    }
    return settle(*this, in, result);
  }
};

struct LinearToVideo {
  float operator()(float v) const { return orvanite::fromLinear(v, videoSpace); }

  template <std::size_t n>
  HWY_INLINE FloatPack<n> operator()(const FloatPack<n>& in) const {
    MaskPack<n> positive;
    const FloatPack<n> base = positives(in, positive);
    const DoublePack<n> y = scaled(log2Of(promote(base)), static_cast<double>(videoEncodeTone));
    const DoublePack<n> t = exp2Of(y);
    const Guess<n> first = roundSafely(t);
    Guess<n> result = roundSafely(secondPower(y, t, promote(first.value), videoEncodeExponent));
    for (std::size_t i = 0; i < n; ++i) {
      const FloatMask toe = hn::Lt(first.value.v[i], floats(videoKneeLinear));
      const Floats line = hn::Mul(floats(videoSlope), first.value.v[i]);
      // What is not above 0 counts as 0; infinities and NaNs go through the curve as they are.
      const Floats power = hn::IfThenElse(positive.v[i], result.value.v[i], in.v[i]);
      const Floats curve = fused(floats(videoScale), power, floats(-videoOffset));
      const Floats value = hn::IfThenElse(hn::And(toe, positive.v[i]), line, curve);
      result.value.v[i] = hn::IfThenZeroElse(hn::Le(in.v[i], hn::Zero(floatTag)), value);
      const FloatMask either = hn::Or(first.doubtful.v[i], hn::AndNot(toe, result.doubtful.v[i]));
      result.doubtful.v[i] = hn::And(either, positive.v[i]);
    }
    return settle(*this, in, result);
  }
};

/// v raised to a fixed exponent.
class PowerOf {
 public:
  explicit PowerOf(float exponent)
      : exponent_(exponent),
        ofZero_(power(0.0f, exponent)),
        ofNegative_(power(-1.5f, exponent)),
        usual_(exponent > 0 && exponent <= largestExponent),
        // An integer exponent makes sense of negative values and keeps or drops the sign of 0.
        integer_(usual_ && exponent == static_cast<float>(static_cast<int>(exponent))) {}

  float operator()(float v) const { return power(v, exponent_); }

  template <std::size_t n>
  HWY_INLINE FloatPack<n> operator()(const FloatPack<n>& in) const {
    FloatPack<n> out = in;
    if (exponent_ == 1) {
      for (std::size_t i = 0; i < n; ++i) out.v[i] = hn::Mul(in.v[i], floats(1));  // quiets NaNs
      return out;
    }
    if (HWY_UNLIKELY(!usual_)) {
      for (std::size_t i = 0; i < n; ++i) {
        out.v[i] = askDefinition(*this, in.v[i], in.v[i], hn::Eq(floats(1), floats(1)));
      }
      return out;
    }
    MaskPack<n> positive;
    const FloatPack<n> base = positives(in, positive);
    Guess<n> result = roundSafely(
        exp2Of(withinReach(scaled(log2Of(promote(base)), static_cast<double>(exponent_)))));
    const Floats zero = hn::Zero(floatTag);
    for (std::size_t i = 0; i < n; ++i) {
      const Floats v = in.v[i];
      Floats value = hn::IfThenElse(positive.v[i], result.value.v[i], hn::Add(v, v));
      value = hn::IfThenElse(hn::Lt(v, zero), floats(ofNegative_), value);
      value = hn::IfThenElse(hn::Eq(v, zero), floats(ofZero_), value);
      result.value.v[i] = value;
      // Of the negative values -infinity alone has a power, unless the exponent is an integer.
      const Floats asked = integer_ ? hn::Xor(zero, floats(-0.0f)) : floats(-largestFloat);
      const FloatMask special =
          hn::And(hn::Not(positive.v[i]), hn::Or(hn::Lt(v, asked), integerZero(v)));
      result.doubtful.v[i] = hn::Or(special, hn::And(result.doubtful.v[i], positive.v[i]));
    }
    return settle(*this, in, result);
  }

 private:
  /// Zeros whose sign matters.
  HWY_INLINE FloatMask integerZero(Floats v) const {
    return hn::Eq(v, integer_ ? hn::Zero(floatTag) : floats(1));
  }

  float exponent_, ofZero_, ofNegative_;
  bool usual_, integer_;
};

class Regrade {
 public:
  Regrade(float exposure, float gamma, float offset)
      : power_(1.0f / gamma), exposure_(exposure), offset_(offset) {}

  template <std::size_t n>
  HWY_INLINE FloatPack<n> operator()(const FloatPack<n>& in) const {
    FloatPack<n> out = power_(in);
    for (std::size_t i = 0; i < n; ++i) {
      out.v[i] = fused(floats(exposure_), out.v[i], floats(offset_));
    }
    return out;
  }

 private:
  PowerOf power_;
  float exposure_, offset_;
};

}  // namespace

}  // namespace orvanite::ORVANITE_SIMD_TARGET
