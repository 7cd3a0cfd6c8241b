// SPDX-License-Identifier: BSD-3-Clause
//
// Mattes drawn by numbers: polygons, ellipses and brush strokes with soft edges, and keys between
// which they move straight. Sums, products and square roots only: the same bits on every machine.
#pragma once

#include <array>
#include <vector>

#include "base/Depth.h"

namespace orvanite {

/// A place, x and y in pixels from the plate's top left corner: the first pixel's centre is at 0.5.
using MaskPoint = std::array<double, 2>;

/// One shape as it is in one frame.
struct MaskShape {
  /// What a shape's points mean.
  enum class Kind { polygon, ellipse, brush };
  /// Which matte it belongs to.
  enum class Use { garbage, holdOut };

  Kind kind = Kind::polygon;      // what its points mean
  Use use = Use::garbage;         // which matte it belongs to
  bool outside = false;           // whether it holds what lies outside
  double softPixels = 1;          // width of the edge, half of it on either side
  std::vector<MaskPoint> points;  // closed corners; an ellipse's centre; a stroke's way
  std::vector<double> radii;      // none; an ellipse's, across and down; a stroke's
  double turnDegrees = 0;         // an ellipse's, from across towards down
  bool operator==(const MaskShape&) const = default;  ///< All the same.
};

/// What it is made of in one frame.
struct MaskKey {
  int frame = 1;                                    // where it stands as these say
  std::vector<MaskPoint> points;                    // as a shape's
  std::vector<double> radii;                        // likewise
  double turnDegrees = 0;                           // likewise
  bool operator==(const MaskKey&) const = default;  ///< All the same.
};

/// A shape that moves.
struct MovingMask {
  MaskShape shape;            // without points and radii
  std::vector<MaskKey> keys;  // one or more, by ascending frames, each of as many numbers

  /// Straight between two keys; before the first and after the last as they are.
  MaskShape at(int frame) const;
  bool operator==(const MovingMask&) const = default;  ///< All the same.
};

/// All that were drawn over a shot.
using Masks = std::vector<MovingMask>;

/// Whether there are some of one use.
bool hasMasks(const Masks& masks, MaskShape::Use use);

/// Those of one use, in a frame.
std::vector<MaskShape> shapesAt(const Masks& masks, MaskShape::Use use, int frame);

/// The same shape over a picture of which one pixel stands for divisor x divisor.
MaskShape shrunk(MaskShape shape, int divisor);

/// How much of a point a shape holds, 0..1: 0.5 on the edge; a polygon by the even-odd rule.
double coverage(const MaskShape& shape, double x, double y);

/// Joins a shape into a row of a matte: the greater of both.
///
/// matte       the first sample
/// sampleStep  from one to the next, in samples
/// x, y        the first pixel's centre
void joinRow(const MaskShape& shape, Depth depth, void* matte, int sampleStep, int width, double x,
             double y);

}  // namespace orvanite
