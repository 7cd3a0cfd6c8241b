// SPDX-License-Identifier: BSD-3-Clause
//
// makeLuts: the tables of the 8-bit and 16-bit kernels. All floating-point work that depends only
// on the parameters happens here, once per change; the kernels look up and multiply integers.
//
// Products are formed left to right in single precision, then rounded as Rounding.h says: one
// step of a key table moves 16-bit alpha by 16 codes, so the order of operations is part of the
// promise.
#include <algorithm>
#include <cstddef>
#include <limits>
#include <memory>
#include <new>

#include "engine/QMXOrvaniteTable.h"
#include "engine/tables/Basis.h"
#include "engine/tables/IntegerPlan.h"
#include "engine/tables/Rounding.h"
#include "engine/tables/Scratch.h"

namespace orvanite {

namespace {

constexpr float workOne = 16383.0f;
constexpr float keyOne = 4096.0f;

using Codes = std::int16_t;

/// A table of one entry per code; null when memory runs out.
Codes* newTable(int max) {
  // Greater codes have no exact value in single precision: such a table counts as too large.
  constexpr int largest = 1 << 24;
  if (max > largest) return nullptr;
  return new (std::nothrow) Codes[static_cast<std::size_t>(max) + 1];
}

float fraction(int code, int max) { return static_cast<float>(code) / static_cast<float>(max); }

float unit(float v) { return v < 0 ? 0 : v > 1 ? 1 : v; }

bool allocate(QMXOrvaniteTable& e) {
  bool complete = true;
  const auto need = [&complete](Codes*& table, int max) {
    if (table == nullptr) table = newTable(max);
    complete = complete && table != nullptr;
  };
  for (int c = 0; c < 3; ++c) {
    need(e.fgLinear[c], e.fgMax);
    need(e.bgTable[c], e.bgMax);
    need(e.keyTable[c], e.fgMax);
    if (e.refEnabled != 0) {
      need(e.refTable[c], e.refMax);
      need(e.refKeyTable[c], e.refMax);
    }
  }
  if (e.garbageEnabled != 0) need(e.garbageTable, e.gMatteMax);
  if (e.holdEnabled != 0) need(e.holdTable, e.hMatteMax);
  return complete;
}

/// Working values of every code of an image.
void fillLinear(const QMXOrvaniteTable& e, int channel, int max, Scratch& scratch, Codes* table) {
  const float scale = e.neutralScale[channel] * workOne;
  if (const float* const linear = scratch.linear(max)) {
    for (int i = 0; i <= max; ++i) table[i] = roundToShort(scale * linear[i]);
    return;
  }
  for (int i = 0; i <= max; ++i) table[i] = roundToShort(scale * e.toLinear(fraction(i, max)));
}

/// Key contributions of every code of an image, along the channel's curve.
void fillKey(const QMXOrvaniteTable& e, const Basis& basis, int channel, bool gains, int max,
             float* curve, Scratch& scratch, Codes* table) {
  const KeyCurve k = keyCurve(e, basis, channel, gains);
  QMXOrvaniteTable::spline_lut(curve, k.base, k.shadow, k.midtone, k.highlight,
                               basis.midtones[channel], max + 1);
  if (const float* const linear = scratch.linear(max)) {
    for (int i = 0; i <= max; ++i) table[i] = roundToShort(keyOne * curve[i] * linear[i]);
    return;
  }
  for (int i = 0; i <= max; ++i) {
    table[i] = roundToShort(keyOne * curve[i] * e.toLinear(fraction(i, max)));
  }
}

/// The factor of linear light that gives a channel's key contributions, NaN where it changes along
/// the channel's curve.
float factorOf(const float* curve, int max) {
  int differing = 0;
  for (int i = 1; i <= max; ++i) differing |= curve[i] != curve[0] ? 1 : 0;
  return differing == 0 ? keyOne * curve[0] : std::numeric_limits<float>::quiet_NaN();
}

/// Key tables of the foreground when they are out of date, and of the clean plate whenever it is
/// in use. False when the curve does not fit into memory; then nothing was filled.
bool buildKeys(QMXOrvaniteTable& e, Basis& basis, bool matte, Scratch& scratch) {
  const bool cleanPlate = e.refEnabled != 0;
  if (!matte && !cleanPlate) return true;
  const int longest = cleanPlate ? std::max(e.fgMax, e.refMax) : e.fgMax;
  const std::unique_ptr<float[]> curve(
      new (std::nothrow) float[static_cast<std::size_t>(longest) + 1]);
  if (curve == nullptr) return false;

  deriveCoefficients(e, cleanPlate ? 1.0f : basis.screen[basis.primary] / basis.difference, basis);
  if (matte) {
    for (int i = 0; i < 3; ++i) {
      const int c = basis.order(i);
      fillKey(e, basis, c, true, e.fgMax, curve.get(), scratch, e.keyTable[c]);
      e.keyFactor[c] = factorOf(curve.get(), e.fgMax);
    }
    e.matteDirty = 0;
  }
  if (cleanPlate) {
    for (int i = 0; i < 3; ++i) {
      const int c = basis.order(i);
      fillKey(e, basis, c, false, e.refMax, curve.get(), scratch, e.refKeyTable[c]);
      fillLinear(e, c, e.refMax, scratch, e.refTable[c]);
    }
    e.refScreenKey = 0;
    for (int c = 0; c < 3; ++c) {
      const int code =
          std::clamp(roundToInt(e.screen[c] * static_cast<float>(e.refMax)), 0, e.refMax);
      e.refScreenWork[c] = e.refTable[c][code];
      e.refScreenKey += e.refKeyTable[c][code];
    }
    e.refScreenKey = std::max(e.refScreenKey, 1);  // the kernels divide by it
  }
  return true;
}

void buildScreen(QMXOrvaniteTable& e, float primary) {
  e.screenScale = 1 / primary;
  for (int i = 0; i < QMXOrvaniteTable::keyOne; ++i) {
    e.screenTable[i] = toShort(std::min(16384, roundToInt(static_cast<float>(i) * e.screenScale)));
  }
  e.screenDirty = 0;
}

/// Matte codes to key units, rounded to nearest; inverted for the garbage matte.
void buildMattes(QMXOrvaniteTable& e) {
  const auto keyUnits = [](std::int64_t code, int max) {
    return static_cast<Codes>((QMXOrvaniteTable::keyOne * code + max / 2) / max);
  };
  if (e.garbageEnabled != 0 && e.garbageDirty != 0) {
    for (int i = 0; i <= e.gMatteMax; ++i) {
      e.garbageTable[i] = static_cast<Codes>(QMXOrvaniteTable::keyOne - keyUnits(i, e.gMatteMax));
    }
    e.garbageDirty = 0;
  }
  if (e.holdEnabled != 0 && e.holdDirty != 0) {
    for (int i = 0; i <= e.hMatteMax; ++i) e.holdTable[i] = keyUnits(i, e.hMatteMax);
    e.holdDirty = 0;
  }
}

/// An earlier channel that has this one's scale and, of a grading set, its grading: its table is
/// this one's too. -1 when there is none.
int twin(const QMXOrvaniteTable& e, int c, int set) {
  for (int k = 0; k < c; ++k) {
    if (e.neutralScale[k] != e.neutralScale[c]) continue;
    if (set < 0 || (e.exposure[set][k] == e.exposure[set][c] &&
                    e.gamma[set][k] == e.gamma[set][c] && e.offset[set][k] == e.offset[set][c])) {
      return k;
    }
  }
  return -1;
}

/// The entry of a graded value.
int gradedEntry(float scale, float graded) { return roundToShort(workOne * unit(scale * graded)); }

void buildBackgroundGrade(QMXOrvaniteTable& e, int c, Scratch& scratch) {
  Codes* const table = e.bgTable[c];
  const int n = e.bgMax + 1;
  if (const int k = twin(e, c, 1); k >= 0) {
    std::copy(e.bgTable[k], e.bgTable[k] + n, table);
    return;
  }
  const float scale = e.neutralScale[c];
  if (const float* const linear = scratch.linear(e.bgMax)) {
    float* const values = scratch.values();
    std::copy(linear, linear + n, values);
    scratch.regrade(values, n, c, 1);
    for (int i = 0; i < n; ++i) table[i] = static_cast<Codes>(gradedEntry(scale, values[i]));
    return;
  }
  for (int i = 0; i < n; ++i) {
    const float graded = e.regrade(e.toLinear(fraction(i, e.bgMax)), c, 1);
    table[i] = static_cast<Codes>(gradedEntry(scale, graded));
  }
}

/// The working values as linear light.
float* linearLight(const QMXOrvaniteTable& e, int c, Scratch& scratch) {
  float* const values = scratch.values();
  const float one = e.neutralScale[c] * workOne;
  for (int j = 0; values != nullptr && j < QMXOrvaniteTable::workEntries; ++j) {
    values[j] = static_cast<float>(j) / one;
  }
  return values;
}

void buildForegroundGrade(QMXOrvaniteTable& e, int c, Scratch& scratch) {
  constexpr int n = QMXOrvaniteTable::workEntries;
  std::uint16_t* const table = e.fgGradeTable[c];
  if (const int k = twin(e, c, 0); k >= 0) {
    std::copy(e.fgGradeTable[k], e.fgGradeTable[k] + n, table);
    return;
  }
  const float scale = e.neutralScale[c];
  if (float* const values = linearLight(e, c, scratch)) {
    scratch.regrade(values, n, c, 0);
    for (int j = 0; j < n; ++j) {
      table[j] = static_cast<std::uint16_t>(gradedEntry(scale, values[j]));
    }
    return;
  }
  const float one = scale * workOne;
  for (int j = 0; j < n; ++j) {
    const float graded = e.regrade(static_cast<float>(j) / one, c, 0);
    table[j] = static_cast<std::uint16_t>(gradedEntry(scale, graded));
  }
}

void buildOutput(QMXOrvaniteTable& e, int c, Scratch& scratch) {
  constexpr int n = QMXOrvaniteTable::workEntries;
  std::uint16_t* const table = e.outputTable[c];
  if (const int k = twin(e, c, -1); k >= 0) {
    std::copy(e.outputTable[k], e.outputTable[k] + n, table);
    return;
  }
  // Entries are 16 bits wide, whatever dstMax says.
  const float max = static_cast<float>(e.dstMax);
  float* const values = e.dstMax <= 65535 ? linearLight(e, c, scratch) : nullptr;
  if (values != nullptr) {
    scratch.encode(values, n);
    for (int j = 0; j < n; ++j) {
      float sum = max * values[j] + 0.5f;  // roundToInt, limited before it is truncated
      sum = sum == sum ? sum : 0.0f;
      sum = sum < 0 ? 0.0f : sum > max ? max : sum;
      table[j] = static_cast<std::uint16_t>(static_cast<int>(sum));
    }
    return;
  }
  const float one = e.neutralScale[c] * workOne;
  for (int j = 0; j < n; ++j) {
    const float code = max * e.fromLinear(static_cast<float>(j) / one);
    table[j] = static_cast<std::uint16_t>(std::clamp(roundToInt(code), 0, e.dstMax));
  }
}

/// What the screen-range curve clips at either end: how far the screen colour, moved by
/// screenRange towards grey, falls short of keying as pure screen. 0..0.5.
float clipPoint(const QMXOrvaniteTable& e, const Basis& basis) {
  int key = 0;
  for (int c = 0; c < 3; ++c) {
    // 0.577 is about 1/sqrt(3): a step of length screenRange along a diagonal of the colour cube.
    const double step = 0.577 * static_cast<double>(e.screenRange);
    const double moved = c == basis.primary ? e.screen[c] - step : e.screen[c] + step;
    const float v = static_cast<float>(moved < 0 ? 0 : moved > 1 ? 1 : moved);
    key += e.keyTable[c][std::clamp(roundToInt(static_cast<float>(e.fgMax) * v), 0, e.fgMax)];
  }
  int amount = 0;
  if (e.refEnabled == 0) {
    amount = e.screenTable[std::clamp(key, 0, 4095)];
  } else if (key > 0) {
    amount = std::min(QMXOrvaniteTable::keyOne, QMXOrvaniteTable::keyOne * key / e.refScreenKey);
  }
  const float low = amount <= 4095 ? static_cast<float>(4096 - amount) / keyOne : 0;
  return std::clamp(low, 0.0f, 0.5f);
}

void buildClip(QMXOrvaniteTable& e, float low) {
  const float range = 1 - 2 * low;
  for (int i = 0; i <= QMXOrvaniteTable::keyOne; ++i) {
    const float x = static_cast<float>(i) / keyOne;
    float y = 0;
    // At low = 0.5 the curve is a step and its middle 0 / 0, which counts as 0.
    if (x > low) y = std::min(1.0f, (x - low) / range);
    e.clipTable[i] = toShort(roundToInt(keyOne * y));
  }
}

}  // namespace

}  // namespace orvanite

void QMXOrvaniteTable::spline_lut(float* out, float base, float shadow, float midtone,
                                  float highlight, float e, int n) {
  const float p[7] = {base + shadow,
                      base + shadow,
                      base + (shadow + midtone) / 2,
                      base + midtone,
                      base + (midtone + highlight) / 2,
                      base + highlight,
                      base + highlight};
  const float length = static_cast<float>(n);
  const auto knot = [n, length](float position) {
    return position >= length ? n : position > 0 ? static_cast<int>(position) : 0;
  };
  const int k[5] = {0, knot(length * e * 0.5f), knot(length * e), knot(length * (e + 1) * 0.5f), n};
  int u = 0;
  for (int i = 1; i <= 4; ++i) {
    const float w = k[i] != k[i - 1] ? 1 / static_cast<float>(k[i] - k[i - 1]) : 0;
    const orvanite::Spline segment(p + i - 1);
    const int start = k[i - 1];
    for (; u < k[i]; ++u) out[u] = segment(static_cast<float>(u - start) * w);
  }
}

int QMXOrvaniteTable::makeLuts() {
  using namespace orvanite;
  if (tablesDirty == 0) return built;
  if (fgMax == 1 || bgMax == 1 || refMax == 1 || dstMax == 1 || gMatteMax == 1 || hMatteMax == 1) {
    return makeLuts32();
  }
  clampColours();
  Basis basis;
  if (const BuildResult result = deriveBasis(*this, basis); result != built) return result;
  if (!allocate(*this)) {
    nukeTables();
    return noTables;
  }

  // A float build in between has cleared flags without filling these tables.
  const bool stale = lastBuilt != integerKind;
  int changes = stale ? int{IntegerPlan::all} : 0;
  if (matteDirty != 0) changes |= IntegerPlan::keys;
  if (fgLinearDirty != 0) changes |= IntegerPlan::plate;
  if (bgGradeDirty != 0) changes |= IntegerPlan::background;
  if (fgGradeDirty != 0) changes |= IntegerPlan::grade;
  if (outputDirty != 0) changes |= IntegerPlan::output;
  Scratch scratch(*this);
  if (!buildKeys(*this, basis, matteDirty != 0 || stale, scratch)) {
    lastBuilt = noKind;  // the colours may have been clamped: float tables are stale as well
    return noTables;
  }
  if (refEnabled == 0 && (screenDirty != 0 || stale)) {
    buildScreen(*this, basis.screen[basis.primary]);
  }
  buildMattes(*this);
  for (int c = 0; c < 3; ++c) {
    replaceWork[c] = roundToInt(workOne * basis.replace[c]);
    screenWork[c] = roundToInt(workOne * basis.screen[c]);
    bgColourWork[c] = toShort(roundToInt(neutralScale[c] * workOne * toLinear(background[c])));
    if (fgLinearDirty != 0 || stale) fillLinear(*this, c, fgMax, scratch, fgLinear[c]);
    if (fgGradeDirty != 0) buildForegroundGrade(*this, c, scratch);
    if (outputDirty != 0 || stale) buildOutput(*this, c, scratch);
  }
  for (int c = 0; c < 3; ++c) {
    if (bgGradeDirty != 0 || stale) buildBackgroundGrade(*this, c, scratch);
  }
  fgLinearDirty = bgGradeDirty = outputDirty = fgGradeDirty = 0;

  deriveSaturation(*this);
  for (int set = 0; set < 2; ++set) {
    for (int row = 0; row < 3; ++row) {
      for (int column = 0; column < 3; ++column) {
        satMatrix[set][row][column] = roundToInt(orvanite::keyOne * satMatrix32[set][row][column]);
      }
    }
  }
  buildClip(*this, clipPoint(*this, basis));
  updatePlan(*this, changes);

  lastBuilt = integerKind;
  tablesDirty = 0;
  return built;
}
