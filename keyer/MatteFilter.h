// SPDX-License-Identifier: BSD-3-Clause
//
// What the finish does to a matte: clip it, move its edge, soften it. One tile with a border at a
// time, in integers of 16 bits, so that every machine gives the same bits.
// Beyond the frame its outermost pixels go on.
// Uses the standard library and the engine's power function.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace orvanite {

/// A matte's full value.
inline constexpr int solid = 65535;

/// Samples of one matte in rows without gaps.
struct MatteTile {
  int width = 0;
  int height = 0;
  std::vector<std::uint16_t> samples;

  /// Makes room; what stands in it is anything.
  void resize(int newWidth, int newHeight) {
    width = newWidth;
    height = newHeight;
    samples.resize(static_cast<std::size_t>(newWidth) * static_cast<std::size_t>(newHeight));
  }
  /// The first sample of a row.
  std::uint16_t* row(int y) { return samples.data() + static_cast<std::ptrdiff_t>(y) * width; }
  /// The same for readers.
  const std::uint16_t* row(int y) const {
    return samples.data() + static_cast<std::ptrdiff_t>(y) * width;
  }
};

/// A curve from matte to matte: 0 up to `black`, full from `white` on, in between to the power of
/// 1/gamma. Where white does not lie above black the matte is cut at black.
///
/// entries  how many codes the curve is for; 0 stands for the first, full for the last
std::vector<std::uint16_t> matteCurve(float black, float white, float gamma, int entries);

/// How far around a pixel moveEdge looks.
int moveBorder(float pixels);

/// Moves edges inwards by `pixels`, outwards where below 0.
///
/// A step of one pixel takes c, the least of a pixel and its four neighbours, and s, the least of
/// it and its eight, and gives c - (c - s)(sqrt 2 - 1): straight edges along rows and along
/// diagonals move by one pixel alike. A part of a step is the same part of the way.
/// tile     cut down to what is right without its border: by moveBorder on each side
/// scratch  room for it
void moveEdge(MatteTile& tile, float pixels, MatteTile& scratch);

/// How far around a pixel soften looks.
int softenBorder(float pixels);

/// Blurs over `pixels` each way: the mean over pixels + 1 samples, taken twice along rows and twice
/// along columns, the outermost samples counting by their part. Even areas keep their value.
///
/// tile     cut down by softenBorder on each side
/// scratch  room for it
void soften(MatteTile& tile, float pixels, MatteTile& scratch);

/// The mean of each sample's neighbourhood up to `reach` away, along rows and along columns.
///
/// means    of `tile`, smaller than it by `reach` on each side
/// scratch  room for it
void spread(const MatteTile& tile, int reach, MatteTile& means, MatteTile& scratch);

}  // namespace orvanite
