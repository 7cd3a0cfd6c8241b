// SPDX-License-Identifier: BSD-3-Clause
//
// Compiled without built-in knowledge of these functions: a compiler that sees pow(10, x) may
// otherwise call exp10, whose last bit differs.
#include "engine/colour/Power.h"

#include <cmath>

namespace orvanite {

float power(float base, float exponent) {
  return static_cast<float>(std::pow(static_cast<double>(base), static_cast<double>(exponent)));
}

float commonLogarithm(float v) { return static_cast<float>(std::log10(static_cast<double>(v))); }

}  // namespace orvanite
