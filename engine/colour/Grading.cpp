// SPDX-License-Identifier: BSD-3-Clause
//
// The keyer's colour arithmetic: its own encoding, grading sets and working space.
#include "engine/QMXOrvaniteTable.h"
#include "engine/colour/Encoding.h"

float QMXOrvaniteTable::toLinear(float v) const { return orvanite::toLinear(v, colourspace); }

float QMXOrvaniteTable::fromLinear(float v) const { return orvanite::fromLinear(v, colourspace); }

float QMXOrvaniteTable::regrade(float v, int channel, int set) const {
  return orvanite::regrade(v, exposure[set][channel], gamma[set][channel], offset[set][channel]);
}

float QMXOrvaniteTable::bgLinearRegrade(float v, int channel) const {
  return neutralScale[channel] * regrade(toLinear(v), channel, 1);
}

float QMXOrvaniteTable::origSpace(float v, int channel) const {
  return fromLinear(v / neutralScale[channel]);
}

void QMXOrvaniteTable::clampColours() {
  constexpr float neutralLow = 0.001f;  // a darker neutral would scale the other channels away
  const auto clamp = [](float& v, float low) { v = v < low ? low : v > 1 ? 1 : v; };
  for (int c = 0; c < 3; ++c) {
    clamp(neutral[c], neutralLow);
    clamp(screen[c], 0);
    clamp(replace[c], 0);
    clamp(background[c], 0);
    clamp(mp[c], 0);
  }
  clamp(screenRange, 0);
}
