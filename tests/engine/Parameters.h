// SPDX-License-Identifier: BSD-3-Clause
//
// Everything a client can set on an engine, as one value: what engines are built from and what
// the sweeps draw at random.
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>
#include <ostream>

#include "engine/orvanite.h"
#include "tests/engine/Random.h"

/// Arguments for the setters, before any conditioning. Defaults are a new engine's, apart from the
/// clean plate, which few cases want.
struct Parameters {
  int colourspace = 1;
  int view = 0;
  float screen[3] = {0, 0, 1};
  float neutral[3] = {0.5f, 0.5f, 0.5f};
  float replace[3] = {0, 0, 0};
  float background[3] = {0, 0, 0};
  float mp[3] = {0.5f, 0.5f, 0.5f};
  float balance[3] = {0.5f, 0.5f, 0.5f};
  float gain[3] = {0, 0, 0};
  float screenRange = 0;
  float exposure[2][3] = {{1, 1, 1}, {1, 1, 1}};
  float gamma[2][3] = {{1, 1, 1}, {1, 1, 1}};
  float offset[2][3] = {};
  float saturation[2] = {1, 1};
  int fgMax = 255, bgMax = 255, refMax = 255, dstMax = 255, gMatteMax = 255, hMatteMax = 255;
  bool hold = true, garbage = true, ref = false;

  void setAllMaxima(int max) { fgMax = bgMax = refMax = dstMax = gMatteMax = hMatteMax = max; }
};

inline void apply(const Parameters& p, QMXOrvaniteTable* engine) {
  orvanite_useHold(engine, p.hold);
  orvanite_useGarbage(engine, p.garbage);
  orvanite_useRef(engine, p.ref);
  orvanite_setColourspace(engine, p.colourspace);
  orvanite_setView(engine, p.view);
  orvanite_setScreen(engine, p.screen[0], p.screen[1], p.screen[2]);
  orvanite_setNeutral(engine, p.neutral[0], p.neutral[1], p.neutral[2]);
  orvanite_setReplace(engine, p.replace[0], p.replace[1], p.replace[2]);
  orvanite_setBackground(engine, p.background[0], p.background[1], p.background[2]);
  orvanite_setMp(engine, p.mp[0], p.mp[1], p.mp[2]);
  for (int band = 0; band < 3; ++band) {
    orvanite_setBalance(engine, band, p.balance[band]);
    orvanite_setGain(engine, band, p.gain[band]);
  }
  orvanite_setScreenRange(engine, p.screenRange);
  for (int set = 0; set < 2; ++set) {
    const float* exposure = p.exposure[set];
    const float* gamma = p.gamma[set];
    const float* offset = p.offset[set];
    orvanite_setExposure(engine, exposure[0], exposure[1], exposure[2], set);
    orvanite_setGamma(engine, gamma[0], gamma[1], gamma[2], set);
    orvanite_setOffset(engine, offset[0], offset[1], offset[2], set);
    orvanite_setSaturation(engine, p.saturation[set], set);
  }
  orvanite_setFgMax(engine, p.fgMax);
  orvanite_setBgMax(engine, p.bgMax);
  orvanite_setRefMax(engine, p.refMax);
  orvanite_setDstMax(engine, p.dstMax);
  orvanite_setGMatteMax(engine, p.gMatteMax);
  orvanite_setHMatteMax(engine, p.hMatteMax);
}

/// Parameters of any kind: mostly such as a person would set, some at or past their limits.
/// The screen is usable far more often than not; the clean plate is left off and the maxima alone.
inline Parameters randomParameters(Random& random) {
  Parameters p;
  const auto three = [&random](float* to, float low, float high) {
    for (int c = 0; c < 3; ++c) to[c] = random.real(low, high);
  };
  p.colourspace = random.pick({0, 0, 0, 1, 1, 1, 2, 2, 2, 7, -1, std::numeric_limits<int>::min()});
  p.view = random.pick({0, 1, 2, 4, 5});
  three(p.screen, 0.0f, 0.5f);
  p.screen[random.between(0, 2)] = random.real(0.5f, 1.0f);
  if (random.oneIn(6)) three(p.screen, -0.2f, 1.3f);
  if (random.oneIn(2)) three(p.neutral, 0.3f, 0.7f);
  if (random.oneIn(8)) three(p.neutral, 0.001f, 1.5f);
  if (random.oneIn(2)) three(p.replace, 0.0f, 1.1f);
  if (random.oneIn(2)) three(p.background, -0.1f, 1.1f);
  if (random.oneIn(2)) three(p.mp, -0.2f, 1.2f);
  if (random.oneIn(2)) three(p.balance, -0.1f, 1.1f);
  // A weight of 0: infinite light times it is no number.
  if (random.oneIn(8)) std::fill_n(p.balance, 3, random.pick({0.0f, 1.0f}));
  if (random.oneIn(3)) three(p.gain, -0.4f, 0.4f);
  if (random.oneIn(12)) three(p.gain, -1.5f, 1.5f);
  if (random.oneIn(2)) p.screenRange = random.real(-0.05f, 0.5f);
  if (random.oneIn(12)) p.screenRange = 1.5f;
  for (int set = 0; set < 2; ++set) {
    if (random.oneIn(2)) three(p.exposure[set], 0.2f, 2.0f);
    if (random.oneIn(2)) three(p.gamma[set], 0.4f, 2.5f);
    if (random.oneIn(2)) three(p.offset[set], -0.1f, 0.1f);
    if (random.oneIn(2)) p.saturation[set] = random.real(-0.2f, 3.2f);
    if (random.oneIn(16))
      p.gamma[set][random.between(0, 2)] = random.pick({-0.7f, 0.0f, 1e-3f, 50.0f});
    if (random.oneIn(16)) p.exposure[set][random.between(0, 2)] = random.pick({-1.0f, 0.0f, 1e30f});
  }
  p.hold = !random.oneIn(5);
  p.garbage = !random.oneIn(5);
  return p;
}

inline std::ostream& operator<<(std::ostream& out, const Parameters& p) {
  out << std::hexfloat << "space " << p.colourspace << " view " << p.view;
  const auto list = [&out](const char* name, const float* values, int count) {
    out << ' ' << name;
    for (int i = 0; i < count; ++i) out << (i ? ',' : ' ') << values[i];
  };
  list("screen", p.screen, 3);
  list("neutral", p.neutral, 3);
  list("replace", p.replace, 3);
  list("background", p.background, 3);
  list("mp", p.mp, 3);
  list("balance", p.balance, 3);
  list("gain", p.gain, 3);
  list("range", &p.screenRange, 1);
  for (int set = 0; set < 2; ++set) {
    list("exposure", p.exposure[set], 3);
    list("gamma", p.gamma[set], 3);
    list("offset", p.offset[set], 3);
  }
  list("saturation", p.saturation, 2);
  return out << std::defaultfloat << " maxima fg " << p.fgMax << " bg " << p.bgMax << " ref "
             << p.refMax << " dst " << p.dstMax << " garbage " << p.gMatteMax << " hold "
             << p.hMatteMax << " use" << (p.hold ? " hold" : "") << (p.garbage ? " garbage" : "")
             << (p.ref ? " ref" : "");
}
