// SPDX-License-Identifier: BSD-3-Clause
//
// A second integer keyer: tables and one pixel at a time, written for reading and not for speed.
// It must give every bit that the engine gives. Shares only ColourModel.h with the float model,
// nothing with the engine.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "tests/engine/ColourModel.h"
#include "tests/engine/Pixel.h"

namespace model {

class IntegerModel {
 public:
  int result = 0;  // of the build
  Parameters p;    // as a build leaves them

  float neutralScale[3] = {};
  std::vector<int> fgLinear[3], keyTable[3], bgTable[3], refTable[3], refKeyTable[3];
  std::vector<int> fgGradeTable[3], outputTable[3];
  std::vector<int> screenTable, clipTable, holdTable, garbageTable;
  int screenWork[3] = {}, replaceWork[3] = {}, bgColourWork[3] = {};
  int refScreenWork[3] = {}, refScreenKey = 0;
  float saturationFloat[2][3][3] = {};
  int saturation[2][3][3] = {};

  explicit IntegerModel(const Parameters& parameters) : p(clamped(conditioned(parameters))) {
    const Screen screen(p);
    result = screen.result;
    if (result != 0) return;
    std::copy_n(screen.neutralScale, 3, neutralScale);
    buildKeys(screen);
    if (!p.ref) {
      const float scale = 1.0f / screen.linear[screen.primary];
      screenTable.resize(4096);
      for (int i = 0; i < 4096; ++i)
        screenTable[at(i)] = std::min(16384, rounded(static_cast<float>(i) * scale));
    }
    if (p.garbage) fillMatte(garbageTable, p.gMatteMax, true);
    if (p.hold) fillMatte(holdTable, p.hMatteMax, false);
    for (int c = 0; c < 3; ++c) buildChannel(screen, c);
    for (int set = 0; set < 2; ++set) {
      saturationMatrix(p, screen, set, saturationFloat[set]);
      for (int r = 0; r < 3; ++r)
        for (int k = 0; k < 3; ++k)
          saturation[set][r][k] = rounded(4096.0f * saturationFloat[set][r][k]);
    }
    buildClip(screen);
  }

  /// Keys one pixel; codeMask is the largest value that a sample can hold (255 or 65535).
  Output<int> key(const Instance& instance, const Present& present, const Inputs<int>& in,
                  int codeMask) const {
    return present.fg ? keyed(instance, in, codeMask) : backgroundOnly(present, in, codeMask);
  }

 private:
  static std::size_t at(int index) { return static_cast<std::size_t>(index); }

  /// A code past its maximum reads as the maximum.
  static int entry(const std::vector<int>& table, int code) {
    return table[std::min(at(code), table.size() - 1)];
  }

  static float fraction(int code, int max) {
    return static_cast<float>(code) / static_cast<float>(max);
  }

  static std::vector<float> spline(const Curve& curve, float e, int n) {
    std::vector<float> out(at(n));
    float controls[8];
    curve.controls(controls);
    const auto whole = static_cast<float>(n);
    const int knots[5] = {0, truncated(whole * e * 0.5f), truncated(whole * e),
                          truncated(whole * (e + 1.0f) * 0.5f), n};
    int u = 0;
    for (int i = 1; i <= 4; ++i) {
      const int span = knots[i] - knots[i - 1];
      const float w = span != 0 ? 1.0f / static_cast<float>(span) : 0.0f;
      for (; u < knots[i]; ++u)
        out[at(u)] = cubic(controls + i - 1, static_cast<float>(u - knots[i - 1]) * w);
    }
    return out;
  }

  std::vector<int> keyContributions(const Curve& curve, float e, int max) const {
    const std::vector<float> weights = spline(curve, e, max + 1);
    std::vector<int> table(at(max + 1));
    for (int i = 0; i <= max; ++i) {
      const float product = 4096.0f * weights[at(i)] * toLinear(fraction(i, max), p.colourspace);
      table[at(i)] = limited(rounded(product), -32768, 32767);
    }
    return table;
  }

  std::vector<int> workingValues(int channel, int max) const {
    std::vector<int> table(at(max + 1));
    for (int i = 0; i <= max; ++i)
      table[at(i)] =
          rounded(neutralScale[channel] * 16383.0f * toLinear(fraction(i, max), p.colourspace));
    return table;
  }

  void buildKeys(const Screen& screen) {
    Curve curves[3];
    keyCurves(p, screen, curves);
    for (int c = 0; c < 3; ++c)
      keyTable[c] = keyContributions(curves[c], screen.midpoint[c], p.fgMax);
    if (!p.ref) return;
    Curve& primary = curves[screen.primary];
    primary.shadow = primary.midtone = primary.highlight = 0.0f;
    refScreenKey = 0;
    for (int c = 0; c < 3; ++c) {
      refKeyTable[c] = keyContributions(curves[c], screen.midpoint[c], p.refMax);
      refTable[c] = workingValues(c, p.refMax);
      const int code = rounded(p.screen[c] * static_cast<float>(p.refMax));
      refScreenWork[c] = entry(refTable[c], code);
      refScreenKey += entry(refKeyTable[c], code);
    }
    if (refScreenKey <= 0) refScreenKey = 1;
  }

  static void fillMatte(std::vector<int>& table, int max, bool inverted) {
    table.resize(at(max + 1));
    for (int i = 0; i <= max; ++i) {
      const auto key = static_cast<int>((std::int64_t{4096} * i + max / 2) / max);
      table[at(i)] = inverted ? 4096 - key : key;
    }
  }

  void buildChannel(const Screen& screen, int c) {
    const float scale = neutralScale[c];
    replaceWork[c] = rounded(16383.0f * (scale * toLinear(p.replace[c], p.colourspace)));
    screenWork[c] = rounded(16383.0f * screen.linear[c]);
    bgColourWork[c] = rounded(scale * 16383.0f * toLinear(p.background[c], p.colourspace));
    fgLinear[c] = workingValues(c, p.fgMax);
    bgTable[c].resize(at(p.bgMax + 1));
    for (int i = 0; i <= p.bgMax; ++i) {
      const float light = toLinear(fraction(i, p.bgMax), p.colourspace);
      bgTable[c][at(i)] = rounded(16383.0f * limited(scale * regrade(p, light, c, 1), 0.0f, 1.0f));
    }
    fgGradeTable[c].resize(16384);
    outputTable[c].resize(16384);
    for (int j = 0; j < 16384; ++j) {
      const float light = static_cast<float>(j) / (scale * 16383.0f);
      fgGradeTable[c][at(j)] =
          rounded(16383.0f * limited(scale * regrade(p, light, c, 0), 0.0f, 1.0f));
      const float code = static_cast<float>(p.dstMax) * fromLinear(light, p.colourspace);
      outputTable[c][at(j)] = limited(rounded(code), 0, p.dstMax);
    }
  }

  void buildClip(const Screen& screen) {
    const double step = 0.577 * static_cast<double>(p.screenRange);
    int k = 0;
    for (int c = 0; c < 3; ++c) {
      const double moved = static_cast<double>(p.screen[c]) + (c == screen.primary ? -step : step);
      const auto shifted = static_cast<float>(moved < 0 ? 0 : moved > 1 ? 1 : moved);
      k += entry(keyTable[c], rounded(static_cast<float>(p.fgMax) * shifted));
    }
    int amount = 0;
    if (!p.ref)
      amount = screenTable[at(limited(k, 0, 4095))];
    else if (k > 0)
      amount = std::min(4096, 4096 * k / refScreenKey);
    float low = amount <= 4095 ? static_cast<float>(4096 - amount) / 4096.0f : 0.0f;
    low = limited(low, 0.0f, 0.5f);
    clipTable.resize(4097);
    for (int i = 0; i <= 4096; ++i) {
      const float x = static_cast<float>(i) / 4096.0f;
      float kept = 0.0f;
      if (x >= low) {
        kept = (x - low) / (1.0f - 2.0f * low);
        if (kept > 1.0f) kept = 1.0f;
      }
      clipTable[at(i)] = rounded(4096.0f * kept);
    }
  }

  void saturate(int set, int* colour) const {
    if (p.saturation[set] == 1.0f) return;
    int result3[3];
    for (int c = 0; c < 3; ++c) {
      std::int64_t sum = 0;
      for (int k = 0; k < 3; ++k) sum += std::int64_t{saturation[set][c][k]} * colour[k];
      const std::int64_t value = (sum + 2048) >> 12;
      result3[c] = static_cast<int>(std::clamp<std::int64_t>(value, 0, 16383));
    }
    std::copy_n(result3, 3, colour);
  }

  int destination(int c, int working, int codeMask) const {
    return outputTable[c][at(working)] & codeMask;
  }

  int matteCode(int a) const { return static_cast<int>((std::int64_t{p.dstMax} * a + 2048) >> 12); }

  Output<int> backgroundOnly(const Present& present, const Inputs<int>& in, int codeMask) const {
    int colour[3];
    for (int c = 0; c < 3; ++c) colour[c] = entry(bgTable[c], in.bg[at(c)]);
    saturate(1, colour);
    Output<int> out;
    for (int c = 0; c < 3; ++c) out[at(c)] = destination(c, colour[c], codeMask);
    const int alpha = present.bgAlpha ? std::min(in.bg[3], p.bgMax) : 0;
    out[3] = static_cast<int>(std::int64_t{alpha} * p.dstMax / p.bgMax) & codeMask;
    return out;
  }

  Output<int> keyed(const Instance& instance, const Inputs<int>& in, int codeMask) const {
    // How much of the pixel is screen, and which screen.
    int colour[3], screenColour[3];
    int k = 0;
    for (int c = 0; c < 3; ++c) {
      colour[c] = entry(fgLinear[c], in.fg[at(c)]);
      k += entry(keyTable[c], in.fg[at(c)]);
    }
    int s;
    if (instance.ref) {
      int plate = 0;
      for (int c = 0; c < 3; ++c) {
        plate += entry(refKeyTable[c], in.ref[at(c)]);
        screenColour[c] = entry(refTable[c], in.ref[at(c)]);
      }
      if (plate < 1) {
        plate = refScreenKey;
        std::copy_n(refScreenWork, 3, screenColour);
      }
      s = k <= 0 ? 0
                 : static_cast<int>(std::min<std::int64_t>(16384, std::int64_t{k} * 4096 / plate));
    } else {
      s = screenTable[at(limited(k, 0, 4095))];
      std::copy_n(screenWork, 3, screenColour);
    }

    // Take the screen out; what is left is opaque.
    for (int c = 0; c < 3; ++c)
      colour[c] = std::max(0, colour[c] - ((s * screenColour[c] + 2048) >> 12));
    int a = s <= 4096 ? 4096 - s : 0;
    int h = 0;
    if (instance.hold && a != 4096 && in.hold != 0) {
      h = ((4096 - a) * entry(holdTable, in.hold)) >> 12;
      a += h;
      for (int c = 0; c < 3; ++c)
        colour[c] = std::min(16383, colour[c] + ((h * replaceWork[c]) >> 12));
    }

    const int m = std::max({colour[0], colour[1], colour[2]});
    if (m * 4096 > a * 16383) {
      for (int& value : colour) value = value * 16383 / m;
      a = m * 4096 / 16383;
    } else if (a > 0) {
      for (int& value : colour) value = value * 4096 / a;
    }
    for (int c = 0; c < 3; ++c) colour[c] = fgGradeTable[c][at(colour[c])];
    saturate(0, colour);
    a = clipTable[at(a)];
    if (instance.garbage && in.garbage != 0) {
      const int g = entry(garbageTable, in.garbage);
      a = g - (((4096 - a) * g) >> 12);
    }
    return shown(in, codeMask, colour, a, h);
  }

  Output<int> shown(const Inputs<int>& in, int codeMask, const int* colour, int a, int h) const {
    Output<int> out;
    if (p.view == 2) {
      out.fill(matteCode(a) & codeMask);
      return out;
    }
    if (p.view == 5) {
      const int q = p.dstMax / 4;
      const auto risen = [this, q](int amount) {
        return q + static_cast<int>((std::int64_t{amount} * (p.dstMax - q)) >> 12);
      };
      if (a == 0)
        out = {0, 0, 0, 0};
      else if (a == 4096)
        out = {risen(h), 0, p.dstMax, 0};
      else
        out = {risen(h), risen(a), 0, 0};
      out[3] = matteCode(a);
      for (int& value : out) value &= codeMask;
      return out;
    }
    int working[3];
    if (p.view == 0) {
      for (int c = 0; c < 3; ++c) working[c] = entry(bgTable[c], in.bg[at(c)]);
      saturate(1, working);
    } else {
      std::copy_n(bgColourWork, 3, working);
    }
    for (int c = 0; c < 3; ++c) {
      if (p.view == 0 || p.view == 1)
        working[c] += (a * (colour[c] - working[c]) + 2048) >> 12;
      else
        working[c] = colour[c];
      out[at(c)] = destination(c, working[c], codeMask);
    }
    if (p.view == 0) {
      const int alpha = std::min(in.bg[3], p.bgMax);
      a += static_cast<int>(std::int64_t{4096 - a} * alpha / p.bgMax);
    }
    out[3] = matteCode(a) & codeMask;
    return out;
  }
};

}  // namespace model
