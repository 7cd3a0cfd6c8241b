// SPDX-License-Identifier: BSD-3-Clause
//
// Finding the screen in a plate: which hue it has, how much of the frame it fills, how even it is.
// Looks at pixels of any depth through a grid of samples; knows nothing of the engine's tables.
#pragma once

#include <array>
#include <vector>

#include "base/Depth.h"
#include "engine/orvanite.h"

namespace orvanite {

/// Red, green and blue in the plate's encoding; 1.0 is white.
using Rgb = std::array<float, 3>;

/// A picture to look at. Only the colours are read.
struct Plate {
  OtileImage image{};          // where its pixels lie; the caller owns them
  int width = 0;               // pixels, at least 1
  int height = 0;              // rows, at least 1
  Depth depth = Depth::bytes;  // of its samples
};

/// A rectangle of pixels, x and y from the top left.
struct Box {
  int x = 0;       // column of the first pixel
  int y = 0;       // row of the first pixel
  int width = 1;   // pixels
  int height = 1;  // rows
};

/// One pixel's colour.
Rgb colourAt(const Plate& plate, int x, int y);

/// What stands for many values: their mean, or the one in the middle.
enum class Average { mean, median };

/// The colour of a box, channel by channel. Throws Error (wrongUse) when the box is empty or
/// reaches beyond the plate.
Rgb colourOf(const Plate& plate, const Box& box, Average average = Average::median);

/// A pixel of a plate.
struct Pixel {
  Rgb colour{};  // in the plate's encoding
  int x = 0;     // column
  int y = 0;     // row from the top
};

/// Pixels of an even grid over the plate, at most about `most` of them.
std::vector<Pixel> sampleGrid(const Plate& plate, int most = 40000);

/// What findScreen saw.
struct Screen {
  bool found = false;          // whether there is a screen; the rest counts only then
  float confidence = 0;        // how sure that is, 0..1
  int primary = 1;             // its strongest channel: 0 red, 1 green, 2 blue
  Rgb colour{};                // the median of its pixels
  std::array<float, 2> hue{};  // the shares of red and green in its light
  float coverage = 0;          // its share of the frame, 0..1
  float evenness = 0;          // its darkest tenth over its brightest, in the primary channel, 0..1
  std::vector<Pixel> screenPixels;      // samples that are surely screen, darkest first
  std::vector<Pixel> foregroundPixels;  // samples that surely are not

  /// Whether it stands out as screens do: by its place, its area and its colour. What does not may
  /// be a meadow, a wall or a stall of fruit.
  bool sure() const;

  /// The median colour of the screen pixels around a fraction (0 darkest, 1 brightest) of them.
  Rgb colourAtFraction(float fraction) const;
};

/// Looks for a screen of any hue. Uneven light, grain and a subject that covers most of the frame
/// are borne; without a screen `found` is false and the rest says how little there was.
Screen findScreen(const Plate& plate);

/// How much of the frame, 0..1, has the hue of a screen of this colour, in whatever light.
/// colour  in the plate's encoding
float coverageOf(const Plate& plate, const Rgb& colour);

/// A screen's colour in a word: "green", "blue", "teal", "olive" and so on.
const char* nameOfColour(const Rgb& colour);

}  // namespace orvanite
