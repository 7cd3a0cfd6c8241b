// SPDX-License-Identifier: BSD-3-Clause
//
// Values that move: keys at frames, and what lies between them.
// Uses the standard library only; scripts and presets move their values by this alone.
#pragma once

#include <span>

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
};

/// The value at a frame. At a key it is the key's, exactly; before the first and beyond the last
/// key it is theirs. A smooth curve starts and ends level, so that it has no corner there either.
///
/// keys  at least one, their frames ascending, no two equal
double curveAt(CurveShape shape, std::span<const CurveKey> keys, double frame);

}  // namespace orvanite
