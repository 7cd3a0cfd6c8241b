// SPDX-License-Identifier: BSD-3-Clause
//
// Rounding of parameters, so that values which differ only by noise count as equal.
#pragma once

#include <cmath>

/// `value` rounded to `places` decimals, halves away from zero. Values too large to carry such
/// decimals, infinities and NaN come back unchanged.
inline float NRiRound(float value, int places) {
  double scale = 1.0;
  for (int i = 0; i < places; ++i) scale *= 10.0;
  const double scaled = static_cast<double>(value) * scale;
  if (!(std::fabs(scaled) < 9007199254740992.0)) return value;  // 2^53: a double's last odd integer
  return static_cast<float>(std::round(scaled) / scale);
}
