// SPDX-License-Identifier: BSD-3-Clause
//
// Mattes made of pictures: a grey picture's luminance, and the plate's own alpha beside or instead
// of a matte.
#pragma once

#include <array>
#include <cstdint>

#include "base/Depth.h"
#include "engine/orvanite.h"

namespace orvanite {

/// What of a picture is the matte.
enum class MatteChannel : std::uint8_t {
  red,
  green,
  blue,
  alpha,
  luminance,
  automatic  // alpha where it is not opaque all over, luminance otherwise
};

/// What the plate's own alpha does.
enum class SourceAlpha : std::uint8_t {
  ignore,
  insideMask,  // keeps, beside the hold-out matte
  multiply     // takes away: the matte is multiplied by it
};

/// A rectangle of interleaved pixels, four elements each, of a depth.
struct MatteArea {
  Depth depth;  // of the elements
  int width;    // pixels a line
  int lines;    // how many
};

/// Writes the luminance of a picture's colours into its alpha: of red, green and blue as they are
/// encoded, by 0.2126, 0.7152 and 0.0722. A grey pixel's is its own code.
void luminanceToAlpha(const OtileImage& picture, const MatteArea& area);

/// Writes into out's alpha what covers where either does: 1 - (1 - matte) (1 - source), for mattes
/// held inside 0..1.
///
/// matte     its alpha is read; a null alpha is a matte of 0
/// inverted  1 - source stands for source
void unite(const OtileImage& out, const OtileImage& matte, const OtileImage& source, bool inverted,
           const MatteArea& area);

}  // namespace orvanite
