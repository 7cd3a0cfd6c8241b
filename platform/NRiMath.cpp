// SPDX-License-Identifier: BSD-3-Clause
//
// The functions of expressions.
#include "platform/NRiMath.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

namespace {

using Numbers = std::span<const double>;

template <double (*function)(double)>
const char* one(Numbers x, double& result) {
  result = function(x[0]);
  return nullptr;
}

const char* least(Numbers x, double& result) {
  result = *std::min_element(x.begin(), x.end());
  return nullptr;
}

const char* most(Numbers x, double& result) {
  result = *std::max_element(x.begin(), x.end());
  return nullptr;
}

const char* clamp(Numbers x, double& result) {
  if (x[1] > x[2]) return "bounds the wrong way round: expected clamp(x, low, high)";
  result = std::clamp(x[0], x[1], x[2]);
  return nullptr;
}

const char* mix(Numbers x, double& result) {
  result = x[0] * (1 - x[2]) + x[1] * x[2];
  return nullptr;
}

const char* step(Numbers x, double& result) {
  result = x[1] < x[0] ? 0 : 1;
  return nullptr;
}

const char* squareRoot(Numbers x, double& result) {
  if (x[0] < 0) return "the square root of a negative number";
  result = std::sqrt(x[0]);
  return nullptr;
}

const char* power(Numbers x, double& result) {
  result = std::pow(x[0], x[1]);
  return std::isnan(result) ? "a fractional power of a negative number" : nullptr;
}

// Stafford's finaliser of 64 bits on the seed's bit pattern: neighbours have nothing in common, and
// every machine gives the same. 24 bits, so that the value is a float's, below 1.
const char* random(Numbers x, double& result) {
  std::uint64_t bits = std::bit_cast<std::uint64_t>(x[0] + 0.0);  // -0 is 0
  bits += 0x9e3779b97f4a7c15ULL;
  bits = (bits ^ (bits >> 30)) * 0xbf58476d1ce4e5b9ULL;
  bits = (bits ^ (bits >> 27)) * 0x94d049bb133111ebULL;
  bits ^= bits >> 31;
  result = static_cast<double>(bits >> 40) / 16777216.0;
  return nullptr;
}

constexpr NRiMathFunction functions[] = {
    {"linear", "frame, frame1@value1, ...",
     "Moves straight from key to key, flat before the first and after the last.", 2, 0, nullptr,
     orvanite::CurveShape::linear},
    {"smooth", "frame, frame1@value1, ...",
     "Moves through the keys without corners (Catmull-Rom), flat before the first and after the "
     "last.",
     2, 0, nullptr, orvanite::CurveShape::smooth},
    {"min", "a, b, ...", "The least of its arguments.", 1, 0, least, {}},
    {"max", "a, b, ...", "The greatest of its arguments.", 1, 0, most, {}},
    {"clamp", "x, low, high", "x, but no less than low and no more than high.", 3, 3, clamp, {}},
    {"mix", "a, b, amount", "a at amount 0, b at 1, in proportion between.", 3, 3, mix, {}},
    {"step", "edge, x", "0 where x is less than edge, else 1.", 2, 2, step, {}},
    {"abs", "x", "x without its sign.", 1, 1, one<std::fabs>, {}},
    {"floor", "x", "The greatest whole number that is not above x.", 1, 1, one<std::floor>, {}},
    {"sqrt", "x", "The square root of x, which is not negative.", 1, 1, squareRoot, {}},
    {"pow", "x, y", "x to the power of y.", 2, 2, power, {}},
    {"sin", "x", "The sine of x, in radians.", 1, 1, one<std::sin>, {}},
    {"cos", "x", "The cosine of x, in radians.", 1, 1, one<std::cos>, {}},
    {"random",
     "seed",
     "A number from 0 to below 1 that depends on nothing but seed: random(time) differs from frame "
     "to frame, and is the same each time the frame is rendered.",
     1,
     1,
     random,
     {}},
};

}  // namespace

std::span<const NRiMathFunction> NRiMathFunctions() { return functions; }

const NRiMathFunction* NRiMathNamed(std::string_view name) {
  const auto* const found = std::find_if(std::begin(functions), std::end(functions),
                                         [&](const auto& one) { return one.name == name; });
  return found == std::end(functions) ? nullptr : found;
}
