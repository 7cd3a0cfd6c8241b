// SPDX-License-Identifier: BSD-3-Clause
//
// One pixel as the models see it: what is there to read, which choices hold, what comes out.
#pragma once

#include <array>

#include "tests/engine/Parameters.h"

namespace model {

/// Which channels a tile supplies.
struct Present {
  bool fg = true, bg = true, bgAlpha = true, hold = true, garbage = true, ref = true;
};

/// The choices made once a tile.
struct Instance {
  bool ref = false, hold = false, garbage = false, alpha = false;
};

inline Instance chosenInstance(const Parameters& p, const Present& present) {
  return {p.ref && present.ref, p.hold && present.hold, p.garbage && present.garbage,
          p.view != 0 || present.bgAlpha};
}

/// Samples of one pixel: red, green, blue, alpha.
template <class Sample>
struct Inputs {
  std::array<Sample, 3> fg = {};
  std::array<Sample, 4> bg = {};
  std::array<Sample, 3> ref = {};
  Sample hold = 0, garbage = 0;
};

/// Red, green, blue and alpha; alpha counts only where the instance writes it.
template <class Sample>
using Output = std::array<Sample, 4>;

}  // namespace model
