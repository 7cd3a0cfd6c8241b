// SPDX-License-Identifier: BSD-3-Clause
//
// The vectors of the machine that the including file is compiled for, and what the kernels need
// of them beyond Highway's own operations. Only for files that are built once per target.
//
// Such a file keeps everything in an unnamed namespace inside orvanite::ORVANITE_SIMD_TARGET and
// uses nothing of the standard library that the compiler might emit as a shared function.
#pragma once

#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>

namespace orvanite::ORVANITE_SIMD_TARGET {

// What the flags make of Highway is what the list of targets says.
static_assert(HWY_TARGET == ORVANITE_SIMD_HIGHWAY);

namespace hn = hwy::HWY_NAMESPACE;

namespace {

using FloatTag = hn::ScalableTag<float>;
using HalfFloatTag = hn::Half<FloatTag>;  // as many floats as a vector has doubles
using DoubleTag = hn::ScalableTag<double>;
using WordTag = hn::ScalableTag<std::uint32_t>;
using LongTag = hn::ScalableTag<std::uint64_t>;

using Floats = hn::Vec<FloatTag>;
using Words = hn::Vec<WordTag>;
using FloatMask = hn::Mask<FloatTag>;
using DoubleVector = hn::Vec<DoubleTag>;

inline constexpr FloatTag floatTag;
inline constexpr HalfFloatTag halfFloatTag;
inline constexpr DoubleTag doubleTag;
inline constexpr WordTag wordTag;
inline constexpr LongTag longTag;

constexpr std::size_t maxFloatLanes = 16;  // of any target

HWY_INLINE std::size_t floatLanes() { return hn::Lanes(floatTag); }

HWY_INLINE Floats floats(float v) { return hn::Set(floatTag, v); }
HWY_INLINE DoubleVector doubles(double v) { return hn::Set(doubleTag, v); }

/// Several vectors that go through a long computation together, step by step: each step's
/// operations are independent of one another, which is what keeps the machine busy.
template <std::size_t n>
struct FloatPack {
  Floats v[n];
};

/// The double-precision values of a pack: two vectors for each of floats, lower half first.
template <std::size_t n>
struct DoublePack {
  DoubleVector v[2 * n];
};

template <std::size_t n>
struct MaskPack {
  FloatMask v[n];
};

HWY_INLINE DoubleVector promoteLower(Floats v) {
  return hn::PromoteTo(doubleTag, hn::LowerHalf(halfFloatTag, v));
}

HWY_INLINE DoubleVector promoteUpper(Floats v) {
  return hn::PromoteTo(doubleTag, hn::UpperHalf(halfFloatTag, v));
}

HWY_INLINE Floats demote(DoubleVector low, DoubleVector high) {
  return hn::Combine(floatTag, hn::DemoteTo(halfFloatTag, high), hn::DemoteTo(halfFloatTag, low));
}

template <std::size_t n>
HWY_INLINE DoublePack<n> promote(const FloatPack<n>& in) {
  DoublePack<n> out;
  for (std::size_t i = 0; i < n; ++i) {
    out.v[2 * i] = promoteLower(in.v[i]);
    out.v[2 * i + 1] = promoteUpper(in.v[i]);
  }
  return out;
}

template <std::size_t n>
HWY_INLINE FloatPack<n> demote(const DoublePack<n>& in) {
  FloatPack<n> out;
  for (std::size_t i = 0; i < n; ++i) {
    out.v[i] = demote(in.v[2 * i], in.v[2 * i + 1]);
  }
  return out;
}

/// Rounded once, from the exact a * b + c. Where the machine has no such instruction: the product
/// of two floats is exact in double; the sum's last bit is made odd when it was rounded, so that
/// the second rounding decides as the first would have.
#if HWY_NATIVE_FMA
HWY_INLINE Floats fused(Floats a, Floats b, Floats c) { return hn::MulAdd(a, b, c); }
#else
HWY_INLINE DoubleVector oddSum(DoubleVector product, DoubleVector c) {
  const DoubleVector sum = hn::Add(product, c);
  const DoubleVector back = hn::Sub(sum, product);
  const DoubleVector error = hn::Add(hn::Sub(product, hn::Sub(sum, back)), hn::Sub(c, back));
  const auto bits = hn::BitCast(longTag, sum);
  const auto one = hn::Set(longTag, 1);
  // An even, rounded sum moves one place: outwards when the error has the sum's sign.
  const auto inexact = hn::And(hn::Ne(error, hn::Zero(doubleTag)),
                               hn::Eq(error, error));  // infinities and NaNs stay as they are
  const auto even = hn::Eq(hn::And(bits, one), hn::Zero(longTag));
  const auto signs = hn::BitCast(longTag, hn::Xor(error, sum));
  const auto inwards = hn::ShiftRight<63>(signs);  // 1 where the signs differ
  const auto step = hn::Sub(one, hn::Add(inwards, inwards));
  const auto moved = hn::Add(bits, step);
  return hn::IfThenElse(
      hn::And(inexact, hn::MaskFromVec(hn::BitCast(doubleTag, hn::VecFromMask(longTag, even)))),
      hn::BitCast(doubleTag, moved), sum);
}

HWY_INLINE Floats fused(Floats a, Floats b, Floats c) {
  const DoubleVector low = hn::Mul(promoteLower(a), promoteLower(b));
  const DoubleVector high = hn::Mul(promoteUpper(a), promoteUpper(b));
  return demote(oddSum(low, promoteLower(c)), oddSum(high, promoteUpper(c)));
}
#endif

/// For each set of eight lanes: the lanes that are in it, in order.
struct LaneLists {
  std::uint8_t lanes[256][8];
};

constexpr LaneLists makeLaneLists() {
  LaneLists lists = {};
  for (unsigned set = 0; set < 256; ++set) {
    unsigned n = 0;
    for (unsigned lane = 0; lane < 8; ++lane) {
      if ((set >> lane & 1U) != 0) lists.lanes[set][n++] = static_cast<std::uint8_t>(lane);
    }
  }
  return lists;
}

constexpr LaneLists laneLists = makeLaneLists();

/// Stores the lanes of the mask one after the other, and beside them the places first, first + 1,
/// ... that they have; returns how many. Whole vectors are written at both pointers.
HWY_INLINE std::size_t collect(Floats v, FloatMask mask, std::uint32_t first, float* values,
                               std::uint32_t* places) {
  const Words place = hn::Iota(wordTag, first);
#if HWY_MAX_BYTES > 32
  // Compressed in registers: straight to memory is slow on some machines.
  hn::StoreU(hn::Compress(place, hn::RebindMask(wordTag, mask)), wordTag, places);
  hn::StoreU(hn::Compress(v, mask), floatTag, values);
  return hn::CountTrue(floatTag, mask);
#else
  // Highway's own, below 512 bits, has g++ copy its table to the stack for every vector.
  std::uint8_t bits[8] = {};
  hn::StoreMaskBits(floatTag, mask, bits);
  const hn::Rebind<std::uint8_t, FloatTag> byteTag;
  const auto lanes = hn::IndicesFromVec(
      floatTag, hn::PromoteTo(wordTag, hn::LoadU(byteTag, laneLists.lanes[bits[0]])));
  hn::StoreU(hn::TableLookupLanes(v, lanes), floatTag, values);
  hn::StoreU(hn::BitCast(wordTag, hn::TableLookupLanes(hn::BitCast(floatTag, place), lanes)),
             wordTag, places);
  return hn::CountTrue(floatTag, mask);
#endif
}

/// How many vectors an array function takes through a computation at a time.
constexpr std::size_t arrayPack = 2;

/// Runs body over an array, a pack at a time. The last, incomplete pack goes through a buffer that
/// is filled up with 1, so that nothing outside the arrays is touched.
template <class Body>
HWY_INLINE void overArray(const float* in, float* out, std::size_t n, const Body& body) {
  const std::size_t lanes = floatLanes(), step = arrayPack * lanes;
  HWY_ALIGN float rest[arrayPack * maxFloatLanes];
  for (std::size_t i = 0; i < n; i += step) {
    const bool whole = i + step <= n;
    const float* from = in + i;
    float* to = out + i;
    if (HWY_UNLIKELY(!whole)) {
      for (std::size_t k = 0; k < step; ++k) rest[k] = i + k < n ? in[i + k] : 1.0f;
      from = to = rest;
    }
    FloatPack<arrayPack> pack;
    for (std::size_t k = 0; k < arrayPack; ++k) {
      pack.v[k] = hn::LoadU(floatTag, from + k * lanes);
    }
    pack = body(pack);
    for (std::size_t k = 0; k < arrayPack; ++k) {
      hn::StoreU(pack.v[k], floatTag, to + k * lanes);
    }
    if (HWY_UNLIKELY(!whole)) {
      for (std::size_t k = 0; i + k < n; ++k) out[i + k] = rest[k];
    }
  }
}

}  // namespace

}  // namespace orvanite::ORVANITE_SIMD_TARGET
