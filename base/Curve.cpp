// SPDX-License-Identifier: BSD-3-Clause
//
// Between two keys: a straight line, or the cubic with given slopes at both.
#include "base/Curve.h"

#include <algorithm>
#include <cassert>
#include <charconv>
#include <cmath>
#include <cstddef>

#include "base/Error.h"
#include "base/Numbers.h"

namespace orvanite {
namespace {

// Of a smooth curve at a key, in values a frame.
double slopeAt(std::span<const CurveKey> keys, std::size_t i) {
  if (i == 0 || i + 1 == keys.size()) return 0;
  const CurveKey& before = keys[i - 1];
  const CurveKey& after = keys[i + 1];
  return (after.value - before.value) / (after.frame - before.frame);
}

constexpr std::size_t mostKeys = 2000;
constexpr double largestFrame = 1e8;

void skipBlanks(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\n\r"), text.size()));
}

bool take(std::string_view& text, std::string_view token) {
  skipBlanks(text);
  if (!text.starts_with(token)) return false;
  text.remove_prefix(token.size());
  return true;
}

bool takeNumber(std::string_view& text, double& number) {
  skipBlanks(text);
  const std::string_view token = text.substr(0, text.find_first_of(" \t\n\r,@()"));
  if (!readDouble(token, number) || !std::isfinite(number)) return false;
  text.remove_prefix(token.size());
  return true;
}

bool takeShape(std::string_view& text, CurveShape& shape) {
  shape = CurveShape::linear;
  if (take(text, "linear")) return take(text, "(");
  shape = CurveShape::smooth;
  return take(text, "smooth") && take(text, "(");
}

std::string plain(double value) {
  char text[32];
  return {text, std::to_chars(text, text + sizeof text, value).ptr};
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

std::string Curve::text() const {
  std::string text = shape == CurveShape::linear ? "linear(time" : "smooth(time";
  for (const CurveKey& key : keys) text += ", " + plain(key.frame) + '@' + plain(key.value);
  return text + ')';
}

bool looksLikeCurve(std::string_view text) {
  CurveShape ignored;
  return takeShape(text, ignored);
}

Curve parseCurve(std::string_view text, const std::string& subject) {
  const auto expected = [&](std::string_view what) {
    const std::size_t shown = 200;
    return Error::expected(Fault::wrongUse, subject, what, text.substr(0, shown));
  };
  std::string_view rest = text;
  Curve curve;
  bool fine = takeShape(rest, curve.shape) && (take(rest, "time") || take(rest, "t"));
  while (fine && take(rest, ",")) {
    CurveKey key{};
    fine = takeNumber(rest, key.frame) && take(rest, "@") && takeNumber(rest, key.value) &&
           std::fabs(key.frame) <= largestFrame;
    if (!fine) break;
    if (curve && key.frame <= curve.keys.back().frame) {
      throw expected("keys whose frames ascend");
    }
    if (curve.keys.size() == mostKeys) throw expected("no more than 2000 keys");
    curve.keys.push_back(key);
  }
  fine = fine && curve && take(rest, ")");
  skipBlanks(rest);
  if (!fine || !rest.empty()) throw expected("keys such as linear(time, 1@0.02, 24@0.08)");
  return curve;
}

}  // namespace orvanite
