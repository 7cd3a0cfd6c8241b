// SPDX-License-Identifier: BSD-3-Clause
//
// a * b + c rounded once, the same on every machine: C libraries exist that round twice.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>

namespace orvanite {

/// The same where the processor has no such instruction. The product of two floats is exact in
/// double; where the sum is rounded its last bit is made odd, so that rounding it to a float
/// decides as rounding the exact sum would.
inline float fusedByDoubles(float a, float b, float c) {
  const double product = static_cast<double>(a) * static_cast<double>(b);
  const double addend = static_cast<double>(c);
  const double sum = product + addend;
  const double back = sum - product;
  const double error = (product - (sum - back)) + (addend - back);
  // Infinities and NaNs leave an error that is no number.
  if (!(error < 0 || error > 0)) return static_cast<float>(sum);
  std::uint64_t bits = 0;
  std::memcpy(&bits, &sum, sizeof bits);
  // An even sum moves one place: outwards when the error has its sign.
  if ((bits & 1) == 0) bits = (error < 0) == (sum < 0) ? bits + 1 : bits - 1;
  double odd = 0;
  std::memcpy(&odd, &bits, sizeof odd);
  return static_cast<float>(odd);
}

/// a * b + c with one rounding.
inline float fused(float a, float b, float c) {
#if defined(__FP_FAST_FMAF)
  return __builtin_fmaf(a, b, c);
#else
  return fusedByDoubles(a, b, c);
#endif
}

}  // namespace orvanite
