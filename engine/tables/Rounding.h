// SPDX-License-Identifier: BSD-3-Clause
//
// How a table value becomes an integer: 0.5 is added in single precision and the sum truncated
// toward zero, so -0.7 gives 0. Beyond the integer's range it saturates; a NaN gives 0.
#pragma once

#include <cstdint>
#include <limits>

namespace orvanite {

inline int roundToInt(float v) {
  const float sum = v + 0.5f;
  if (sum >= 2147483648.0f) return std::numeric_limits<int>::max();
  if (sum <= -2147483648.0f) return std::numeric_limits<int>::min();
  return sum == sum ? static_cast<int>(sum) : 0;
}

inline std::int16_t toShort(int v) {
  return static_cast<std::int16_t>(v < -32768 ? -32768 : v > 32767 ? 32767 : v);
}

/// toShort(roundToInt(v)), in a form that compilers vectorise: the limits are integers, so limiting
/// the sum before it is truncated gives the same.
inline std::int16_t roundToShort(float v) {
  float sum = v + 0.5f;
  sum = sum == sum ? sum : 0.0f;
  sum = sum < -32768.0f ? -32768.0f : sum > 32767.0f ? 32767.0f : sum;
  return static_cast<std::int16_t>(static_cast<int>(sum));
}

}  // namespace orvanite
