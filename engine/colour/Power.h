// SPDX-License-Identifier: BSD-3-Clause
//
// The two functions of the C library that the keyer's bits rest on, in one place, so that no
// compiler can put something else in their stead.
#pragma once

namespace orvanite {

/// base raised to exponent: taken in double precision, converted to single.
float power(float base, float exponent);

/// The common logarithm: taken in double precision, converted to single.
float commonLogarithm(float v);

}  // namespace orvanite
