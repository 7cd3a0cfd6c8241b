// SPDX-License-Identifier: BSD-3-Clause
//
// The keyer's state: setters, what each makes out of date, and discarding the tables.
#include "engine/QMXOrvaniteTable.h"

#include <algorithm>
#include <initializer_list>

#include "engine/tables/HalfTables.h"
#include "engine/tables/IntegerPlan.h"

namespace {

// A NaN compares false with everything: it becomes 0 here and passes unchanged below.
float positiveOrZero(float v) { return v > 0 ? v : 0; }
float within(float v, float low, float high) { return v < low ? low : v > high ? high : v; }

bool store(float (&to)[3], float r, float g, float b) {
  // Equality on purpose: clients push every parameter every time, and a NaN always counts as new.
  if (to[0] == r && to[1] == g && to[2] == b) return false;
  to[0] = r;
  to[1] = g;
  to[2] = b;
  return true;
}

template <class T>
bool store(T& to, T v) {
  if (to == v) return false;
  to = v;
  return true;
}

void raise(std::initializer_list<int*> flags) {
  for (int* flag : flags) *flag = 1;
}

bool isBand(int band) { return band >= 0 && band <= 2; }
int gradingSet(int set) { return std::clamp(set, 0, 1); }

template <class T>
void release(T*& table) {
  delete[] table;
  table = nullptr;
}

}  // namespace

void QMXOrvaniteTable::changed() {
  tablesDirty = 1;
  if (callback != nullptr) callback(callbackData);
}

void QMXOrvaniteTable::installCallback(void (*fn)(void*), void* data) {
  callback = fn;
  callbackData = data;
}

void QMXOrvaniteTable::nukeTables() {
  // The callback may build tables, which are discarded with the others, and may so run out of
  // memory, which discards them within the notification.
  if (!discarding_) {
    discarding_ = true;
    changed();
    discarding_ = false;
  }
  for (int c = 0; c < 3; ++c) {
    release(fgLinear[c]);
    release(keyTable[c]);
    release(refKeyTable[c]);
    release(bgTable[c]);
    release(refTable[c]);
    release(floatTable[c]);
  }
  release(holdTable);
  release(garbageTable);
  delete halfTables;
  halfTables = nullptr;
  delete plan;
  plan = nullptr;
  lastBuilt = noKind;
  // The foreground grading lives inside the object and depends on no maximum: its flag stays.
  raise({&tablesDirty, &matteDirty, &screenDirty, &fgLinearDirty, &bgGradeDirty, &holdDirty,
         &garbageDirty, &outputDirty});
}

void QMXOrvaniteTable::setScreen(float r, float g, float b) {
  if (!store(screen, r, g, b)) return;
  raise({&matteDirty, &screenDirty});
  changed();
}

void QMXOrvaniteTable::setScreenRange(float v) {
  if (store(screenRange, positiveOrZero(v))) changed();
}

void QMXOrvaniteTable::setReplace(float r, float g, float b) {
  if (store(replace, r, g, b)) changed();
}

void QMXOrvaniteTable::setBackground(float r, float g, float b) {
  if (store(background, r, g, b)) changed();
}

void QMXOrvaniteTable::setMp(float r, float g, float b) {
  if (!store(mp, positiveOrZero(r), positiveOrZero(g), positiveOrZero(b))) return;
  raise({&matteDirty});
  changed();
}

void QMXOrvaniteTable::setNeutral(float r, float g, float b) {
  if (!store(neutral, r, g, b)) return;
  raise({&matteDirty, &screenDirty, &fgLinearDirty, &bgGradeDirty, &fgGradeDirty, &outputDirty});
  changed();
}

void QMXOrvaniteTable::setBalance(int band, float v) {
  if (!isBand(band) || !store(balance[band], within(v, 0, 1))) return;
  raise({&matteDirty});
  changed();
}

void QMXOrvaniteTable::setGain(int band, float v) {
  if (!isBand(band) || !store(gain[band], within(v, -1, 1))) return;
  raise({&matteDirty});
  changed();
}

void QMXOrvaniteTable::setExposure(float r, float g, float b, int set) {
  const int s = gradingSet(set);
  if (!store(exposure[s], r, g, b)) return;
  raise({s == 0 ? &fgGradeDirty : &bgGradeDirty});
  changed();
}

void QMXOrvaniteTable::setGamma(float r, float g, float b, int set) {
  const int s = gradingSet(set);
  if (!store(gamma[s], r, g, b)) return;
  raise({s == 0 ? &fgGradeDirty : &bgGradeDirty});
  changed();
}

void QMXOrvaniteTable::setOffset(float r, float g, float b, int set) {
  const int s = gradingSet(set);
  if (!store(offset[s], r, g, b)) return;
  raise({s == 0 ? &fgGradeDirty : &bgGradeDirty});
  changed();
}

void QMXOrvaniteTable::setSaturation(float v, int set) {
  const int s = gradingSet(set);
  if (!store(saturation[s], within(v, 0, 3))) return;
  raise({s == 0 ? &fgGradeDirty : &bgGradeDirty});
  changed();
}

void QMXOrvaniteTable::useHold(int on) {
  if (store(holdEnabled, on)) changed();
}

void QMXOrvaniteTable::useGarbage(int on) {
  if (store(garbageEnabled, on)) changed();
}

void QMXOrvaniteTable::useRef(int on) {
  if (!store(refEnabled, on)) return;
  raise({&matteDirty, &screenDirty});
  changed();
}

void QMXOrvaniteTable::setView(int code) {
  if (store(view, code)) changed();
}

void QMXOrvaniteTable::setColourspace(int code) {
  if (!store(colourspace, code)) return;
  raise({&matteDirty, &screenDirty, &fgLinearDirty, &bgGradeDirty, &fgGradeDirty, &outputDirty});
  changed();
}

void QMXOrvaniteTable::setDstMax(int max) {
  if (max < 1 || !store(dstMax, max)) return;
  raise({&outputDirty});
  changed();
}

// The notification inside nukeTables comes while the old maximum still stands.
void QMXOrvaniteTable::setFgMax(int max) {
  if (max < 1 || max == fgMax) return;
  nukeTables();
  fgMax = max;
}

void QMXOrvaniteTable::setBgMax(int max) {
  if (max < 1 || max == bgMax) return;
  nukeTables();
  bgMax = max;
}

void QMXOrvaniteTable::setRefMax(int max) {
  if (max < 1 || max == refMax) return;
  nukeTables();
  refMax = max;
}

void QMXOrvaniteTable::setGMatteMax(int max) {
  if (max < 1 || max == gMatteMax) return;
  nukeTables();
  gMatteMax = max;
}

void QMXOrvaniteTable::setHMatteMax(int max) {
  if (max < 1 || max == hMatteMax) return;
  nukeTables();
  hMatteMax = max;
}
