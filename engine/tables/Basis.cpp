// SPDX-License-Identifier: BSD-3-Clause
#include "engine/tables/Basis.h"

#include <cstdio>

namespace orvanite {

namespace {

BuildResult deriveNeutral(QMXOrvaniteTable& engine, float& smallest) {
  float(&linear)[3] = engine.neutralScale;
  for (int c = 0; c < 3; ++c) linear[c] = engine.toLinear(engine.neutral[c]);
  if (linear[0] == 0 && linear[1] == 0 && linear[2] == 0) {
    linear[0] = linear[1] = linear[2] = 0.5f;
  }
  int s = linear[1] < linear[0] ? 1 : 0;
  if (linear[2] < linear[s]) s = 2;
  smallest = linear[s];
  return smallest == 0 ? unusableNeutral : built;
}

void deriveRoles(Basis& basis) {
  const float(&screen)[3] = basis.screen;
  int p = 0;
  float best = -1;
  for (int c = 0; c < 3; ++c) {
    if (screen[c] > best) best = screen[p = c];
  }
  int q = (p + 1) % 3;
  best = screen[p];
  for (int c = 0; c < 3; ++c) {
    if (screen[c] < best) best = screen[q = c];
  }
  basis.primary = p;
  basis.weakest = q;
  basis.middle = 3 - p - q;
}

}  // namespace

BuildResult deriveBasis(QMXOrvaniteTable& engine, Basis& basis) {
  float smallest = 0;
  if (deriveNeutral(engine, smallest) != built) return unusableNeutral;
  if (engine.screen[0] == 0 && engine.screen[1] == 0 && engine.screen[2] == 0) {
    std::fprintf(stderr, "Orvanite: Screen colour is zero\n");
    return unusableScreen;
  }
  for (int c = 0; c < 3; ++c) {
    float& scale = engine.neutralScale[c];
    scale = smallest / scale;
    basis.screen[c] = scale * engine.toLinear(engine.screen[c]);
    basis.replace[c] = scale * engine.toLinear(engine.replace[c]);
    basis.midtones[c] = scale * engine.toLinear(engine.mp[c]);
  }
  deriveRoles(basis);

  const float* s = basis.screen;
  const float balance = engine.balance[1];
  basis.difference = (1 - balance) * (s[basis.primary] - s[basis.weakest]) +
                     balance * (s[basis.primary] - s[basis.middle]);
  if (basis.difference <= 0) {
    std::fprintf(stderr, "Orvanite: illegal screen colour\n");
    return unusableScreen;
  }
  return built;
}

void deriveCoefficients(const QMXOrvaniteTable& engine, float primaryWeight, Basis& basis) {
  const float balance = engine.balance[1];
  basis.coefficient[basis.primary] = primaryWeight;
  basis.coefficient[basis.middle] = -primaryWeight * balance;
  basis.coefficient[basis.weakest] = -primaryWeight * (1 - balance);
}

KeyCurve keyCurve(const QMXOrvaniteTable& engine, const Basis& basis, int channel, bool gains) {
  const float* balance = engine.balance;
  const float base = basis.coefficient[channel] * engine.neutralScale[channel];
  if (channel == basis.middle) {
    return {base, balance[0] - balance[1], 0, balance[2] - balance[1]};
  }
  if (channel == basis.weakest) {
    return {base, balance[1] - balance[0], 0, balance[1] - balance[2]};
  }
  if (!gains) return {base, 0, 0, 0};
  return {base, engine.gain[0], engine.gain[1], engine.gain[2]};
}

void deriveSaturation(QMXOrvaniteTable& engine) {
  constexpr float luma[3] = {0.299f, 0.587f, 0.114f};  // ITU-R BT.601
  const float* scale = engine.neutralScale;
  for (int set = 0; set < 2; ++set) {
    const float saturation = engine.saturation[set];
    for (int row = 0; row < 3; ++row) {
      for (int column = 0; column < 3; ++column) {
        // The ratio lets the matrix act on neutral-scaled values as if on unscaled ones.
        engine.satMatrix32[set][row][column] =
            (scale[row] / scale[column]) *
            ((1 - saturation) * luma[column] + saturation * (row == column ? 1.0f : 0.0f));
      }
    }
  }
}

float splineValue(const float* p, float t) { return Spline(p)(t); }

}  // namespace orvanite
