// SPDX-License-Identifier: BSD-3-Clause
//
// Half precision from its definition: 10 bits of fraction, exponents -14..15, rounding to nearest
// with ties to even. Slow, and independent of the library that the engine uses.
#pragma once

#include <cmath>
#include <cstdint>

namespace model {

inline std::uint16_t toHalf(float v) {
  const int sign = std::signbit(v) ? 0x8000 : 0;
  const double size = std::fabs(static_cast<double>(v));
  int pattern;
  if (std::isnan(v)) {
    pattern = 0x7e00;
  } else if (size >= 65520.0) {  // halfway between the largest finite half and the next step
    pattern = 0x7c00;
  } else if (size < 0x1p-14) {  // below the normal range the step is 2^-24
    pattern = static_cast<int>(std::nearbyint(size * 0x1p24));
  } else {
    const int exponent = std::ilogb(size);
    const auto fraction = static_cast<int>(std::nearbyint(std::ldexp(size, 10 - exponent)));
    pattern = ((exponent + 15) << 10) + (fraction - 1024);  // a fraction of 2048 carries
  }
  return static_cast<std::uint16_t>(sign | pattern);
}

inline float fromHalf(int pattern) {
  const int exponent = (pattern >> 10) & 31;
  const int fraction = pattern & 1023;
  double size;
  if (exponent == 31)
    size = fraction != 0 ? NAN : INFINITY;
  else if (exponent == 0)
    size = std::ldexp(fraction, -24);
  else
    size = std::ldexp(1024 + fraction, exponent - 25);
  return static_cast<float>((pattern & 0x8000) != 0 ? -size : size);
}

}  // namespace model
