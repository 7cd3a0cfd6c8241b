// SPDX-License-Identifier: BSD-3-Clause
//
// The tests' own arithmetic of encodings, grading, rounding and key curves, in single precision
// and step by step: a second writing of what the engine must compute, sharing nothing with it.
// The integer and the float model stand on it.
#pragma once

#include <climits>
#include <cmath>

#include "tests/engine/Parameters.h"

namespace model {

// Compilers know powers of constant bases and replace them by functions that round otherwise; a
// base that they cannot see is left alone.
inline float power(float base, float exponent) {
  const volatile double hidden = static_cast<double>(base);
  return static_cast<float>(std::pow(hidden, static_cast<double>(exponent)));
}

inline float commonLogarithm(float v) {
  return static_cast<float>(std::log10(static_cast<double>(v)));
}

/// Truncates what has already had its 0.5 added; the ends saturate and what is no number is 0.
inline int truncated(float v) {
  if (std::isnan(v)) return 0;
  if (v >= 0x1p31f) return INT_MAX;
  if (v <= -0x1p31f) return INT_MIN;
  return static_cast<int>(v);
}

inline int rounded(float v) { return truncated(v + 0.5f); }

inline int limited(int v, int low, int high) { return v < low ? low : v > high ? high : v; }

/// A number that is none stays so.
inline float limited(float v, float low, float high) { return v < low ? low : v > high ? high : v; }

inline float toLinear(float v, int space) {
  if (space == 1) return power(10.0f, (v - 1.0f) / 0.49019608f);
  if (space == 2) {
    const float w = v < 0.0f ? 0.0f : v;
    const float t = w <= 0.081f ? w / 4.5f : power((w + 0.099f) / 1.099f, 2.2222223f);
    return power(t, 0.6f);
  }
  return v;
}

inline float fromLinear(float v, int space) {
  if (space == 1) return v <= 0.0f ? 0.0f : std::fma(0.49019608f, commonLogarithm(v), 1.0f);
  if (space == 2) {
    const float t = v <= 0.0f ? 0.0f : power(v, 1.6666666f);
    return t < 0.018f ? 4.5f * t : std::fma(1.099f, power(t, 0.45f), -0.099f);
  }
  return v;
}

inline float regrade(const Parameters& p, float v, int channel, int set) {
  return std::fma(p.exposure[set][channel], power(v, 1.0f / p.gamma[set][channel]),
                  p.offset[set][channel]);
}

/// What every setter does to its argument before it stores it.
inline Parameters conditioned(Parameters p) {
  for (int i = 0; i < 3; ++i) {
    if (!(p.mp[i] > 0.0f)) p.mp[i] = 0.0f;
    p.balance[i] = limited(p.balance[i], 0.0f, 1.0f);
    p.gain[i] = limited(p.gain[i], -1.0f, 1.0f);
  }
  if (!(p.screenRange > 0.0f)) p.screenRange = 0.0f;
  for (float& saturation : p.saturation) saturation = limited(saturation, 0.0f, 3.0f);
  return p;
}

/// What an integer build does to the stored colours besides.
inline Parameters clamped(Parameters p) {
  for (int c = 0; c < 3; ++c) {
    p.neutral[c] = limited(p.neutral[c], 0.001f, 1.0f);
    p.screen[c] = limited(p.screen[c], 0.0f, 1.0f);
    p.replace[c] = limited(p.replace[c], 0.0f, 1.0f);
    p.background[c] = limited(p.background[c], 0.0f, 1.0f);
    p.mp[c] = limited(p.mp[c], 0.0f, 1.0f);
  }
  p.screenRange = limited(p.screenRange, 0.0f, 1.0f);
  return p;
}

/// The neutral scale, the channels' roles and the weights of the colour difference.
struct Screen {
  int result = 0;  // of the build: 1 or 2 when the colours cannot be used
  float neutralScale[3] = {};
  float linear[3] = {};    // the screen colour in the working space
  float midpoint[3] = {};  // likewise
  int primary = 0, weakest = 0, middle = 0;
  float difference = 0;

  explicit Screen(const Parameters& p) {
    float light[3];
    for (int c = 0; c < 3; ++c) light[c] = toLinear(p.neutral[c], p.colourspace);
    if (light[0] == 0.0f && light[1] == 0.0f && light[2] == 0.0f)
      for (float& l : light) l = 0.5f;
    int s = 0;
    if (light[1] < light[0]) s = 1;
    if (light[2] < light[s]) s = 2;
    if (light[s] == 0.0f) {
      result = 1;
      return;
    }
    if (p.screen[0] == 0.0f && p.screen[1] == 0.0f && p.screen[2] == 0.0f) {
      result = 2;
      return;
    }
    for (int c = 0; c < 3; ++c) {
      neutralScale[c] = light[s] / light[c];
      linear[c] = neutralScale[c] * toLinear(p.screen[c], p.colourspace);
      midpoint[c] = neutralScale[c] * toLinear(p.mp[c], p.colourspace);
    }
    float best = -1.0f;
    for (int c = 0; c < 3; ++c)
      if (linear[c] > best) {
        best = linear[c];
        primary = c;
      }
    weakest = (primary + 1) % 3;
    best = linear[primary];
    for (int c = 0; c < 3; ++c)
      if (linear[c] < best) {
        best = linear[c];
        weakest = c;
      }
    middle = 3 - primary - weakest;
    const float towardsWeakest = (1.0f - p.balance[1]) * (linear[primary] - linear[weakest]);
    const float towardsMiddle = p.balance[1] * (linear[primary] - linear[middle]);
    difference = towardsWeakest + towardsMiddle;
    if (difference <= 0.0f) result = 2;
  }
};

/// The cubic between two knots of a key curve; p holds the four control values around it.
inline float cubic(const float* p, float t) {
  const float t2 = t * t;
  const float t3 = t2 * t;
  const float a = ((3.0f * (p[1] - p[2]) - p[0] + p[3]) / 6.0f) * t3;
  const float b = ((p[0] - 2.0f * p[1] + p[2]) / 2.0f) * t2;
  const float c = ((p[2] - p[0]) / 2.0f) * t;
  const float d = (p[0] + 4.0f * p[1] + p[2]) / 6.0f;
  return ((a + b) + c) + d;
}

/// How much a channel's key curve is lifted in each tonal band, and where it stands.
struct Curve {
  float base = 0, shadow = 0, midtone = 0, highlight = 0;

  /// The control values; the last one stands twice or three times, as the knots need.
  void controls(float* p) const {
    p[0] = p[1] = base + shadow;
    p[2] = base + (shadow + midtone) / 2.0f;
    p[3] = base + midtone;
    p[4] = base + (midtone + highlight) / 2.0f;
    p[5] = p[6] = p[7] = base + highlight;
  }
};

/// The three curves of a build. With a clean plate the weights are not scaled by the screen.
inline void keyCurves(const Parameters& p, const Screen& screen, Curve* curves) {
  const float lead = p.ref ? 1.0f : screen.linear[screen.primary] / screen.difference;
  const int m = screen.middle, q = screen.weakest, first = screen.primary;
  const float* scale = screen.neutralScale;
  curves[m] = {-lead * p.balance[1] * scale[m], p.balance[0] - p.balance[1], 0.0f,
               p.balance[2] - p.balance[1]};
  curves[q] = {-lead * (1.0f - p.balance[1]) * scale[q], p.balance[1] - p.balance[0], 0.0f,
               p.balance[1] - p.balance[2]};
  curves[first] = {lead * scale[first], p.gain[0], p.gain[1], p.gain[2]};
}

inline void saturationMatrix(const Parameters& p, const Screen& screen, int set,
                             float (*matrix)[3]) {
  const float luma[3] = {0.299f, 0.587f, 0.114f};
  const float saturation = p.saturation[set];
  for (int r = 0; r < 3; ++r)
    for (int k = 0; k < 3; ++k)
      matrix[r][k] = (screen.neutralScale[r] / screen.neutralScale[k]) *
                     ((1.0f - saturation) * luma[k] + saturation * (r == k ? 1.0f : 0.0f));
}

}  // namespace model
