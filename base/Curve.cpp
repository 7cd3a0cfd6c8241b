// SPDX-License-Identifier: BSD-3-Clause
//
// Between two keys: a straight line, or the cubic with given slopes at both.
#include "base/Curve.h"

#include <algorithm>
#include <cassert>
#include <cstddef>

namespace orvanite {
namespace {

// Of a smooth curve at a key, in values a frame.
double slopeAt(std::span<const CurveKey> keys, std::size_t i) {
  if (i == 0 || i + 1 == keys.size()) return 0;
  const CurveKey& before = keys[i - 1];
  const CurveKey& after = keys[i + 1];
  return (after.value - before.value) / (after.frame - before.frame);
}

}  // namespace

double curveAt(CurveShape shape, std::span<const CurveKey> keys, double frame) {
  assert(!keys.empty());
  const auto next = std::upper_bound(keys.begin(), keys.end(), frame,
                                     [](double at, const CurveKey& key) { return at < key.frame; });
  if (next == keys.begin()) return keys.front().value;
  const auto i = static_cast<std::size_t>(next - keys.begin()) - 1;
  const CurveKey& from = keys[i];
  if (next == keys.end() || from.frame == frame) return from.value;
  const CurveKey& to = keys[i + 1];
  const double length = to.frame - from.frame;
  const double rise = to.value - from.value;
  const double s = (frame - from.frame) / length;
  if (shape == CurveShape::linear) return from.value + rise * s;
  // Hermite's cubic in powers of s.
  const double leave = slopeAt(keys, i) * length;
  const double arrive = slopeAt(keys, i + 1) * length;
  const double square = 3 * rise - 2 * leave - arrive;
  const double cube = leave + arrive - 2 * rise;
  return from.value + s * (leave + s * (square + s * cube));
}

}  // namespace orvanite
