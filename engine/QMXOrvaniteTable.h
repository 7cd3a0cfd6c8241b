// SPDX-License-Identifier: BSD-3-Clause
//
// The keyer: every parameter, the tables derived from them, and the flags that say which tables
// are out of date. It knows nothing of whoever uses it; clients go through engine/orvanite.h.
//
// Where things are done: setters in QMXOrvaniteTable.cpp, encodings in colour/, makeLuts and
// makeLuts32 in tables/, render and the kernels in kernels/.
//
// Units. Working value: linear light times neutralScale; 16383 is 1.0 in integer tables.
// Key units: 4096 is 1.0. Code: a pixel's integer value, 0..max of its image.
// Channels are 0 red, 1 green, 2 blue; bands 0 shadow, 1 midtone, 2 highlight; grading sets
// 0 foreground, 1 background.
//
// Threads: render only reads. Everything else needs the object to itself.
#pragma once

#include <Imath/half.h>

#include <cstdint>

#include "engine/Otile.h"

#if defined(__FAST_MATH__) || (defined(__FINITE_MATH_ONLY__) && __FINITE_MATH_ONLY__ > 0)
#error "-ffast-math changes the bits that are promised: build Orvanite without it"
#endif

namespace orvanite {
struct HalfTables;
struct IntegerPlan;
}  // namespace orvanite

struct QMXOrvaniteTable {
  static constexpr int workMax = 16383;            // the working value of 1.0
  static constexpr int workEntries = workMax + 1;  // tables indexed by a working value
  static constexpr int keyOne = 4096;              // the key unit of 1.0
  static constexpr int halfEntries = 32768;        // one for every non-negative half pattern

  // Out-of-date flags, non-zero is raised. tablesDirty is any of them and keeps render quiet.
  int tablesDirty = 1;
  int matteDirty = 1;
  int screenDirty = 1;
  int fgLinearDirty = 1;
  int bgGradeDirty = 1;
  int fgGradeDirty = 1;
  int holdDirty = 1;
  int garbageDirty = 1;
  int outputDirty = 1;

  // The code that stands for 1.0 in each image; 1 selects the float tables.
  int fgMax = 255;
  int bgMax = 255;
  int refMax = 255;
  int dstMax = 255;
  int gMatteMax = 255;
  int hMatteMax = 255;

  float balance[3] = {0.5f, 0.5f, 0.5f};  // by band, 0..1
  float screen[3] = {0, 0, 1};            // colours by channel, in the images' encoding
  float mp[3] = {0.5f, 0.5f, 0.5f};       // where the midtone band lies
  float replace[3] = {0, 0, 0};           // put back under the hold-out matte
  float background[3] = {0, 0, 0};        // flat background of view 1
  float neutral[3] = {0.5f, 0.5f, 0.5f};  // becomes grey in the working space
  float neutralScale[3] = {};             // linear light to working value, at most 1
  float gain[3] = {0, 0, 0};              // by band, -1..1
  int view = 0;                           // 0 over bg, 1 over flat colour, 2 matte, 5 status
  int holdEnabled = 1;
  int garbageEnabled = 1;
  int refEnabled = 1;
  float screenRange = 0;
  int colourspace = 1;        // 0 linear, 1 log, 2 video, others as linear
  int refScreenWork[3] = {};  // the screen colour as if it were a clean-plate pixel
  int refScreenKey = 0;       // and its projection, at least 1
  float exposure[2][3] = {{1, 1, 1}, {1, 1, 1}};
  float offset[2][3] = {};
  float gamma[2][3] = {{1, 1, 1}, {1, 1, 1}};
  float saturation[2] = {1, 1};  // 0..3
  int satMatrix[2][3][3] = {};   // key units, row is the output channel
  float satMatrix32[2][3][3] = {};
  int gradeActive[2] = {};  // float builds: the set's grading is not the identity
  std::uint16_t fgGradeTable[3][workEntries] = {};  // working value to graded working value
  std::int16_t* fgLinear[3] = {};                   // foreground code to working value
  std::int16_t* bgTable[3] = {};                    // background code to graded working value
  std::int16_t* refTable[3] = {};                   // clean-plate code to working value
  std::int16_t bgColourWork[3] = {};                // working values of the colours
  int screenWork[3] = {};
  int replaceWork[3] = {};
  float screenLinear[3] = {};  // float working values of the colours
  float replaceLinear[3] = {};
  std::int16_t* holdTable = nullptr;      // matte code to key units
  std::int16_t* garbageTable = nullptr;   // matte code to 4096 minus key units
  std::int16_t* keyTable[3] = {};         // foreground code to its share of the projection
  std::int16_t* refKeyTable[3] = {};      // the same for the clean plate
  std::int16_t screenTable[keyOne] = {};  // projection to screen amount
  float bgColourLinear[3] = {};
  std::uint16_t outputTable[3][workEntries] = {};  // working value to destination code
  std::int16_t clipTable[keyOne + 1] = {};         // matte through the screen-range curve
  float screenScale = 0;                           // 1 / the primary channel's linear screen value
  float keyFactor[3] = {};  // integer builds: key units of linear white; NaN where a curve bends
  float clipLow = 0;        // float builds: lower end of the clip, and
  float clipScale = 0;      // 1 / the range that it keeps
  Imath::half* floatTable[3] = {};  // half pattern to the channel's screen amount
  void (*callback)(void*) = nullptr;
  void* callbackData = nullptr;

  orvanite::HalfTables* halfTables = nullptr;  // float builds: encodings by half pattern, or null

  // Integer and float builds clear the same flags, so each must know what the other has done.
  enum Kind { noKind, integerKind, floatKind };
  Kind lastBuilt = noKind;  // by the last successful build; the other's tables are stale

  // Integer builds: what the vector kernels read beside the tables; null when there is none.
  orvanite::IntegerPlan* plan = nullptr;

  QMXOrvaniteTable() = default;
  ~QMXOrvaniteTable() { nukeTables(); }
  QMXOrvaniteTable(const QMXOrvaniteTable&) = delete;
  QMXOrvaniteTable& operator=(const QMXOrvaniteTable&) = delete;

  /// Frees every heap table and raises the flags of what has to be built again. Notifies first.
  void nukeTables();

  /// Has fn(data) called on every change; null switches it off.
  void installCallback(void (*fn)(void*), void* data);

  // Setters: condition the argument; nothing happens when it equals what is stored; otherwise
  // store, raise flags, notify. Their ranges stand in engine/orvanite.h. They cannot fail.
  void setScreen(float r, float g, float b);
  void setScreenRange(float v);
  void setReplace(float r, float g, float b);
  void setBackground(float r, float g, float b);
  void setMp(float r, float g, float b);
  void setNeutral(float r, float g, float b);
  void setBalance(int band, float v);
  void setGain(int band, float v);
  void setExposure(float r, float g, float b, int set);
  void setGamma(float r, float g, float b, int set);
  void setOffset(float r, float g, float b, int set);
  void setSaturation(float v, int set);
  void useHold(int on);
  void useGarbage(int on);
  void useRef(int on);
  void setView(int code);
  void setColourspace(int code);
  void setDstMax(int max);

  // These discard the tables, whose sizes they decide. A maximum below 1 is refused.
  void setFgMax(int max);
  void setBgMax(int max);
  void setRefMax(int max);
  void setGMatteMax(int max);
  void setHMatteMax(int max);

  /// Value in the current encoding to linear light, and back. Formulas: colour/Encoding.h.
  float toLinear(float v) const;
  float fromLinear(float v) const;

  /// exposure * v^(1 / gamma) + offset of a grading set, on linear light; no clamp.
  float regrade(float v, int channel, int set) const;

  /// Background value in the current encoding to a graded working value.
  float bgLinearRegrade(float v, int channel) const;

  /// Working value back to the current encoding.
  float origSpace(float v, int channel) const;

  /// Brings the colour parameters into the range that integer tables can hold: neutral into
  /// 0.001..1, the other colours, mp and screenRange into 0..1. A NaN stays. Raises no flag.
  void clampColours();

  /// Builds what is out of date; the results are those of orvanite_makeLuts.
  int makeLuts();
  int makeLuts32();

  /// A smooth curve over n entries of out: from base + shadow, past base + midtone at the
  /// fraction e (0..1) of the range, to base + highlight. A uniform cubic B-spline.
  static void spline_lut(float* out, float base, float shadow, float midtone, float highlight,
                         float e, int n);

  /// The same curve over half values, times scale and linear light: 32768 entries of table.
  /// Midtones lie at the value e (0..65504), highlights from 5 e on.
  void spline_lut32(Imath::half* table, float base, float shadow, float midtone, float highlight,
                    float e, float scale) const;

  /// Keys a tile; the results are those of orvanite_render.
  int render(int depth, int width, int height, Otile* tile);

  // Choices of the float kernels are types, so that each combination is a kernel of its own.
  struct Otrue {
    static constexpr bool value = true;
  };
  struct Ofalse {
    static constexpr bool value = false;
  };

  /// The definition of the float kernels, kernels/QMXOrvaniteRender32.h. 0 done, 1 refused.
  template <class Linear, class Hold, class Garbage, class Alpha>
  int QMXOrvaniteRender32(int width, int height, Otile* tile, Linear, Hold, Garbage, Alpha) const;

 private:
  void changed();  // raise tablesDirty and notify
  bool discarding_ = false;
};
