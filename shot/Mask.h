// SPDX-License-Identifier: BSD-3-Clause
//
// Mattes drawn by numbers: a polygon in the plate's frame with a soft edge.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "media/Picture.h"

namespace orvanite::shot {

struct Mask {
  std::vector<std::array<double, 2>> corners;  // x, y in pixels from the frame's top left; closed
  double softPixels = 1;                       // width of the edge, half of it on either side
  bool outside = false;                        // whether it holds what lies outside
};

/// "X,Y,WIDTH,HEIGHT" with a size above 0. Throws Error (wrongUse) about `subject`.
Mask rectangleOf(const std::string& text, const std::string& subject);

/// "X,Y,X,Y,X,Y,..." with three corners at least. Throws Error (wrongUse) about `subject`.
Mask polygonOf(const std::string& text, const std::string& subject);

/// How much of a point the mask holds, 0..1: 0.5 on the edge, by the even-odd rule within.
double coverage(const Mask& mask, double x, double y);

/// Joins the mask into a matte's alpha: the greater of both.
/// frame  the plate's frame, in the picture's coordinates
void join(const Mask& mask, const media::Window& frame, media::Picture& matte);

}  // namespace orvanite::shot
