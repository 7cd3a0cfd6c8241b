// SPDX-License-Identifier: BSD-3-Clause
//
// Which hue the screen has, whatever it is: a large, smooth, saturated part of the frame that
// touches its border. No primary is looked for; the channels' order follows from the colour.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>

#include "keyer/Look.h"

namespace orvanite {

/// A screen's colour, and how sure it is that there is one.
struct ScreenHue {
  Rgb colour{};                // its median, in codes
  std::array<float, 2> hue{};  // the shares of red and green in the sum of its channels
  float fromGrey = 0;          // how far the hue is from grey's, as a distance of shares
  float coverage = 0;          // share of the frame that has this hue, 0..1
  /// How sure it is that this is a screen, 0..1: by how much of the frame and of its border has the
  /// hue, how saturated and how smooth it is.
  float confidence = 0;
  int primary = 1, middle = 2, weakest = 0;  // channels by their share of the colour
};

/// Below this confidence there is no screen.
constexpr float leastConfidence = 0.25f;

/// The shares of red and green in a colour's sum.
inline std::array<float, 2> hueOf(float r, float g, float b) {
  const float sum = std::max(r + g + b, 1e-4f);
  return {r / sum, g / sum};
}

/// Where a colour's hue lies from a screen's: how much fuller it is, which is above 0 in the dark,
/// where codes lose their lesser channels, and below it where light washes the screen out; and how
/// far to the side.
struct HueOffset {
  float fuller = 0, beside = 0;
};
inline HueOffset offsetOf(const ScreenHue& screen, std::array<float, 2> hue) {
  const float ux = (screen.hue[0] - 1.0f / 3) / std::max(screen.fromGrey, 1e-3f);
  const float uy = (screen.hue[1] - 1.0f / 3) / std::max(screen.fromGrey, 1e-3f);
  const float dx = hue[0] - screen.hue[0];
  const float dy = hue[1] - screen.hue[1];
  return {dx * ux + dy * uy, std::abs(dx * uy - dy * ux)};
}

/// The length of a vector, rounded once.
inline float lengthOf(float x, float y) {
  const double a = static_cast<double>(x), b = static_cast<double>(y);
  return static_cast<float>(std::sqrt(a * a + b * b));
}

/// Whether vectors are shorter than a length: what lengthOf says, without a root for each.
class Shorter {
 public:
  explicit Shorter(float length);
  bool operator()(float x, float y) const {
    const double a = static_cast<double>(x), b = static_cast<double>(y);
    return a * a + b * b < square_;
  }

 private:
  double square_;  // the least whose root is no longer below the length
};

/// Whether a colour may be the screen in the dark: fuller, and hardly to the side. No subject makes
/// a screen fuller.
bool isDarkScreen(const ScreenHue& screen, const Rgb& colour);

/// How far hues of one screen lie from its own.
float hueReach(const ScreenHue& screen);

/// What a colour alone says of its screen: hue, distance from grey, the channels' order.
ScreenHue hueOfColour(const Rgb& colour);

ScreenHue screenHue(const Look& look);

}  // namespace orvanite
