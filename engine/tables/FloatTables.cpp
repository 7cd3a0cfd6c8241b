// SPDX-License-Identifier: BSD-3-Clause
//
// makeLuts32: what the float kernels read. Only the key is tabulated, over half values; colour
// stays arithmetic. Colours are not clamped, the highlights of the key begin at five times the
// midtones, and the clean plate is not supported.
#include <algorithm>
#include <new>

#include "engine/QMXOrvaniteTable.h"
#include "engine/tables/Basis.h"
#include "engine/tables/HalfTables.h"

namespace orvanite {

namespace {

using Imath::half;

constexpr float halfMax = 65504.0f;
constexpr unsigned halfInfinity = 0x7C00;

/// Float to half; a zero of either sign has pattern 0.
half toHalf(float v) { return v == 0 ? half(half::FromBits, 0) : half(v); }

unsigned pattern(float v) { return toHalf(v).bits(); }

float valueOf(unsigned bits) {
  return static_cast<float>(half(half::FromBits, static_cast<std::uint16_t>(bits)));
}

bool allocate(QMXOrvaniteTable& e) {
  for (half*& table : e.floatTable) {
    if (table == nullptr) table = new (std::nothrow) half[QMXOrvaniteTable::halfEntries];
    if (table == nullptr) return false;
  }
  return true;
}

void buildKeys(QMXOrvaniteTable& e, Basis& basis) {
  const float primary = basis.screen[basis.primary];
  const float scale = 1 / primary;  // folded in, so that the three entries sum to 1 at the screen
  deriveCoefficients(e, primary / basis.difference, basis);
  for (int i = 0; i < 3; ++i) {
    const int c = basis.order(i);
    const KeyCurve k = keyCurve(e, basis, c, true);
    e.spline_lut32(e.floatTable[c], k.base, k.shadow, k.midtone, k.highlight, basis.midtones[c],
                   scale);
    if (e.halfTables != nullptr) {
      const float flat[4] = {k.base, k.base, k.base, k.base};
      e.halfTables->examineKey(e.floatTable[c], c, scale, splineValue(flat, 0));
    }
  }
  e.matteDirty = 0;
  e.screenScale = scale;
}

/// How far the screen colour, moved by screenRange towards grey, falls short of pure screen.
void buildClip(QMXOrvaniteTable& e, const Basis& basis) {
  float key = 0;
  for (int c = 0; c < 3; ++c) {
    const float step = 0.577f * e.screenRange;  // about 1/sqrt(3) of it along each axis
    const float moved = c == basis.primary ? e.screen[c] - step : e.screen[c] + step;
    key += static_cast<float>(e.floatTable[c][pattern(moved < 0 ? 0 : moved) & 0x7FFFU]);
  }
  const float low = key < 1 ? 1 - key : 0;
  e.clipLow = std::clamp(low, 0.0f, 0.499f);
  e.clipScale = 1 / (1 - 2 * e.clipLow);
}

}  // namespace

}  // namespace orvanite

void QMXOrvaniteTable::spline_lut32(half* table, float base, float shadow, float midtone,
                                    float highlight, float e, float scale) const {
  using namespace orvanite;
  const float top = std::clamp(5 * e, 1.0f, halfMax);
  const unsigned h[6] = {
      0, pattern(e * 0.5f), pattern(e), pattern((top + e) * 0.5f), pattern(top), halfInfinity};
  const float p[8] = {base + shadow,
                      base + shadow,
                      base + (shadow + midtone) / 2,
                      base + midtone,
                      base + (midtone + highlight) / 2,
                      base + highlight,
                      base + highlight,
                      base + highlight};
  const bool decoded = halfTables != nullptr && halfTables->decodedFor == colourspace;
  unsigned u = 0;
  for (int i = 1; i <= 5; ++i) {
    const float x0 = valueOf(h[i - 1]);
    // The last knot is infinity: its weight is 0 and the curve stays where it is.
    const float w = h[i] != h[i - 1] ? 1 / (valueOf(h[i]) - x0) : 0;
    if (decoded && u < h[i] && halfTables->fillKey(table, u, h[i], p + i - 1, x0, w, scale)) {
      u = h[i];
    }
    for (; u < h[i]; ++u) {
      const float x = valueOf(u);
      table[u] = toHalf(scale * toLinear(x) * splineValue(p + i - 1, (x - x0) * w));
    }
  }
  std::fill(table + halfInfinity, table + halfEntries,
            toHalf(scale * toLinear(halfMax) * (base + highlight)));
}

int QMXOrvaniteTable::makeLuts32() {
  using namespace orvanite;
  Basis basis;
  if (const BuildResult result = deriveBasis(*this, basis); result != built) return result;
  // A NaN counts as 0: a midtones point must be a value that has a place in the table.
  for (float& e : basis.midtones) e = e > 0 ? std::min(e, halfMax) : 0;
  if (!allocate(*this)) {
    nukeTables();
    return noTables;
  }
  if (refEnabled != 0) return noTables;

  // They only save time: without memory for them the build goes on.
  if (halfTables == nullptr) halfTables = new (std::nothrow) HalfTables;
  if (halfTables != nullptr) {
    halfTables->decode(colourspace);
    halfTables->travel(*this);
  }
  // An integer build in between has cleared the flag without filling these tables.
  if (matteDirty != 0 || lastBuilt != floatKind) buildKeys(*this, basis);
  for (int c = 0; c < 3; ++c) {
    replaceLinear[c] = basis.replace[c];
    screenLinear[c] = basis.screen[c];
    bgColourLinear[c] = neutralScale[c] * toLinear(background[c]);
  }
  for (int set = 0; set < 2; ++set) {
    gradeActive[set] = 0;
    for (int c = 0; c < 3; ++c) {
      if (offset[set][c] != 0 || exposure[set][c] != 1 || gamma[set][c] != 1) gradeActive[set] = 1;
    }
  }
  fgLinearDirty = bgGradeDirty = outputDirty = 0;
  deriveSaturation(*this);
  buildClip(*this, basis);

  lastBuilt = floatKind;
  tablesDirty = 0;
  return built;
}
