// SPDX-License-Identifier: BSD-3-Clause
#include "engine/tables/IntegerPlan.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <new>

#include "engine/QMXOrvaniteTable.h"
#include "engine/tables/Rounding.h"

namespace orvanite {

namespace {

constexpr int white = QMXOrvaniteTable::workMax;
constexpr int one = QMXOrvaniteTable::keyOne;
constexpr float working[3] = {white, white, white};

struct Range {
  int low = 0, high = 0;
};

Range rangeOf(const std::int16_t* table, int max) {
  int low = table[0], high = table[0];
  for (int i = 1; i <= max; ++i) {
    low = std::min<int>(low, table[i]);
    high = std::max<int>(high, table[i]);
  }
  return {low, high};
}

bool areWorking(const std::int16_t* const (&tables)[3], int max) {
  for (const std::int16_t* table : tables) {
    const Range r = rangeOf(table, max);
    if (r.low < 0 || r.high > white) return false;
  }
  return true;
}

bool areWorking(const int (&colour)[3]) {
  return std::all_of(colour, colour + 3, [](int v) { return v >= 0 && v <= white; });
}

bool sumsFit(const std::int16_t* const (&tables)[3], int max) {
  Range sum;
  for (const std::int16_t* table : tables) {
    const Range r = rangeOf(table, max);
    sum.low += r.low;
    sum.high += r.high;
  }
  return sum.low >= -32768 && sum.high <= 32767;
}

/// Whether tables of codes are their factors times light throughout.
bool areLines(const std::int16_t* const (&tables)[3], int max, const float (&factors)[3]) {
  for (const float factor : factors) {
    if (!(std::fabs(factor) < 32767.0f)) return false;
  }
  const auto differ = [&, most = static_cast<float>(max)](int i) {
    const float light = static_cast<float>(i) / most;
    return (tables[0][i] ^ roundToShort(factors[0] * light)) |
           (tables[1][i] ^ roundToShort(factors[1] * light)) |
           (tables[2][i] ^ roundToShort(factors[2] * light));
  };
  if (differ(max / 2) != 0) return false;
  int differing = 0;
  for (int i = 0; i <= max; ++i) differing |= differ(i);
  return differing == 0;
}

bool outputIsLine(const QMXOrvaniteTable& e) {
  const float max = static_cast<float>(e.dstMax);
  int differing = 0;
  for (const auto& table : e.outputTable) {
    for (int j = 0; j <= white; ++j) {
      const float code = max * (static_cast<float>(j) / static_cast<float>(white)) + 0.5f;
      differing |= table[j] ^ static_cast<int>(code);
    }
  }
  return differing == 0;
}

void packBytes(const std::int16_t* const (&work)[3], const std::int16_t* const (&key)[3],
               IntegerPlan::Packed& to) {
  for (int c = 0; c < 3; ++c) {
    for (int i = 0; i < 256; ++i) {
      const std::uint64_t value = static_cast<std::uint16_t>(work[c][i]);
      const std::uint64_t share =
          key[c] != nullptr ? static_cast<std::uint16_t>(key[c][i]) : std::uint64_t{0};
      to.bytes[c][i] = value << (16 * c) | share << 48;
      const std::uint64_t both = value | share << 16;
      for (int k = 0; k < 4; ++k) to.parts[c][k][i] = static_cast<std::uint8_t>(both >> 8 * k);
    }
  }
}

/// By channel, the first whose table holds the same entries.
template <class Tables>
void findEqual(const Tables& tables, int entries, int (&same)[3]) {
  for (int c = 0; c < 3; ++c) {
    same[c] = 0;
    while (same[c] < c && !std::equal(tables[c], tables[c] + entries, tables[same[c]])) ++same[c];
  }
}

/// The first channel that has the same in both.
int firstOfBoth(const int (&a)[3], const int (&b)[3], int c) {
  int first = 0;
  while (a[first] != a[c] || b[first] != b[c]) ++first;
  return first;
}

/// The table, made on first need; null without memory.
template <class Entry>
Entry* roomFor(std::unique_ptr<Entry[]>& table, std::size_t entries) {
  if (table == nullptr) table.reset(new (std::nothrow) Entry[entries]);
  return table.get();
}

/// False when there is no memory for the entries.
bool packWords(const std::int16_t* const (&work)[3], const std::int16_t* const (&key)[3],
               IntegerPlan::Packed& to) {
  int sameWork[3], sameKey[3];
  findEqual(work, 65536, sameWork);
  findEqual(key, 65536, sameKey);
  for (int c = 0; c < 3; ++c) {
    const int same = firstOfBoth(sameWork, sameKey, c);
    std::uint32_t* const words = roomFor(to.ownedWords[same], 65536);
    if (words == nullptr) return false;
    to.words[c] = words;
    if (same != c) continue;
    for (int i = 0; i < 65536; ++i) {
      words[i] = static_cast<std::uint32_t>(static_cast<std::uint16_t>(work[c][i])) |
                 static_cast<std::uint32_t>(static_cast<std::uint16_t>(key[c][i])) << 16;
    }
  }
  return true;
}

/// Plate or clean plate. False when the vector kernels cannot take it.
bool packKeyed(Depth depth, const std::int16_t* const (&work)[3],
               const std::int16_t* const (&key)[3], IntegerPlan::Packed& to) {
  const int max = maxOf(depth);
  if (!areWorking(work, max)) return false;
  to.keysFit = sumsFit(key, max);
  if (depth == Depth::shorts) return packWords(work, key, to);
  packBytes(work, key, to);
  return true;
}

/// Whether the kernels' formula gives the screen table. It always does for a finite scale.
bool screenFollows(const QMXOrvaniteTable& e, float scale) {
  if (!(scale > 0 && scale < 5e5f)) return false;  // 4095 of it fit the kernels' 32 bits
  for (int i = 0; i < one; ++i) {
    const float amount = std::min(static_cast<float>(i) * scale + 0.5f, 16384.0f);
    if (static_cast<int>(amount) != e.screenTable[i]) return false;
  }
  return e.screenTable[0] == 0;
}

/// Finds the clipped line that the clip table holds from the table itself: its low end is a whole
/// key unit, the one before the first entry above 0. False when the kernels' formula does not give
/// every entry.
bool clipFollows(const QMXOrvaniteTable& e, IntegerPlan& plan) {
  const auto end = e.clipTable + one + 1;
  const int low =
      static_cast<int>(std::upper_bound(e.clipTable, end, std::int16_t{0}) - e.clipTable) - 1;
  const float range = 1 - 2 * (static_cast<float>(low) / 4096.0f);
  plan.clipLow = static_cast<float>(low);
  plan.clipRange = range > 0 ? range : 1 / 4096.0f;  // a step from 0 to 4096
  plan.clipSlope = 1 / plan.clipRange;
  plan.clipIsIdentity = low == 0 && e.clipTable[1] == 1;
  const auto entry = [](float line) {
    return static_cast<int>(std::max(std::min(line, 4096.0f), 0.0f) + 0.5f);
  };
  bool slopeWillDo = true;
  for (int i = 0; i <= one; ++i) {
    const float above = static_cast<float>(i) - plan.clipLow;
    if (entry(above / plan.clipRange) != e.clipTable[i]) return false;
    slopeWillDo = slopeWillDo && entry(above * plan.clipSlope) == e.clipTable[i];
    plan.clipIsIdentity = plan.clipIsIdentity && e.clipTable[i] == i;
  }
  if (!slopeWillDo) plan.clipSlope = 0;
  return true;
}

bool saturationFits(const int (&matrix)[3][3]) {
  for (const int(&row)[3] : matrix) {
    std::int64_t sum = 0;
    for (int m : row) sum += std::abs(std::int64_t{m});
    if (sum * white + 2048 > std::numeric_limits<std::int32_t>::max()) return false;
  }
  return true;
}

bool gradeIsIdentity(const QMXOrvaniteTable& e) {
  for (int c = 0; c < 3; ++c) {
    int differing = 0;
    for (int j = 0; j <= white; ++j) differing |= e.fgGradeTable[c][j] ^ j;
    if (differing != 0) return false;
  }
  return true;
}

template <class Code>
void throughGrade(const QMXOrvaniteTable& e, const Code (&output)[3][IntegerPlan::workEntries],
                  Code (&graded)[3][IntegerPlan::workEntries]) {
  for (int c = 0; c < 3; ++c) {
    for (int j = 0; j <= white; ++j) graded[c][j] = output[c][e.fgGradeTable[c][j]];
  }
}

void composeBytes(const QMXOrvaniteTable& e, int c, IntegerPlan& plan) {
  for (int i = 0; i < 256; ++i) {
    const unsigned fg = plan.outputCodes[c][e.fgGradeTable[c][e.fgLinear[c][i]]];
    const unsigned bg = plan.outputCodes[c][e.bgTable[c][i]];
    plan.fgOutput[c][i] = fg << (8 * c);
    plan.bgOutput[c][i] = bg << (8 * c);
    const unsigned code = static_cast<unsigned>(i);
    plan.plateReturns[0] = plan.plateReturns[0] && fg == code;
    plan.plateReturns[1] = plan.plateReturns[1] && bg == code;
  }
}

/// False when there is no memory for the codes.
bool composeWords(const QMXOrvaniteTable& e, IntegerPlan& plan) {
  for (int c = 0; c < 3; ++c) {
    const int same = firstOfBoth(plan.sameBackground, plan.sameOutput, c);
    std::uint16_t* const codes = roomFor(plan.ownedBgCodes[same], 65536);
    if (codes == nullptr) return false;
    plan.bgCodes[c] = codes;
    if (same != c) continue;
    for (int i = 0; i < 65536; ++i) codes[i] = e.outputTable[c][e.bgTable[c][i]];
  }
  return true;
}

/// The depth whose whole range plate, background and destination have.
std::optional<Depth> commonDepth(const QMXOrvaniteTable& e) {
  if (e.fgMax != e.bgMax || e.fgMax != e.dstMax) return std::nullopt;
  for (const Depth depth : {Depth::bytes, Depth::shorts}) {
    if (e.fgMax == maxOf(depth)) return depth;
  }
  return std::nullopt;
}

void update(const QMXOrvaniteTable& e, int changes, IntegerPlan& plan) {
  const std::optional<Depth> depth = commonDepth(e);
  if (plan.depth != depth || !plan.usable) changes = IntegerPlan::all;
  plan.depth = depth;
  plan.usable = plan.refUsable = false;
  if (!depth) return;
  const int max = e.fgMax;

  if ((changes & (IntegerPlan::keys | IntegerPlan::plate)) != 0) {
    if ((changes & IntegerPlan::plate) != 0) {
      // 8-bit tables stay in the first cache: reading them is faster than computing.
      plan.workIsLine = depth == Depth::shorts && areLines(e.fgLinear, max, working);
    }
    plan.plateIsLine =
        plan.workIsLine && areLines(e.keyTable, max, e.keyFactor) && sumsFit(e.keyTable, max);
    plan.bounds = boundsOf(e, *depth);
    plan.fg.keysFit = true;
    if (!plan.plateIsLine && !packKeyed(*depth, e.fgLinear, e.keyTable, plan.fg)) return;
  }
  if ((changes & IntegerPlan::background) != 0) {
    if (!areWorking(e.bgTable, max)) return;
    plan.backgroundIsLine = areLines(e.bgTable, max, working);
    findEqual(e.bgTable, max + 1, plan.sameBackground);
    const std::int16_t* const none[3] = {};
    if (depth == Depth::bytes) packBytes(e.bgTable, none, plan.bg);
  }
  if ((changes & IntegerPlan::output) != 0) {
    plan.outputIsLine = outputIsLine(e);
    findEqual(e.outputTable, white + 1, plan.sameOutput);
  }
  if ((changes & IntegerPlan::grade) != 0) {
    plan.gradeIsIdentity = gradeIsIdentity(e);
    findEqual(e.fgGradeTable, white + 1, plan.sameGrade);
  }
  if (depth == Depth::bytes) {
    plan.plateReturns[0] = plan.plateReturns[1] = true;
    for (int c = 0; c < 3; ++c) {
      if ((changes & IntegerPlan::output) != 0) {
        for (int j = 0; j <= white; ++j) {
          plan.outputCodes[c][j] = static_cast<std::uint8_t>(e.outputTable[c][j]);
        }
      }
      composeBytes(e, c, plan);
    }
  }
  if ((changes & (IntegerPlan::grade | IntegerPlan::output)) != 0 && !plan.gradeIsIdentity) {
    if (depth == Depth::bytes) {
      throughGrade(e, plan.outputCodes, plan.gradedBytes);
      findEqual(plan.gradedBytes, white + 1, plan.sameGraded);
    } else {
      throughGrade(e, e.outputTable, plan.gradedCodes);
      findEqual(plan.gradedCodes, white + 1, plan.sameGraded);
    }
  }
  if (depth == Depth::shorts && (changes & (IntegerPlan::background | IntegerPlan::output)) != 0 &&
      !(plan.backgroundIsLine && plan.outputIsLine) && !composeWords(e, plan)) {
    return;
  }
  for (int set = 0; set < 2; ++set) plan.saturationFits[set] = saturationFits(e.satMatrix[set]);
  plan.screenScale = e.screenScale;
  if (e.refEnabled == 0 && !screenFollows(e, plan.screenScale)) return;
  if (!clipFollows(e, plan)) return;
  plan.screen = {};
  if (e.refEnabled == 0) {
    plan.screen = findSureScreen(e, plan.bounds, static_cast<int>(plan.clipLow));
  }
  const int flat[3] = {e.bgColourWork[0], e.bgColourWork[1], e.bgColourWork[2]};
  plan.usable = areWorking(e.screenWork) && areWorking(e.replaceWork) && areWorking(flat);
  if (plan.usable && e.refEnabled != 0 && e.refMax == max) {
    plan.refUsable = packKeyed(*depth, e.refTable, e.refKeyTable, plan.ref) && plan.fg.keysFit &&
                     plan.ref.keysFit && areWorking(e.refScreenWork);
  }
}

}  // namespace

void updatePlan(QMXOrvaniteTable& engine, int changes) {
  if (engine.plan == nullptr) {
    engine.plan = new (std::nothrow) IntegerPlan;
    changes = IntegerPlan::all;
  }
  if (engine.plan != nullptr) update(engine, changes, *engine.plan);
}

}  // namespace orvanite
