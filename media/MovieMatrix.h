// SPDX-License-Identifier: BSD-3-Clause
//
// Luma and colour differences to red, green and blue and back, each pixel by itself, rounded once
// to the nearest code. The scaler of FFmpeg's takes 255/256 for white in 16 bits; this does not.
// Uses the standard library only.
#pragma once

#include <array>
#include <cstddef>

namespace orvanite::media {

/// Planes of one size: luma, blue and red difference, alpha (null: opaque).
struct LumaPlanes {
  std::array<std::byte*, 4> rows{};  // the first of each
  std::array<std::ptrdiff_t, 4> rowBytes{};
  int bytes = 1;  // of a sample: 1, or 2 in this machine's order
  int bits = 8;   // of a code
  int shift = 0;  // empty bits below it
  int alphaWhite = 255;
};

/// How codes mean luma and colour differences.
struct LumaEncoding {
  double kr = 0.2126, kb = 0.0722;  // shares of red and blue in luma
  bool fullRange = false;
};

/// Red, green, blue and alpha, interleaved, in 1 or 2 bytes a sample, rows without gaps.
struct RgbaRows {
  std::byte* first = nullptr;
  int bytes = 1;
  int width = 0, height = 0;
};

/// Fills the rows from planes of their size; Rec. ITU-R BT.601 and BT.709 by their kr and kb.
void lumaToRgba(const LumaPlanes& from, const LumaEncoding& encoding, const RgbaRows& to);
/// The other way; alpha only where there is a plane for it.
void rgbaToLuma(const RgbaRows& from, const LumaEncoding& encoding, const LumaPlanes& to);

}  // namespace orvanite::media
