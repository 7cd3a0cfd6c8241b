// SPDX-License-Identifier: BSD-3-Clause
//
// The screen without its subject: which pixels surely show it, and its colour everywhere. Stiff
// where nothing shows, the local truth where it does.
#pragma once

#include <array>

#include "keyer/Look.h"
#include "keyer/ScreenHue.h"

namespace orvanite {

/// A polynomial of second degree in both coordinates, one for each channel.
struct Quadratic {
  std::array<std::array<double, 6>, 3> terms{};
  std::array<float, 3> low{}, high{1, 1, 1};  // what values stay within
  /// The colours over a frame of that size.
  Colours over(int width, int height, const RowLoop& rows = bandAfterBand) const;
};

/// A screen's pixels and its colour at every pixel of a look.
struct ScreenPlate {
  Mask sure;           // pixels that surely show nothing but screen
  Quadratic rigid;     // fits them, whatever lies between
  Colours clean;       // the estimate, in codes
  float misfit = 0;    // what the rigid plate leaves of the sure screen, root of the mean square
  bool local = false;  // whether the estimate follows the sure screen beyond the rigid plate
  Colours sum;         // over the frames that were seen: what they showed as sure screen,
  Plane count;         // and how many did, pixel by pixel
};

/// Pixels that surely show screen, and the rigid plate through them. Sets the look's grain.
ScreenPlate rigidPlate(Look& look, const ScreenHue& hue);

/// Adds what a frame shows of the screen.
void takeIn(ScreenPlate& plate, const Mask& sure, const Look& look);

/// How far a frame's sure screen lies off a clean plate: root of the mean square of averages,
/// codes.
float distanceOf(const Mask& sure, const Look& look, const Colours& clean);

/// The estimate: the rigid plate where it explains the screen, else what is seen of the screen
/// upon it. Never takes in a pixel that is not surely screen.
/// It is made of all frames that were taken in; the look says grain and size.
void estimateClean(ScreenPlate& plate, const Look& look, const ScreenHue& hue);

}  // namespace orvanite
