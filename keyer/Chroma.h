// SPDX-License-Identifier: BSD-3-Clause
//
// Colour that a file stores more coarsely than light, as most movies and JPEG do, leaves fringes on
// edges when it is keyed. Here it is led by the light, which is stored in full: around each pixel
// red and blue less light are taken for straight lines over light.
// Source: K. He, J. Sun, X. Tang, "Guided Image Filtering", ECCV 2010, with windows of 3 x 3
// pixels.
// Knows plates and what is looked at of them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/Depth.h"
#include "keyer/Look.h"

namespace orvanite {

/// How far a plate's colour is to be led by its light, 0..1: all the way where it is stored more
/// coarsely, some of it where strong grain lies over it, not at all elsewhere.
///
/// look  the plate, reduced; its rows run the loops
/// sure  which of its pixels are screen
float chromaLead(const Plate& plate, const Look& look, const Mask& sure);

/// The rows of a plate of codes, colour led by light, one after the other. Beyond the frame its
/// outermost pixels go on. The same rows wherever one begins.
class LedRows {
 public:
  /// image  the plate
  /// first  the row that comes first
  LedRows(const OtileImage& image, Depth depth, int width, int height, int first, float lead);

  /// Writes the codes of the next row as words, `width` of red, green and blue each.
  void next(const std::array<std::uint16_t*, 3>& words);

 private:
  float* room(std::vector<float>& ring, int y, std::size_t planes);
  void load(int y);
  void fit(int y);

  OtileImage image_;
  Depth depth_;
  int width_, height_, next_;
  float lead_;
  std::ptrdiff_t stride_;            // of a row, and a pixel at either end
  std::vector<float> rows_, lines_;  // three of each, the next in the oldest's place
};

}  // namespace orvanite
