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
    exponentOf(in, exponent);
    Guess<n> quick = roundQuickly(exp2Of(scaled(promote(exponent), log2Of10)));
    for (std::size_t i = 0; i < n; ++i) {
      // 10^37 and its reciprocal are normal floats.
      const FloatMask usual = hn::Le(hn::Abs(exponent.v[i]), floats(37));
      quick.doubtful.v[i] = hn::Or(quick.doubtful.v[i], hn::Not(usual));
    }
    return quickOrCareful(*this, in, quick);
  }

  template <std::size_t n>
  HWY_INLINE FloatPack<n> careful(const FloatPack<n>& in) const {
    FloatPack<n> exponent;
    exponentOf(in, exponent);
    Guess<n> power = roundSafely(exp2Of(withinReach(scaled(promote(exponent), log2Of10))));
    for (std::size_t i = 0; i < n; ++i) {
      const FloatMask number = hn::Eq(in.v[i], in.v[i]);
      power.value.v[i] = hn::IfThenElse(number, power.value.v[i], exponent.v[i]);
      power.doubtful.v[i] = hn::And(power.doubtful.v[i], number);
    }
    return settle(*this, in, power);
  }

 private:
  template <std::size_t n>
  static HWY_INLINE void exponentOf(const FloatPack<n>& in, FloatPack<n>& exponent) {
    for (std::size_t i = 0; i < n; ++i) {
      exponent.v[i] = hn::Div(hn::Sub(in.v[i], floats(1)), floats(logScale));
    }
  }
};

struct LinearToLog {
  float operator()(float v) const { return orvanite::fromLinear(v, logSpace); }

  template <std::size_t n>
  HWY_INLINE FloatPack<n> operator()(const FloatPack<n>& in) const {
    MaskPack<n> positive;
    FloatPack<n> base;
    for (std::size_t i = 0; i < n; ++i) {
      positive.v[i] = hn::Gt(in.v[i], hn::Zero(floatTag));
      base.v[i] = hn::IfThenElse(positive.v[i], in.v[i], floats(1));
    }
    Guess<n> quick = roundQuickly(scaled(log2Of(promote(base)), log10Of2));
    for (std::size_t i = 0; i < n; ++i) {
      const Floats coded = fused(floats(logScale), quick.value.v[i], floats(1));
      quick.value.v[i] = hn::IfThenElseZero(positive.v[i], coded);
      const FloatMask usual = hn::Le(in.v[i], floats(largestFloat));
      quick.doubtful.v[i] = hn::Or(quick.doubtful.v[i], hn::Not(usual));
    }
    return quickOrCareful(*this, in, quick);
  }

  template <std::size_t n>
  HWY_INLINE FloatPack<n> careful(const FloatPack<n>& in) const {
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

/// The same of estimates that are normal floats: single precision is plenty for d.
template <std::size_t n>
HWY_INLINE DoublePack<n> quickSecondPower(const DoublePack<n>& y, const DoublePack<n>& t,
                                          const FloatPack<n>& rounded, float exponent) {
  DoublePack<n> error = promote(rounded);
  for (std::size_t i = 0; i < 2 * n; ++i) error.v[i] = hn::Sub(error.v[i], t.v[i]);
  FloatPack<n> qd = demote(error);
  for (std::size_t i = 0; i < n; ++i) {
    qd.v[i] = hn::Mul(floats(exponent), hn::Div(qd.v[i], rounded.v[i]));
  }
  const DoublePack<n> relative = promote(qd);
  DoublePack<n> power = exp2Of(scaled(y, static_cast<double>(exponent)));
  for (std::size_t i = 0; i < 2 * n; ++i) {
    power.v[i] = hn::MulAdd(power.v[i], relative.v[i], power.v[i]);
  }
  return power;
}

struct VideoToLinear {
  float operator()(float v) const { return orvanite::toLinear(v, videoSpace); }

  template <std::size_t n>
  HWY_INLINE FloatPack<n> operator()(const FloatPack<n>& in) const {
    FloatPack<n> base, exponent;
    MaskPack<n> toe, positive;
    knee(in, base, exponent, toe);
    DoublePack<n> y = log2Of(promote(positives(base, positive)));
    const DoublePack<n> p = promote(exponent);
    for (std::size_t i = 0; i < 2 * n; ++i) y.v[i] = hn::Mul(y.v[i], p.v[i]);
    const DoublePack<n> t = exp2Of(y);
    Guess<n> first = roundQuickly(t);
    for (std::size_t i = 0; i < n; ++i) {
      first.value.v[i] = hn::IfThenElse(toe.v[i], base.v[i], first.value.v[i]);
    }
    Guess<n> quick = roundQuickly(quickSecondPower(y, t, first.value, videoDecodeTone));
    for (std::size_t i = 0; i < n; ++i) {
      quick.value.v[i] = hn::IfThenElseZero(positive.v[i], quick.value.v[i]);
      // Of what is at most 2^50 both powers are normal floats, or the base of the toe.
      const FloatMask unusual = hn::Not(hn::Le(in.v[i], floats(0x1p50f)));
      const FloatMask either =
          hn::Or(hn::AndNot(toe.v[i], first.doubtful.v[i]), quick.doubtful.v[i]);
      quick.doubtful.v[i] = hn::Or(unusual, hn::And(either, positive.v[i]));
    }
    return quickOrCareful(*this, in, quick);
  }

  template <std::size_t n>
  HWY_INLINE FloatPack<n> careful(const FloatPack<n>& in) const {
    FloatPack<n> base, exponent;
    MaskPack<n> toe, positive;
    knee(in, base, exponent, toe);
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

 private:
  /// What the curve raises, and to which power.
  template <std::size_t n>
  static HWY_INLINE void knee(const FloatPack<n>& in, FloatPack<n>& base, FloatPack<n>& exponent,
                              MaskPack<n>& toe) {
    for (std::size_t i = 0; i < n; ++i) {
      const Floats w = hn::IfThenZeroElse(hn::Lt(in.v[i], hn::Zero(floatTag)), in.v[i]);
      toe.v[i] = hn::Le(w, floats(videoKneeEncoded));
      base.v[i] = hn::IfThenElse(toe.v[i], hn::Div(w, floats(videoSlope)),
                                 hn::Div(hn::Add(w, floats(videoOffset)), floats(videoScale)));
      exponent.v[i] = hn::IfThenElse(toe.v[i], floats(1), floats(videoDecodeExponent));
    }
  }
};

struct LinearToVideo {
  float operator()(float v) const { return orvanite::fromLinear(v, videoSpace); }

  template <std::size_t n>
  HWY_INLINE FloatPack<n> operator()(const FloatPack<n>& in) const {
    // The powers of these are normal floats; what is not above 0 is 0 in the end.
    constexpr float least = 0x1p-75f, most = 0x1p75f;
    FloatPack<n> base;
    for (std::size_t i = 0; i < n; ++i) base.v[i] = hn::Max(in.v[i], floats(least));
    const DoublePack<n> y = scaled(log2Of(promote(base)), static_cast<double>(videoEncodeTone));
    const DoublePack<n> t = exp2Of(y);
    const Guess<n> first = roundQuickly(t);
    Guess<n> quick = roundQuickly(quickSecondPower(y, t, first.value, videoEncodeExponent));
    for (std::size_t i = 0; i < n; ++i) {
      const FloatMask toe = hn::Lt(first.value.v[i], floats(videoKneeLinear));
      const FloatMask none = hn::Le(in.v[i], hn::Zero(floatTag));
      const Floats line = hn::Mul(floats(videoSlope), first.value.v[i]);
      const Floats curve = fused(floats(videoScale), quick.value.v[i], floats(-videoOffset));
      quick.value.v[i] = hn::IfThenZeroElse(none, hn::IfThenElse(toe, line, curve));
      const FloatMask usual =
          hn::Or(none, hn::And(hn::Ge(in.v[i], floats(least)), hn::Le(in.v[i], floats(most))));
      const FloatMask either = hn::Or(first.doubtful.v[i], hn::AndNot(toe, quick.doubtful.v[i]));
      quick.doubtful.v[i] = hn::Or(either, hn::Not(usual));
    }
    return quickOrCareful(*this, in, quick);
  }

  template <std::size_t n>
  HWY_INLINE FloatPack<n> careful(const FloatPack<n>& in) const {
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
        integer_(usual_ && exponent == static_cast<float>(static_cast<int>(exponent))) {
    if (usual_) setReach();
  }

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
    FloatPack<n> base;
    for (std::size_t i = 0; i < n; ++i) base.v[i] = hn::Max(in.v[i], floats(least_));
    Guess<n> quick =
        roundQuickly(exp2Of(scaled(log2Of(promote(base)), static_cast<double>(exponent_))));
    for (std::size_t i = 0; i < n; ++i) {
      const Floats v = in.v[i];
      // Not -0, which whole exponents may keep.
      const FloatMask zero =
          hn::RebindMask(floatTag, hn::Eq(hn::BitCast(wordTag, v), hn::Zero(wordTag)));
      quick.value.v[i] = hn::IfThenElse(zero, floats(ofZero_), quick.value.v[i]);
      const FloatMask usual = hn::And(hn::Ge(v, floats(least_)), hn::Le(v, floats(most_)));
      quick.doubtful.v[i] = hn::Or(quick.doubtful.v[i], hn::Not(hn::Or(zero, usual)));
    }
    return quickOrCareful(*this, in, quick);
  }

  template <std::size_t n>
  HWY_INLINE FloatPack<n> careful(const FloatPack<n>& in) const {
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
  /// Widens least_ and most_ while what lies between them has powers that are normal floats.
  void setReach() {
    for (int places = 1; places < 126 && static_cast<float>(places + 1) * exponent_ <= 125;
         ++places) {
      least_ *= 0.5f;
      most_ *= 2;
    }
  }

  /// Zeros whose sign matters.
  HWY_INLINE FloatMask integerZero(Floats v) const {
    return hn::Eq(v, integer_ ? hn::Zero(floatTag) : floats(1));
  }

  float exponent_, ofZero_, ofNegative_;
  float least_ = 1, most_ = 1;  // between them the quick form's results are normal floats
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
