// SPDX-License-Identifier: BSD-3-Clause
//
// The few functions that the scene needs of mathematics, written out so that a picture is the
// same on every machine: no call of the C library's mathematics, only additions, multiplications,
// divisions, square roots and floors, which IEEE 754 defines to the last bit.
// Builds on nothing. Light and colour are linear unless a name says code.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <initializer_list>

namespace orvanite::plate {

struct V3 {
  float x = 0, y = 0, z = 0;
};
inline V3 operator+(V3 a, V3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline V3 operator-(V3 a, V3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline V3 operator*(V3 a, V3 b) { return {a.x * b.x, a.y * b.y, a.z * b.z}; }
inline V3 operator*(V3 a, float s) { return {a.x * s, a.y * s, a.z * s}; }
inline float dot(V3 a, V3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline V3 cross(V3 a, V3 b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline float length(V3 a) { return std::sqrt(dot(a, a)); }
inline V3 normal(V3 a) {
  const float n = length(a);
  return n > 0 ? a * (1 / n) : V3{0, 0, 1};
}
inline V3 mix(V3 a, V3 b, float t) { return a + (b - a) * t; }
inline float mix(float a, float b, float t) { return a + (b - a) * t; }
inline float clamp01(float v) { return v > 0 ? (v < 1 ? v : 1) : 0; }
inline float least(float a, float b) { return b < a ? b : a; }
inline float most(float a, float b) { return b > a ? b : a; }
inline float magnitude(float a) { return a < 0 ? -a : a; }
inline float square(float a) { return a * a; }
/// 0 at and before `from`, 1 at and after `to`, smooth between; `from` may be the larger.
inline float ramp(float from, float to, float v) {
  const float t = clamp01((v - from) / (to - from));
  return t * t * (3 - 2 * t);
}

/// 2 raised to x, relative error below 1e-9; x is held in -1000..1000.
inline double powerOfTwo(double x) {
  x = x < -1000 ? -1000 : x > 1000 ? 1000 : x;
  const double whole = std::floor(x + 0.5);
  const double t = (x - whole) * 0.693147180559945309;  // -0.35..0.35, so eight terms suffice
  double sum = 1.0 / 40320;
  for (const double term : {1.0 / 5040, 1.0 / 720, 1.0 / 120, 1.0 / 24, 1.0 / 6, 0.5, 1.0, 1.0}) {
    sum = term + sum * t;
  }
  const auto exponent = static_cast<std::uint64_t>(static_cast<std::int64_t>(whole) + 1023);
  return sum * std::bit_cast<double>(exponent << 52);
}

/// The binary logarithm of a normal x > 0, absolute error below 1e-9.
inline double logarithmToTwo(double x) {
  const auto bits = std::bit_cast<std::uint64_t>(x);
  auto exponent = static_cast<int>(bits >> 52) - 1023;
  double m = std::bit_cast<double>((bits & 0x000fffffffffffffull) | 0x3ff0000000000000ull);
  if (m > 1.41421356237309505) {
    m *= 0.5;
    ++exponent;
  }
  const double t = (m - 1) / (m + 1), t2 = t * t;  // |t| < 0.172
  double sum = 1.0 / 13;
  for (const double term : {1.0 / 11, 1.0 / 9, 1.0 / 7, 1.0 / 5, 1.0 / 3, 1.0}) {
    sum = term + sum * t2;
  }
  return exponent + 2.88539008177792681 * t * sum;
}

/// x raised to e; 0 for x that is not a positive normal number.
inline float power(float x, double e) {
  if (!(x > 1e-30f)) return 0;
  return static_cast<float>(powerOfTwo(e * logarithmToTwo(static_cast<double>(x))));
}
inline float decay(float x) { return static_cast<float>(powerOfTwo(-1.44269504 * x)); }

/// The sine of x whole turns, absolute error below 1e-5.
inline float sineOfTurns(float x) {
  float t = x - std::floor(x + 0.5f);
  if (t > 0.25f) t = 0.5f - t;
  if (t < -0.25f) t = -0.5f - t;
  const float a = t * 6.28318531f, a2 = a * a;
  return a * (1 + a2 * (-1.0f / 6 + a2 * (1.0f / 120 + a2 * (-1.0f / 5040 + a2 / 362880))));
}
inline float cosineOfTurns(float x) { return sineOfTurns(x + 0.25f); }

/// A well-mixed hash of a counter (finaliser of the splitmix family, 32 bits).
inline std::uint32_t scramble(std::uint32_t x) {
  x ^= x >> 16;
  x *= 0x7feb352du;
  x ^= x >> 15;
  x *= 0x846ca68bu;
  return x ^ (x >> 16);
}
inline float unitFrom(std::uint32_t hash) { return static_cast<float>(hash >> 8) * 0x1p-24f; }
inline float unitAt(int x, int y, std::uint32_t seed) {
  return unitFrom(scramble(static_cast<std::uint32_t>(x) * 0x9e3779b1u ^
                           scramble(static_cast<std::uint32_t>(y) + seed * 0x85ebca6bu)));
}

/// A stream of numbers: `unit` in [0, 1), `sided` in [-1, 1).
class Dice {
 public:
  explicit Dice(std::uint32_t seed) : state(scramble(seed + 0x51ed270bu)) {}
  float unit() { return unitFrom(scramble(state += 0x9e3779b9u)); }
  float sided() { return unit() * 2 - 1; }
  /// About normal, mean 0, deviation 0.58, within -2..2.
  float bell() {
    float sum = 0;  // one statement a throw: operands have no order of their own
    for (const float sign : {1.0f, 1.0f, -1.0f, -1.0f}) sum += sign * unit();
    return sum;
  }

 private:
  std::uint32_t state;
};

/// Smooth value noise over the plane, cell size 1, in 0..1.
inline float noise(float x, float y, std::uint32_t seed) {
  const float fx = std::floor(x), fy = std::floor(y);
  const int ix = static_cast<int>(fx), iy = static_cast<int>(fy);
  float u = x - fx, v = y - fy;
  u = u * u * (3 - 2 * u);
  v = v * v * (3 - 2 * v);
  return mix(mix(unitAt(ix, iy, seed), unitAt(ix + 1, iy, seed), u),
             mix(unitAt(ix, iy + 1, seed), unitAt(ix + 1, iy + 1, seed), u), v);
}
/// Four octaves of noise, in 0..1.
inline float clouds(float x, float y, std::uint32_t seed) {
  float sum = 0, weight = 0.5f;
  for (std::uint32_t i = 0; i < 4; ++i) {
    sum += weight * noise(x, y, seed + i);
    x = x * 2.03f + 17.1f;
    y = y * 2.03f + 5.7f;
    weight *= 0.5f;
  }
  return sum / 0.9375f;
}

}  // namespace orvanite::plate
