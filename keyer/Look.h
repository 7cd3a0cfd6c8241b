// SPDX-License-Identifier: BSD-3-Clause
//
// A plate as it is looked at: reduced to what decisions need, in codes whatever it holds, so that
// the same thresholds hold for all depths.
#pragma once

#include "keyer/Planes.h"
#include "keyer/Screen.h"

namespace orvanite {

/// How a plate's values are encoded.
enum class Encoding {
  codes,  // as displays show them: about even steps to the eye
  light   // linear light; looked at as codes
};

/// A reduced plate.
struct Look {
  int width = 0, height = 0;  // of the plate, in pixels
  int factor = 1;             // pixels of the plate to one looked at, along each side
  Encoding encoding = Encoding::codes;
  Colours codes;                 // box means of factor x factor pixels; 1.0 is white
  RowLoop rows = bandAfterBand;  // what is shared among threads
  float grain = 0.002f;          // standard deviation of a channel of a looked-at pixel, in codes
};

/// Reduces a plate to at most about `most` pixels.
/// rows  runs the loops of all that is made of the look; must live as long as it
Look lookAt(const Plate& plate, Encoding encoding, const RowLoop& rows = bandAfterBand,
            int most = 240000);

/// A colour of the plate as codes, and back.
float codeOfLight(float light);
float lightOfCode(float code);

}  // namespace orvanite
