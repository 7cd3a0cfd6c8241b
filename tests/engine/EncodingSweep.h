// SPDX-License-Identifier: BSD-3-Clause
//
// Every vectorised encoding beside its definition, for the sampling test and for the exhaustive
// program: the two differ only in which floats they look at.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "engine/colour/Encoding.h"
#include "engine/colour/Power.h"
#include "engine/targets/Target.h"

namespace sweep {

inline float fromBits(std::uint32_t bits) {
  float v = 0;
  std::memcpy(&v, &bits, sizeof v);
  return v;
}

inline std::uint32_t bitsOf(float v) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &v, sizeof bits);
  return bits;
}

enum Kind { decode, encode, raise, grade };

/// One function of one float: what it is called, and its parameter.
struct Function {
  const char* name;
  Kind kind;
  int colourspace;
  float exponent;  // the power's, or gamma of a grade

  float define(float v) const {
    switch (kind) {
      case decode:
        return orvanite::toLinear(v, colourspace);
      case encode:
        return orvanite::fromLinear(v, colourspace);
      case raise:
        return orvanite::power(v, exponent);
      default:
        return orvanite::regrade(v, 1.25f, exponent, -0.03125f);
    }
  }

  void run(const orvanite::EncodingFunctions& f, const std::vector<float>& in,
           std::vector<float>& out) const {
    out.resize(in.size());
    switch (kind) {
      case decode:
        return f.toLinear(in.data(), out.data(), in.size(), colourspace);
      case encode:
        return f.fromLinear(in.data(), out.data(), in.size(), colourspace);
      case raise:
        return f.power(in.data(), out.data(), in.size(), exponent);
      default:
        return f.regrade(in.data(), out.data(), in.size(), 1.25f, exponent, -0.03125f);
    }
  }
};

/// The four conversions and powers of every sort that grading can ask for: the usual range, whole
/// exponents (negative values have a power), steep and flat ones, and those that are left to the
/// definition.
inline const std::vector<Function>& functions() {
  static const std::vector<Function> all = {
      {"log decode", decode, orvanite::logSpace, 0},
      {"log encode", encode, orvanite::logSpace, 0},
      {"video decode", decode, orvanite::videoSpace, 0},
      {"video encode", encode, orvanite::videoSpace, 0},
      {"linear decode", decode, orvanite::linearSpace, 0},
      {"power 0.45", raise, 0, 0.45f},
      {"power 1", raise, 0, 1},
      {"power 2", raise, 0, 2},
      {"power 3", raise, 0, 3},
      {"power 0.02", raise, 0, 0.02f},
      {"power 62.5", raise, 0, 62.5f},
      {"power 80", raise, 0, 80},
      {"power -1.5", raise, 0, -1.5f},
      {"power infinite", raise, 0, INFINITY},
      {"power not a number", raise, 0, NAN},
      {"grade gamma 1.7", grade, 0, 1.7f},
  };
  return all;
}

/// Equal bits; of a NaN that it is one.
inline bool same(float a, float b) {
  return bitsOf(a) == bitsOf(b) || (std::isnan(a) && std::isnan(b));
}

/// Compares a function with its definition on the given floats. Empty when they agree, else the
/// first difference.
inline std::string compare(const orvanite::Target& target, const Function& f,
                           const std::vector<float>& in, const std::vector<float>& wanted) {
  std::vector<float> got;
  f.run(*target.encodings, in, got);
  for (std::size_t i = 0; i < in.size(); ++i) {
    if (same(got[i], wanted[i])) continue;
    char line[200];
    std::snprintf(line, sizeof line, "%s on %s: of %a (%08x) got %a, wanted %a", f.name,
                  target.name, static_cast<double>(in[i]), bitsOf(in[i]),
                  static_cast<double>(got[i]), static_cast<double>(wanted[i]));
    return line;
  }
  return "";
}

/// How far a double lies from the nearest border between two floats' roundings, relative to it.
inline double borderDistance(double v) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &v, sizeof bits);
  const auto low = static_cast<std::int64_t>(bits & 0x1fffffff);  // what a float has no room for
  return std::ldexp(std::fabs(static_cast<double>(low - 0x10000000)), -52);
}

}  // namespace sweep
