// SPDX-License-Identifier: BSD-3-Clause
//
// A second float keyer: half tables and one pixel at a time, written for reading and not for
// speed. It must give every bit that the engine gives, except that any number that is none equals
// any other. Shares only ColourModel.h with the integer model, nothing with the engine.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "tests/engine/ColourModel.h"
#include "tests/engine/HalfModel.h"
#include "tests/engine/Pixel.h"

namespace model {

class FloatModel {
 public:
  int result = 0;  // of the build
  Parameters p;    // as a build leaves them

  float neutralScale[3] = {};
  std::vector<std::uint16_t> floatTable[3];
  float screenScale = 0;
  float screenLinear[3] = {}, replaceLinear[3] = {}, bgColourLinear[3] = {};
  bool gradeActive[2] = {};
  float saturation[2][3][3] = {};
  float clipLow = 0, clipScale = 0;

  explicit FloatModel(const Parameters& parameters) : p(conditioned(parameters)) {
    const Screen screen(p);
    result = screen.result != 0 ? screen.result : p.ref ? 3 : 0;
    if (result != 0) return;
    std::copy_n(screen.neutralScale, 3, neutralScale);
    screenScale = 1.0f / screen.linear[screen.primary];
    Curve curves[3];
    keyCurves(p, screen, curves);
    for (int c = 0; c < 3; ++c) {
      floatTable[c] = spline(curves[c], limited(screen.midpoint[c], 0.0f, 65504.0f));
      screenLinear[c] = screen.linear[c];
      replaceLinear[c] = neutralScale[c] * toLinear(p.replace[c], p.colourspace);
      bgColourLinear[c] = neutralScale[c] * toLinear(p.background[c], p.colourspace);
    }
    for (int set = 0; set < 2; ++set) {
      for (int c = 0; c < 3; ++c)
        if (p.offset[set][c] != 0.0f || p.exposure[set][c] != 1.0f || p.gamma[set][c] != 1.0f)
          gradeActive[set] = true;
      saturationMatrix(p, screen, set, saturation[set]);
    }
    float k = 0;
    for (int c = 0; c < 3; ++c) {
      const float step = 0.577f * p.screenRange;
      const float moved = c == screen.primary ? p.screen[c] - step : p.screen[c] + step;
      const float share = fromHalf(floatTable[c][toHalf(moved < 0.0f ? 0.0f : moved) & 0x7fff]);
      k = c == 0 ? share : k + share;
    }
    clipLow = limited(k < 1.0f ? 1.0f - k : 0.0f, 0.0f, 0.499f);
    clipScale = 1.0f / (1.0f - 2.0f * clipLow);
  }

  Output<float> key(const Instance& instance, const Present& present,
                    const Inputs<float>& in) const {
    return present.fg ? keyed(instance, in) : backgroundOnly(present, in);
  }

 private:
  std::vector<std::uint16_t> spline(const Curve& curve, float e) const {
    std::vector<std::uint16_t> table(32768);
    float controls[8];
    curve.controls(controls);
    const float top = limited(5.0f * e, 1.0f, 65504.0f);
    const int knots[6] = {0,     toHalf(e * 0.5f), toHalf(e), toHalf((top + e) * 0.5f), toHalf(top),
                          0x7c00};
    float light = 0;
    int u = 0;
    for (int i = 1; i <= 5; ++i) {
      const float start = fromHalf(knots[i - 1]);
      const float w = knots[i] != knots[i - 1] ? 1.0f / (fromHalf(knots[i]) - start) : 0.0f;
      for (; u < knots[i]; ++u) {
        const float x = fromHalf(u);
        light = toLinear(x, p.colourspace);
        table[static_cast<std::size_t>(u)] =
            entry(screenScale * light * cubic(controls + i - 1, (x - start) * w));
      }
    }
    for (; u < 32768; ++u)
      table[static_cast<std::size_t>(u)] =
          entry(screenScale * light * (curve.base + curve.highlight));
    return table;
  }

  static std::uint16_t entry(float v) { return v == 0.0f ? std::uint16_t{0} : toHalf(v); }

  /// In the background's own path what is no number becomes 0, in the keyed one it stays.
  void saturate(int set, float* colour, bool keepNan) const {
    if (p.saturation[set] == 1.0f) return;
    float result3[3];
    for (int c = 0; c < 3; ++c) {
      const float* row = saturation[set][c];
      const float sum = row[0] * colour[0] + row[1] * colour[1] + row[2] * colour[2];
      result3[c] = (keepNan ? sum < 0.0f : !(sum > 0.0f)) ? 0.0f : sum;
    }
    std::copy_n(result3, 3, colour);
  }

  Output<float> backgroundOnly(const Present& present, const Inputs<float>& in) const {
    float light[3];
    for (std::size_t c = 0; c < 3; ++c)
      light[c] =
          neutralScale[c] * regrade(p, toLinear(in.bg[c], p.colourspace), static_cast<int>(c), 1);
    saturate(1, light, false);
    Output<float> out;
    for (std::size_t c = 0; c < 3; ++c)
      out[c] = fromLinear(light[c] / neutralScale[c], p.colourspace);
    out[3] = present.bgAlpha ? in.bg[3] : 0.0f;
    return out;
  }

  Output<float> keyed(const Instance& instance, const Inputs<float>& in) const {
    float colour[3];
    float shares[3];
    for (std::size_t c = 0; c < 3; ++c) {
      colour[c] = neutralScale[c] * toLinear(in.fg[c], p.colourspace);
      const float raw = in.fg[c] < 0.0f ? 0.0f : in.fg[c];
      shares[c] = fromHalf(floatTable[c][toHalf(raw) & 0x7fff]);
    }
    const float s = limited(shares[0] + shares[1] + shares[2], 0.0f, 1.0f);
    for (int c = 0; c < 3; ++c) {
      colour[c] = colour[c] - s * screenLinear[c];
      if (s > 0.0f && colour[c] < 0.0f) colour[c] = 0.0f;
    }
    float a = 1.0f - s;
    float h = 0.0f;
    if (instance.hold && a < 1.0f && in.hold > 0.0f) {
      h = (1.0f - a) * (in.hold > 1.0f ? 1.0f : in.hold);
      for (int c = 0; c < 3; ++c) colour[c] = colour[c] + h * replaceLinear[c];
      a = a + h;
    }
    if (a > 0.0f)
      for (float& value : colour) value = value / a;
    if (gradeActive[0])
      for (int c = 0; c < 3; ++c)
        colour[c] = neutralScale[c] * regrade(p, colour[c] / neutralScale[c], c, 0);
    saturate(0, colour, true);
    if (a >= clipLow) {
      a = (a - clipLow) * clipScale;
      if (a > 1.0f) a = 1.0f;
    } else {
      a = 0.0f;
    }
    if (instance.garbage && in.garbage > 0.0f) {
      const float kept = 1.0f - (in.garbage > 1.0f ? 1.0f : in.garbage);
      a = kept - (1.0f - a) * kept;
    }
    return shown(in, colour, a, h, instance.alpha);
  }

  Output<float> shown(const Inputs<float>& in, const float* colour, float a, float h,
                      bool alpha) const {
    if (p.view == 2) return {a, a, a, a};
    if (p.view == 5) {
      const float red = 0.25f + 0.75f * h;
      if (a == 0.0f) return {0.0f, 0.0f, 0.0f, a};
      if (a == 1.0f) return {red, 0.0f, 1.0f, a};
      return {red, 0.25f + 0.75f * a, 0.0f, a};
    }
    float working[3];
    if (p.view == 0) {
      for (std::size_t c = 0; c < 3; ++c) {
        float light = toLinear(in.bg[c], p.colourspace);
        if (gradeActive[1]) light = regrade(p, light, static_cast<int>(c), 1);
        working[c] = neutralScale[c] * light;
      }
      saturate(1, working, true);
    } else {
      std::copy_n(bgColourLinear, 3, working);
    }
    Output<float> out;
    for (std::size_t c = 0; c < 3; ++c) {
      const float mixed =
          p.view == 0 || p.view == 1 ? a * (colour[c] - working[c]) + working[c] : colour[c];
      out[c] = fromLinear(mixed / neutralScale[c], p.colourspace);
    }
    out[3] = p.view == 0 && alpha && in.bg[3] != 0.0f ? (1.0f - a) * in.bg[3] + a : a;
    return out;
  }
};

}  // namespace model
