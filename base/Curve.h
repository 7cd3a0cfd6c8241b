// SPDX-License-Identifier: BSD-3-Clause
//
// Values that move: keys at frames, and what lies between them; and how they are written, which is
// the same in scripts, presets, options and the page.
// Uses the standard library only; scripts and presets move their values by this alone.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace orvanite {

/// How a value goes from key to key.
enum class CurveShape {
  linear,  // straight
  smooth   // Catmull-Rom: through a key in the direction from the one before to the one after
};

/// A value that is reached at a frame.
struct CurveKey {
  double frame;  // may lie between frames of the shot
  double value;  // in whatever unit moves
  /// The same place.
  bool operator==(const CurveKey&) const = default;
};

/// The value at a frame. At a key it is the key's, exactly; before the first and beyond the last
/// key it is theirs. A smooth curve starts and ends level, so that it has no corner there either.
///
/// keys  at least one, their frames ascending, no two equal
double curveAt(CurveShape shape, std::span<const CurveKey> keys, double frame);

/// A curve as a value of its own; without keys it is none.
struct Curve {
  CurveShape shape = CurveShape::linear;
  std::vector<CurveKey> keys;  // as curveAt takes them

  /// Whether it is one.
  explicit operator bool() const { return !keys.empty(); }
  /// curveAt.
  double at(double frame) const { return curveAt(shape, keys, frame); }
  /// "linear(time, 1@0.02, 24@0.08)", an expression of scripts. Reading it gives the same curve.
  std::string text() const;
  /// Same shape, same keys.
  bool operator==(const Curve&) const = default;
};

/// Whether a text begins as one of a curve does.
bool looksLikeCurve(std::string_view text);

/// The curve of such a text: "linear" or "smooth", "time" or "t", keys of plain numbers, at most
/// 2000 of them; blanks may stand anywhere between. Throws Error (wrongUse) about `subject`.
Curve parseCurve(std::string_view text, const std::string& subject);

}  // namespace orvanite
