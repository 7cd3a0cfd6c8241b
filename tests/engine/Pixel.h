// SPDX-License-Identifier: BSD-3-Clause
//
// One pixel of a tile: what is there to read, and what comes out.
#pragma once

#include <array>

#include "engine/Choices.h"
#include "engine/View.h"
#include "tests/engine/Parameters.h"

/// Which channels a tile supplies.
struct Present {
  bool fg = true, bg = true, bgAlpha = true, hold = true, garbage = true, ref = true;
};

/// The choices that the dispatcher has to make.
inline orvanite::Choices chosen(const Parameters& p, const Present& present) {
  const bool composite = orvanite::viewOf(p.view) == orvanite::View::composite;
  return {.ref = p.ref && present.ref,
          .linear = p.colourspace == 0,
          .hold = p.hold && present.hold,
          .garbage = p.garbage && present.garbage,
          .alpha = !composite || present.bgAlpha};
}

/// Samples of one pixel: red, green, blue, alpha.
template <class Sample>
struct Inputs {
  std::array<Sample, 3> fg = {};
  std::array<Sample, 4> bg = {};
  std::array<Sample, 3> ref = {};
  Sample hold = 0, garbage = 0;
};

/// Red, green, blue and alpha; alpha counts only where it is written.
template <class Sample>
using Output = std::array<Sample, 4>;
