// SPDX-License-Identifier: BSD-3-Clause
//
// Powers and logarithms of vectors in double precision, good enough to say which float the C
// library's result rounds to, and honest enough to say when they cannot tell.
//
// x^p is 2^(p log2 x). The logarithm: x = 2^e z with z in [sqrt(1/2), sqrt(2)), and
// log2 z = s P(s^2) with s = (z - 1) / (z + 1). The exponential: y = n + f with |f| <= 1/2, and
// 2^f = Q(f). P and Q are near-minimax polynomials; their errors, 2^-52 and 2^-45.6 relative,
// were computed in 200-bit arithmetic.
//
// Error of a power: P's part is at most |p| 2^-53, since |log2 z| <= 1/2; rounding log2 x and the
// product costs 2^-52 |y|, below 2^-44.8 for |y| <= 150; together, times ln 2, and with Q, below
// 2^-44.2 + |p| 2^-53: under 2^-43.8 for |p| <= `largestExponent`. A logarithm's relative error
// is below 2^-50. `doubt` is more than ten times either bound: a result is taken only if all
// values within that distance round to the same float. One value in 2^15 is not, and goes to the
// definition. The exhaustive test measures the errors and compares every float.
#pragma once

#include "engine/kernels/simd/Lanes.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

namespace {

constexpr double doubt = 0x1p-40;
constexpr float largestExponent = 64;  // of a power taken here; beyond it the definition is asked
constexpr float largestFloat = 0x1.fffffep127f;

/// c0 + c1 v + c2 v^2 + ... for every vector of the pack.
template <std::size_t n, std::size_t terms>
HWY_INLINE DoublePack<n> polynomial(const double (&c)[terms], const DoublePack<n>& x) {
  DoublePack<n> sum;
  for (std::size_t i = 0; i < 2 * n; ++i) {
    sum.v[i] = hn::MulAdd(doubles(c[terms - 1]), x.v[i], doubles(c[terms - 2]));
  }
  for (std::size_t k = terms - 2; k > 0; --k) {
    for (std::size_t i = 0; i < 2 * n; ++i) {
      sum.v[i] = hn::MulAdd(sum.v[i], x.v[i], doubles(c[k - 1]));
    }
  }
  return sum;
}

/// log2 of x, any floats above 0 and finite.
template <std::size_t n>
HWY_INLINE DoublePack<n> log2Of(const DoublePack<n>& x) {
  constexpr double series[] = {0x1.71547652b82ffp+1, 0x1.ec709dc39ca40p-1, 0x1.2776c516a0848p-1,
                               0x1.a61756810a1f7p-2, 0x1.484fa996a0192p-2, 0x1.0bb80a89e9741p-2,
                               0x1.f17dfdeef0ba0p-3};
  constexpr std::uint64_t rootHalf = 0x3fe6a09e667f3bcd;  // the pattern of sqrt(1/2)
  constexpr std::uint64_t bias = 1023;
  constexpr double integers = 0x1p52;  // a double whose last place is 1

  DoublePack<n> e, s, square;
  for (std::size_t i = 0; i < 2 * n; ++i) {
    const auto moved =
        hn::Add(hn::BitCast(longTag, x.v[i]), hn::Set(longTag, (bias << 52) - rootHalf));
    const auto exponent =
        hn::Or(hn::ShiftRight<52>(moved), hn::BitCast(longTag, doubles(integers)));
    e.v[i] =
        hn::Sub(hn::BitCast(doubleTag, exponent), doubles(integers + static_cast<double>(bias)));
    const auto fraction = hn::And(moved, hn::Set(longTag, 0x000fffffffffffff));
    const DoubleVector z = hn::BitCast(doubleTag, hn::Add(fraction, hn::Set(longTag, rootHalf)));
    s.v[i] = hn::Div(hn::Sub(z, doubles(1)), hn::Add(z, doubles(1)));
  }
  for (std::size_t i = 0; i < 2 * n; ++i) square.v[i] = hn::Mul(s.v[i], s.v[i]);
  const DoublePack<n> p = polynomial(series, square);
  for (std::size_t i = 0; i < 2 * n; ++i) e.v[i] = hn::MulAdd(s.v[i], p.v[i], e.v[i]);
  return e;
}

/// 2^y for |y| <= 1000.
template <std::size_t n>
HWY_INLINE DoublePack<n> exp2Of(const DoublePack<n>& y) {
  constexpr double series[] = {0x1.000000000003dp+0,  0x1.62e42fefa39f7p-1,  0x1.ebfbdff8149f2p-3,
                               0x1.c6b08d7044119p-5,  0x1.3b2ab72b175eep-7,  0x1.5d87fe908f88ap-10,
                               0x1.43088e257f341p-13, 0x1.ffcb76789860fp-17, 0x1.63ef969a64d3cp-20,
                               0x1.b6571de2f2351p-24};
  constexpr double toInteger = 0x1.8p52;  // added, it leaves round(y) in the last places
  DoublePack<n> rounded, f;
  for (std::size_t i = 0; i < 2 * n; ++i) {
    rounded.v[i] = hn::Add(y.v[i], doubles(toInteger));
    f.v[i] = hn::Sub(y.v[i], hn::Sub(rounded.v[i], doubles(toInteger)));
  }
  DoublePack<n> power = polynomial(series, f);
  for (std::size_t i = 0; i < 2 * n; ++i) {
    const auto integer = hn::ShiftLeft<52>(hn::BitCast(longTag, rounded.v[i]));
    power.v[i] = hn::BitCast(doubleTag, hn::Add(hn::BitCast(longTag, power.v[i]), integer));
  }
  return power;
}

template <std::size_t n>
HWY_INLINE DoublePack<n> scaled(DoublePack<n> v, double factor) {
  for (std::size_t i = 0; i < 2 * n; ++i) v.v[i] = hn::Mul(v.v[i], doubles(factor));
  return v;
}

/// Keeps exponents where exp2Of can take them: far beyond any float.
template <std::size_t n>
HWY_INLINE DoublePack<n> withinReach(DoublePack<n> y) {
  for (std::size_t i = 0; i < 2 * n; ++i) {
    y.v[i] = hn::Min(hn::Max(y.v[i], doubles(-1000)), doubles(1000));
  }
  return y;
}

/// Rounded results and the lanes that may be wrong.
template <std::size_t n>
struct Guess {
  FloatPack<n> value;
  MaskPack<n> doubtful;
};

/// Rounds estimates of normal floats, or of 0, whose error is below `doubt` of them: doubtful are
/// those whose places beyond a float's are within 2^13 of the border between two floats.
template <std::size_t n>
HWY_INLINE Guess<n> roundQuickly(const DoublePack<n>& estimate) {
  const hn::RebindToSigned<WordTag> signedTag;
  constexpr std::int32_t lowest = -0x7FFFFFFF - 1;
  Guess<n> guess{demote(estimate), {}};
  for (std::size_t i = 0; i < n; ++i) {
    const auto low = hn::ConcatEven(signedTag, hn::BitCast(signedTag, estimate.v[2 * i + 1]),
                                    hn::BitCast(signedTag, estimate.v[2 * i]));
    // The border, 2^28, becomes 2^31, the lowest number; what lies up to 2^13 below it wraps.
    const auto moved = hn::Add(hn::ShiftLeft<3>(low), hn::Set(signedTag, 1 << 16));
    const auto near = hn::Lt(moved, hn::Set(signedTag, lowest + (1 << 17)));
    guess.doubtful.v[i] = hn::RebindMask(floatTag, near);
  }
  return guess;
}

/// Rounds estimates whose error is below `doubt` of them. Overflow and subnormal results come out
/// right as well: both ends of the doubt are rounded as the definition's value is.
template <std::size_t n>
HWY_INLINE Guess<n> roundSafely(const DoublePack<n>& estimate) {
  const FloatPack<n> less = demote(scaled(estimate, 1 - doubt));
  const FloatPack<n> more = demote(scaled(estimate, 1 + doubt));
  Guess<n> guess{less, {}};
  for (std::size_t i = 0; i < n; ++i) guess.doubtful.v[i] = hn::Ne(less.v[i], more.v[i]);
  return guess;
}

/// True lanes: above 0 and finite.
HWY_INLINE FloatMask isPositive(Floats v) {
  return hn::And(hn::Gt(v, hn::Zero(floatTag)), hn::Le(v, floats(largestFloat)));
}

/// The lanes whose logarithm can be taken here, and 1 in the others.
template <std::size_t n>
HWY_INLINE FloatPack<n> positives(FloatPack<n> in, MaskPack<n>& positive) {
  for (std::size_t i = 0; i < n; ++i) {
    positive.v[i] = isPositive(in.v[i]);
    in.v[i] = hn::IfThenElse(positive.v[i], in.v[i], floats(1));
  }
  return in;
}

/// Puts definition(lane of in) in the lanes of value that the mask holds.
template <class Definition>
HWY_NOINLINE Floats askDefinition(const Definition& definition, Floats in, Floats value,
                                  FloatMask lanes) {
  HWY_ALIGN float from[maxFloatLanes];
  HWY_ALIGN float to[maxFloatLanes];
  HWY_ALIGN std::uint32_t wanted[maxFloatLanes];
  hn::Store(in, floatTag, from);
  hn::Store(value, floatTag, to);
  hn::Store(hn::BitCast(wordTag, hn::VecFromMask(floatTag, lanes)), wordTag, wanted);
  for (std::size_t i = 0; i < floatLanes(); ++i) {
    if (wanted[i] != 0) to[i] = definition(from[i]);
  }
  return hn::Load(floatTag, to);
}

template <std::size_t n>
HWY_INLINE bool anyIn(const MaskPack<n>& masks) {
  FloatMask any = masks.v[0];
  for (std::size_t i = 1; i < n; ++i) any = hn::Or(any, masks.v[i]);
  return !hn::AllFalse(floatTag, any);
}

template <std::size_t n, class Definition>
HWY_INLINE FloatPack<n> settle(const Definition& definition, const FloatPack<n>& in,
                               Guess<n> guess) {
  if (HWY_LIKELY(!anyIn(guess.doubtful))) return guess.value;
  for (std::size_t i = 0; i < n; ++i) {
    guess.value.v[i] = askDefinition(definition, in.v[i], guess.value.v[i], guess.doubtful.v[i]);
  }
  return guess.value;
}

template <std::size_t n, class Function>
HWY_NOINLINE void replaceCarefully(const Function& function, FloatPack<n>& values) {
  const FloatPack<n> results = function.careful(values);
  for (std::size_t i = 0; i < n; ++i) values.v[i] = results.v[i];
}

/// What a function's quick form found, or all of the pack by its careful one, which knows every
/// float: the quick one leaves infinities, NaNs and whatever may be subnormal to it.
template <std::size_t n, class Function>
HWY_INLINE FloatPack<n> quickOrCareful(const Function& function, const FloatPack<n>& in,
                                       const Guess<n>& quick) {
  if (HWY_LIKELY(!anyIn(quick.doubtful))) return quick.value;
  FloatPack<n> out = in;
  replaceCarefully(function, out);
  return out;
}

}  // namespace

}  // namespace orvanite::ORVANITE_SIMD_TARGET
