// SPDX-License-Identifier: BSD-3-Clause
//
// What integer and float builds derive alike from the parameters before any table is filled:
// the neutral scale, the linear colours, the channels' roles, the key's coefficients and curves,
// the saturation matrices.
#pragma once

#include "engine/QMXOrvaniteTable.h"

namespace orvanite {

enum BuildResult { built = 0, unusableNeutral = 1, unusableScreen = 2, noTables = 3 };

/// The arguments of a channel's key curve.
struct KeyCurve {
  float base, shadow, midtone, highlight;
};

struct Basis {
  float screen[3];  // linear working values of the colours
  float replace[3];
  float midtones[3];  // where the midtone band lies, linear working value
  int primary;        // the screen's strongest channel (ties: the lower index),
  int weakest;        // its weakest
  int middle;         // and the one that remains
  float difference;   // the colour difference at the screen colour itself, in working values
  float coefficient[3];

  /// The channels in the order in which their tables are filled.
  int order(int i) const { return i == 0 ? middle : i == 1 ? weakest : primary; }
};

/// Fills the basis and the engine's neutralScale. Returns unusableNeutral or unusableScreen, the
/// latter after a line on the standard error stream, when there is no key.
BuildResult deriveBasis(QMXOrvaniteTable& engine, Basis& basis);

/// The key's coefficients: the primary's weight (screen / difference, or 1 against a clean plate),
/// from which the midtone balance takes the weights of the other two.
void deriveCoefficients(const QMXOrvaniteTable& engine, float primaryWeight, Basis& basis);

/// The curve of a channel: shadow and highlight balances move weight between the middle and the
/// weakest channel, the gains add to the primary's where they are wanted.
KeyCurve keyCurve(const QMXOrvaniteTable& engine, const Basis& basis, int channel, bool gains);

/// Float saturation matrices of both grading sets.
void deriveSaturation(QMXOrvaniteTable& engine);

/// One value of a uniform cubic B-spline over p[0..3], at t in 0..1.
float splineValue(const float* p, float t);

/// The same curve with its coefficients taken once: loops over it can be vectorised.
struct Spline {
  explicit Spline(const float* p)
      : cubic((3 * (p[1] - p[2]) - p[0] + p[3]) / 6),
        square((p[0] - 2 * p[1] + p[2]) / 2),
        slope((p[2] - p[0]) / 2),
        start((p[0] + 4 * p[1] + p[2]) / 6) {}

  float operator()(float t) const {
    const float t2 = t * t;
    const float t3 = t2 * t;
    return cubic * t3 + square * t2 + slope * t + start;
  }

  float cubic, square, slope, start;
};

}  // namespace orvanite
