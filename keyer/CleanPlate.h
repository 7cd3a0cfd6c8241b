// SPDX-License-Identifier: BSD-3-Clause
//
// The screen without its subject, estimated from the plate itself: where the screen shows, its own
// local colour; behind the subject, what the screen around it leads to. For plates whose screen is
// lit unevenly, keyed as clean plates with 8-bit and 16-bit pictures.
#pragma once

#include <vector>

#include "engine/orvanite.h"
#include "keyer/Screen.h"

namespace orvanite {

/// The screen as it would look without the subject, estimated from one plate.
class CleanPlate {
 public:
  /// Looks at a plate in which a screen was found: a hundred pixels of each cell of a grid.
  CleanPlate(const Plate& plate, const Screen& screen);

  /// The screen's colour at a pixel.
  Rgb at(int x, int y) const;

  /// Writes the whole estimate, alpha included where there is one (1.0).
  /// depth  1 or 2; the picture has the plate's size
  void write(const OtileImage& picture, int depth) const;

 private:
  const Rgb& cell(int x, int y) const;
  Rgb down(int column, int row, float share) const;
  template <class Code>
  void writeCodes(const OtileImage& picture) const;

  int width_, height_, cell_;
  int columns_, rows_;
  std::vector<Rgb> cells_;
};

}  // namespace orvanite
