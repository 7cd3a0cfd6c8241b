// SPDX-License-Identifier: BSD-3-Clause
#include "keyer/KeyMattes.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "keyer/Masks.h"

namespace orvanite {
namespace {

/// Takes out of `thing` what touches the subject and is no part of it, as a crease of the screen
/// does: what is shallow and narrow and no light, and far from all that is deep or wide.
void dropCreases(Mask& thing, const Plane& off, const Look& look, const KeyRegions& regions) {
  constexpr float shallow = 0.3f;
  const auto size = static_cast<float>(std::max(thing.width, thing.height));
  const float narrow = 0.025f * size, far = 0.035f * size;  // pixels
  Mask around = Mask::unset(thing.width, thing.height), firm = around;
  eachPixel(around, look.rows, [&](std::size_t i) { around[i] = thing[i] == 0; });
  const Plane within = distanceWithin(around, narrow, look.rows);
  eachPixel(firm, look.rows, [&](std::size_t i) {
    firm[i] = thing[i] != 0 && (std::abs(1 - regions.calmShare[i]) > shallow || within[i] > narrow);
  });
  const Plane away = distanceWithin(firm, far, look.rows);
  eachPixel(thing, look.rows, [&](std::size_t i) {
    if (away[i] > far && std::abs(off[i]) < shallow && regions.light[i] < 1) thing[i] = 0;
  });
}

}  // namespace

Plane garbageMatte(const Look& look, const ScreenPlate& plate, const KeyRegions& regions) {
  const int w = plate.sure.width;
  const int h = plate.sure.height;
  Plane off = Plane::unset(w, h), light = Plane::unset(w, h);
  eachPixel(off, look.rows, [&](std::size_t i) {
    off[i] = 1 - regions.share[i];
    float most = 0;
    for (std::size_t c = 0; c < 3; ++c) {
      most = std::max(most, std::abs(look.codes[c][i] - plate.clean[c][i]));
    }
    light[i] = most;
  });
  off = blurred(off, 1.5f * regions.radius, look.rows);
  light = blurred(light, 1.5f * regions.radius, look.rows);
  Mask bright = Mask::unset(w, h), thing = Mask::unset(w, h);
  eachPixel(bright, look.rows,
            [&](std::size_t i) { bright[i] = light[i] > 0.03f + 1.5f * look.grain; });
  bright = opened(bright, look.rows);
  eachPixel(thing, look.rows, [&](std::size_t i) {
    thing[i] = std::abs(off[i]) > 0.06f + 1.3f * regions.calm || bright[i] != 0 ||
               std::abs(1 - regions.calmShare[i]) > 0.25f + 3 * regions.calm;
  });
  dropCreases(thing, off, look, regions);
  const Values<std::uint32_t> part = partsOf(thing);
  Values<std::uint32_t> count(thing.size(), 0);
  Values<float> deepest(thing.size(), 0);
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
  constexpr float from = 3, to = 5;  // pixels
  Plane matte = distanceWithin(thing, to, look.rows);
  eachPixel(matte, look.rows, [&](std::size_t i) { matte[i] = ramp(matte[i], from, to); });
  return matte;
}

namespace {

/// How much light varies from pixel to pixel, as a share of the screen's: leaves, feathers and fur
/// vary, smoke, flames and glass hardly do.
Plane textureOf(const Look& look, const ScreenPlate& plate, const KeyRegions& regions) {
  constexpr float fine = 3, around = 6;  // pixels
  Plane light = Plane::unset(regions.share.width, regions.share.height);
  eachPixel(light, look.rows, [&](std::size_t i) { light[i] = sumAt(look.codes, i); });
  light = blurred(light, regions.radius, look.rows);
  const Plane mean = blurred(light, fine, look.rows);
  Plane texture = Plane::unset(light.width, light.height);
  eachPixel(light, look.rows,
            [&](std::size_t i) { texture[i] = (light[i] - mean[i]) * (light[i] - mean[i]); });
  texture = blurred(texture, around, look.rows);
  eachPixel(light, look.rows,
            [&](std::size_t i) { texture[i] = std::sqrt(texture[i]) / screenLight(plate, i); });
  return texture;
}

/// The share of what is no screen around each pixel that holds next to no screen.
Plane pureAround(const Look& look, const KeyRegions& regions) {
  const auto size = static_cast<float>(std::max(regions.share.width, regions.share.height));
  Plane pure = Plane::unset(regions.share.width, regions.share.height);
  Plane other = Plane::unset(regions.share.width, regions.share.height);
  eachPixel(pure, look.rows, [&](std::size_t i) {
    other[i] = regions.screen[i] == 0 && regions.inside[i] != 0;
    pure[i] = other[i] > 0 && regions.calmShare[i] < 0.2f;
  });
  pure = blurred(pure, 0.03f * size, look.rows);
  other = blurred(other, 0.03f * size, look.rows);
  eachPixel(pure, look.rows, [&](std::size_t i) { pure[i] /= std::max(other[i], 0.01f); });
  return pure;
}

}  // namespace

// Well inside: nothing that lies at an edge mixes there.
bool isClear(const Look& look, const ScreenPlate& plate, const KeyRegions& regions) {
  constexpr float apart = 4;  // pixels from screen
  const Plane within = distanceWithin(regions.screen, apart, look.rows);
  std::vector<std::size_t> mixed;  // what may well show some screen, and some of itself
  std::size_t inside = 0, mostly = 0;
  for (std::size_t i = 0; i < within.size(); ++i) {
    if (regions.inside[i] == 0 || within[i] <= apart) continue;
    const float share = regions.calmShare[i];
    ++inside;
    mostly += share > 0.5f;
    if (share > 0.2f && share < 0.85f) mixed.push_back(i);
  }
  if (2 * mostly <= inside || mixed.empty()) return false;
  const Plane texture = textureOf(look, plate, regions);
  double rough = 0, light = 0;
  for (const std::size_t i : mixed) {
    rough += static_cast<double>(texture[i]);
    light += static_cast<double>(regions.light[i]);
  }
  // Of the mean. Glass and glows are lighter than the screen and may have rough rims; what is
  // lighter still hides the screen, as a yellow flower does.
  const auto count = static_cast<double>(mixed.size());
  const bool lit = light > 1.1 * count && light < 1.6 * count;
  return rough < (lit ? 0.12 : 0.05) * count;
}

// A subject that has no screen near by is solid although some of it has the screen's hue: dark fur,
// a green leaf. What shows more than half screen may be glass, and stays, unless it is too rough
// for that and no glow, which is lighter than the screen. Specks of the screen's colour are no
// screen there. Before a vivid screen, as green as no leaf is, specks are gaps, and what shows some
// screen is hair, a veil or a flame.
Plane holdOutMatte(const Look& look, const ScreenPlate& plate, const KeyRegions& regions) {
  const Plane& share = regions.calmShare;
  const Mask large = largeOf(regions.screen);
  Mask open = Mask::unset(share.width, share.height), beside = open;
  eachPixel(open, look.rows, [&](std::size_t i) {
    open[i] = share[i] > 0.7f || regions.inside[i] == 0;
    beside[i] = large[i] != 0 || regions.inside[i] == 0;
  });
  const auto size = static_cast<float>(std::max(share.width, share.height));
  const float from = 0.03f * size, to = 0.06f * size;  // pixels
  const Plane depth = distanceWithin(open, to, look.rows);
  const Plane within = distanceWithin(beside, to, look.rows);
  const bool alike = regions.alike > 0;  // else nothing is held for being rough
  const Plane texture = alike ? textureOf(look, plate, regions) : Plane();
  const Plane pure = alike ? pureAround(look, regions) : Plane();
  Plane hold(share.width, share.height);
  const Mask alien = opened(regions.alien, look.rows);
  const Plane clear = distanceWithin(regions.screen, 6, look.rows);
  eachPixel(hold, look.rows, [&](std::size_t i) {
    if (alien[i] != 0 && regions.inside[i] != 0) hold[i] = ramp(clear[i], 2, 5);
    if (beside[i] != 0) return;
    const float solid = open[i] != 0
                            ? 0.0f
                            : ramp(depth[i], from, to) * (1 - ramp(share[i], 0.45f, 0.65f)) *
                                  (1 - (1 - regions.alike) * ramp(share[i], 0.2f, 0.35f));
    const float rough = alike ? regions.alike * ramp(within[i], 0, to) *
                                    ramp(texture[i], 0.035f, 0.06f) * (1 - ramp(pure[i], 0, 0.08f))
                              : 0;
    const float glow = ramp(regions.light[i], 1.2f, 1.4f) * ramp(share[i], 0.1f, 0.2f);
    hold[i] = std::max(hold[i], (1 - glow) * std::max(solid, rough));
  });
  return blurred(hold, 1, look.rows);
}

}  // namespace orvanite
