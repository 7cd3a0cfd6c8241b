// SPDX-License-Identifier: BSD-3-Clause
#include "keyer/KeyMattes.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace orvanite {
Plane garbageMatte(const Look& look, const ScreenPlate& plate, const KeyRegions& regions) {
  const int w = plate.sure.width;
  const int h = plate.sure.height;
  Plane off(w, h), light(w, h);
  for (std::size_t i = 0; i < off.size(); ++i) {
    off[i] = 1 - regions.share[i];
    float most = 0;
    for (std::size_t c = 0; c < 3; ++c) {
      most = std::max(most, std::abs(look.codes[c][i] - plate.clean[c][i]));
    }
    light[i] = most;
  }
  off = blurred(off, 1.5f * regions.radius);
  light = blurred(light, 1.5f * regions.radius);
  Mask bright(w, h), thing(w, h);
  for (std::size_t i = 0; i < thing.size(); ++i) bright[i] = light[i] > 0.03f + 1.5f * look.grain;
  bright = opened(bright);
  for (std::size_t i = 0; i < thing.size(); ++i) {
    thing[i] = std::abs(off[i]) > 0.06f + 1.3f * regions.calm || bright[i] != 0 ||
               std::abs(1 - regions.calmShare[i]) > 0.25f + 3 * regions.calm;
  }
  const std::vector<std::uint32_t> part = partsOf(thing);
  std::vector<std::uint32_t> count(thing.size());
  std::vector<float> deepest(thing.size());
  for (std::size_t i = 0; i < thing.size(); ++i) {
    if (thing[i] == 0) continue;
    ++count[part[i]];
    deepest[part[i]] = std::max(deepest[part[i]], std::abs(1 - regions.calmShare[i]));
  }
  for (std::size_t i = 0; i < thing.size(); ++i) {
    if (thing[i] != 0 && (count[part[i]] < 12 || deepest[part[i]] < 0.15f + 2 * regions.calm)) {
      thing[i] = 0;
    }
  }
  Plane matte = distanceTo(thing);
  for (float& v : matte.values) v = std::clamp((v - 3) / 2, 0.0f, 1.0f);
  return matte;
}

namespace {

float ramp(float v, float from, float to) {
  return std::clamp((v - from) / (to - from), 0.0f, 1.0f);
}

}  // namespace

// A subject that has no screen near by is solid although some of it has the screen's hue: dark fur,
// a green leaf. What shows more than half screen may be glass, and stays.
Plane holdOutMatte(const KeyRegions& regions) {
  const Plane& share = regions.calmShare;
  Mask open(share.width, share.height);
  for (std::size_t i = 0; i < open.size(); ++i) {
    open[i] = share[i] > 0.7f || regions.inside[i] == 0;
  }
  const Plane depth = distanceTo(open);
  const auto size = static_cast<float>(std::max(share.width, share.height));
  Plane hold(share.width, share.height);
  for (std::size_t i = 0; i < hold.size(); ++i) {
    if (open[i] != 0) continue;
    hold[i] = ramp(depth[i], 0.03f * size, 0.06f * size) * (1 - ramp(share[i], 0.45f, 0.65f));
  }
  return blurred(hold, 1);
}

}  // namespace orvanite
