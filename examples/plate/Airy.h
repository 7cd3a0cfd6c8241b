// SPDX-License-Identifier: BSD-3-Clause
//
// Things that light passes through or that move while the shutter is open: the scarf's sheer tail,
// the glass and its water, the ball; and the dry grass in the glass.
// Builds on Strands.h for the grass. Glass and veil do not bend what is behind them, so that the
// matte stays the whole truth.
#pragma once

#include <vector>

#include "examples/plate/Strands.h"

namespace orvanite::plate {

class Airy {
 public:
  /// `pixel`: the width of a pixel in scene units.
  Airy(const Options& options, V3 screenLight, float pixel);

  /// The layers at a pixel's centre (x, y) in scene units, averaged over the pixel.
  Layer veil(float x, float y) const;
  Layer glass(float x, float y) const;
  Layer flyingBall(float x, float y) const;

  /// Plumes of grass, back to front, behind every solid thing.
  std::vector<Segment> grass() const;

 private:
  Layer ribbon(float x, float y, int which) const;
  Layer glassAt(float x, float y) const;
  Layer ballAt(float x, float y, float turn) const;

  V3 screenTint;
  float spillStrength, pixel, time;
};

}  // namespace orvanite::plate
