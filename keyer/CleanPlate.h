// SPDX-License-Identifier: BSD-3-Clause
//
// The screen without its subject, estimated from the plate itself: where the screen shows, its own
// local colour; behind the subject, what the screen around it leads to.
#pragma once

#include "base/Depth.h"
#include "engine/orvanite.h"
#include "keyer/Look.h"
#include "keyer/Screen.h"

namespace orvanite {

/// The screen as it would look without the subject, estimated from one plate.
class CleanPlate {
 public:
  /// Looks at a plate in which a screen was found.
  CleanPlate(const Plate& plate, const Screen& screen);

  /// The screen's colour at a pixel, in the plate's encoding.
  Rgb at(int x, int y) const;

  /// Writes the whole estimate, alpha included where there is one (1.0).
  /// bytesOf(depth)  1, 2 or 4; the picture has the plate's size
  void write(const OtileImage& picture, Depth depth) const;

 private:
  int width_, height_;
  Encoding encoding_;
  Colours clean_;
};

/// Writes colours that are stretched over a picture of width x height, alpha 1.0. Codes of integer
/// depths are cut at 0 and 1.
void writeStretched(const Colours& codes, Encoding encoding, int width, int height,
                    const OtileImage& picture, Depth depth);

}  // namespace orvanite
