// SPDX-License-Identifier: BSD-3-Clause
//
// All thresholds on the matte are in units of its grain: before a dull screen a plate's grain is
// many times larger in the matte than in the plate.
#include "keyer/KeyRegions.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "keyer/Masks.h"

namespace orvanite {
namespace {

Plane lightAround(const Look& look, const ScreenPlate& plate) {
  constexpr float around = 6;  // pixels
  Plane light = Plane::unset(plate.sure.width, plate.sure.height);
  eachPixel(light, look.rows,
            [&](std::size_t i) { light[i] = sumAt(look.codes, i) / screenLight(plate, i); });
  return blurred(light, around, look.rows);
}

}  // namespace

KeyRegions keyRegions(const Look& look, const ScreenHue& hue, const ScreenPlate& plate) {
  const int w = plate.sure.width;
  const int h = plate.sure.height;
  const auto p = static_cast<std::size_t>(hue.primary);
  const auto m = static_cast<std::size_t>(hue.middle);
  const auto q = static_cast<std::size_t>(hue.weakest);
  KeyRegions out;
  out.share = Plane::unset(w, h);
  Values<float> keys;
  const auto key = [&](const Colours& c, std::size_t i) {
    return c[p][i] - 0.5f * (c[m][i] + c[q][i]);
  };
  eachPixel(out.share, look.rows, [&](std::size_t i) {
    const float screen = std::max(key(plate.clean, i), 0.01f);
    out.share[i] = std::clamp(key(look.codes, i) / screen, -4.0f, 4.0f);
  });
  for (std::size_t i = 0; i < out.share.size(); i += 7) {
    keys.push_back(std::max(key(plate.clean, i), 0.01f));
  }
  const float lead = quantile(keys, 0.5);  // how vivid the screen is
  // Leaves before a dull green, skin before any red.
  out.alike = hue.primary == 0 ? 1.0f : std::clamp((0.35f - lead) / 0.1f, 0.0f, 1.0f);
  out.grain = 1.22f * look.grain / std::max(lead, 0.02f);
  out.radius = std::clamp(0.8f * out.grain / 0.05f, 0.8f, 2.5f);
  out.calm = out.grain / (3.5f * out.radius);
  out.calmShare = blurred(out.share, out.radius, look.rows);
  const Colours smooth = blurred(look.codes, out.radius, look.rows);
  const float calmLight = 0.03f + 2.5f * look.grain / (3.5f * out.radius);
  // No colour is below 0: of a mix with some screen in it, each channel has at least that share of
  // the screen's. A cloth of another green says by its lack of red that it is no mix. A screen that
  // is fuller elsewhere lacks red as well, but its hue lies not to the side.
  out.alien = Mask(w, h);
  eachPixel(out.calmShare, look.rows, [&](std::size_t i) {
    const float em = plate.clean[m][i], eq = plate.clean[q][i];
    const float first = em < 0.1f ? 9.0f : (smooth[m][i] + calmLight) / em;
    const float second = eq < 0.1f ? 9.0f : (smooth[q][i] + calmLight) / eq;
    const float low = std::min(first, second), high = std::max(first, second);
    if (high <= 1.4f * low + 0.1f) return;
    const HueOffset off =
        offsetOf(hueOfColour({plate.clean[0][i], plate.clean[1][i], plate.clean[2][i]}),
                 hueOf(smooth[0][i], smooth[1][i], smooth[2][i]));
    if (off.beside < 0.03f || off.beside < 0.5f * off.fuller) return;
    out.alien[i] = out.calmShare[i] > low + 0.12f + 3 * out.calm;
    out.calmShare[i] = std::min(out.calmShare[i], low);
  });
  out.light = lightAround(look, plate);
  const Shorter within(1.5f * std::min(0.05f, 0.32f * hue.fromGrey));
  out.screen = Mask(w, h);
  eachPixel(out.screen, look.rows, [&](std::size_t i) {
    if (std::abs(1 - out.calmShare[i]) >= 0.1f + 2.5f * out.calm) return;
    float off = 0;
    for (std::size_t c = 0; c < 3; ++c) {
      off = std::max(off, std::abs(smooth[c][i] - plate.clean[c][i]));
    }
    if (off >= calmLight) return;
    const auto seen = hueOf(smooth[0][i], smooth[1][i], smooth[2][i]);
    const auto own = hueOf(plate.clean[0][i], plate.clean[1][i], plate.clean[2][i]);
    out.screen[i] = within(seen[0] - own[0], seen[1] - own[1]);
  });
  out.inside = hullOf(plate.sure, 5);
  constexpr float apart = 4;  // pixels, of subject and screen
  const Plane screenDistance = distanceWithin(out.screen, apart, look.rows);
  out.subject = Mask::unset(w, h);
  Mask other = Mask::unset(w, h);
  const auto findSubject = [&] {
    eachPixel(other, look.rows, [&](std::size_t i) {
      out.subject[i] = out.calmShare[i] < 0.35f && screenDistance[i] > apart && out.inside[i] != 0;
      other[i] = out.subject[i] == 0;
    });
    return countOf(out.subject) > 0;
  };
  if (!findSubject()) {
    // Nobody stands before the screen: a subject that fills one side of the frame stands beside it.
    out.inside = Mask(w, h, 1);
    findSubject();
  }
  const float purest = std::max(0.06f, quantile(out.calmShare, out.subject, 0.5, look.rows));
  constexpr float deep = 3;  // pixels
  const Plane depth = distanceWithin(other, deep, look.rows);
  out.core = Mask::unset(w, h);
  out.pure = Mask::unset(w, h);
  eachPixel(other, look.rows, [&](std::size_t i) {
    out.core[i] = depth[i] > deep && out.subject[i] != 0;
    out.pure[i] = out.subject[i] != 0 && out.calmShare[i] <= purest;
  });
  out.pureCount = countOf(out.pure);
  distanceTo(out.pure, &out.nearestPure, look.rows);
  return out;
}

}  // namespace orvanite
