// SPDX-License-Identifier: BSD-3-Clause
//
// What the finish does to colours, in the pictures' own codes: sums in whole numbers, so that they
// do not depend on where a tile begins; the rest pixel by pixel in single precision, each operation
// rounded as written (keyer/simd/RowColours.h).
// Beyond the frame its outermost pixels go on.
// Knows the finish in numbers and the engine's tile images.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "engine/orvanite.h"
#include "keyer/Finish.h"
#include "keyer/MatteFilter.h"

namespace orvanite {

/// A rectangle of a frame.
struct FrameArea {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
};

/// A whole frame's samples of one depth.
template <class Sample>
struct Pixels {
  const Sample *red, *green, *blue, *alpha;
  std::ptrdiff_t pixelStep, lineStep;
  int width, height;

  /// Float pictures always have four samples a pixel.
  Pixels(const OtileImage& image, int frameWidth, int frameHeight)
      : red(static_cast<const Sample*>(image.red)),
        green(static_cast<const Sample*>(image.green)),
        blue(static_cast<const Sample*>(image.blue)),
        alpha(static_cast<const Sample*>(image.alpha)),
        pixelStep(std::is_floating_point_v<Sample> ? 4 : image.pixelStep),
        lineStep(image.lineStep),
        width(frameWidth),
        height(frameHeight) {}

  /// Where a pixel's samples lie behind each channel's first.
  std::ptrdiff_t at(int x, int y) const { return y * lineStep + x * pixelStep; }
};

/// A matte's codes as 16 bits, through the finish's curve.
template <class Sample>
class MatteReader {
 public:
  /// Straight where nothing is clipped.
  explicit MatteReader(const Finish& finish);
  /// The mattes of codes four samples apart.
  void read(const Sample* codes, std::ptrdiff_t count, std::uint16_t* matte) const {
    if (curve_.empty()) {
      for (std::ptrdiff_t i = 0; i < count; ++i) matte[i] = plain(codes[4 * i]);
      return;
    }
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      if constexpr (std::is_same_v<Sample, std::uint8_t>) {
        matte[i] = curve_[codes[4 * i]];
      } else {
        matte[i] = curve_[plain(codes[4 * i])];
      }
    }
  }
  /// The matte of a code without the curve; NaN counts as 0.
  static std::uint16_t plain(Sample code) {
    if constexpr (std::is_same_v<Sample, std::uint8_t>) {
      return static_cast<std::uint16_t>(code * 257);
    } else if constexpr (std::is_same_v<Sample, std::uint16_t>) {
      return code;
    } else {
      const float held = code > 0 ? (code < 1 ? code : 1.0f) : 0.0f;
      return static_cast<std::uint16_t>(static_cast<std::int32_t>(held * 65535.0f + 0.5f));
    }
  }

 private:
  std::vector<std::uint16_t> curve_;  // empty: straight
};

/// A whole frame's matte; rows without gaps, as wide as the frame.
struct MatteRows {
  const std::uint16_t* samples;
  int width, height;

  /// The matte of a pixel, and of those after it in the row.
  const std::uint16_t* at(int x, int y) const {
    return samples + static_cast<std::ptrdiff_t>(y) * width + x;
  }
};

/// Room for one thread's colours, kept from tile to tile.
struct ColourScratch {
  std::vector<std::byte> columns, behindColumns;  // sums
  std::vector<std::byte> lines, behindLines;      // what is summed, each where it comes round again
  std::vector<std::byte> pixels;                  // a line with what lies beyond the frame
  std::vector<std::uint16_t> own;                 // likewise
  std::vector<float> inside, behind;              // means of a row
};

/// The finished foreground of a tile.
///
/// keyed   the frame as the engine keyed it, unpremultiplied; four interleaved samples a pixel
/// own     its matte through the curve, before anything else was done to it
/// behind  the background; null where it is not looked at
/// area    the tile
/// matte   its finished matte
/// nearby  how solid its neighbourhood is, for the light wrap; null without one
/// out     four samples a pixel, area.width * area.height pixels; in place of alpha stands full
///         less the finished matte, which is the engine's own where the finish left it
template <class Sample>
void finishColours(const Finish& finish, const Pixels<Sample>& keyed, const MatteRows& own,
                   const Pixels<Sample>* behind, const FrameArea& area, const MatteTile& matte,
                   const MatteTile* nearby, ColourScratch& scratch, Sample* out);

}  // namespace orvanite
