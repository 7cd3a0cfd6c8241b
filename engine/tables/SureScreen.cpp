// SPDX-License-Identifier: BSD-3-Clause
//
// What holds for the bounds of the tables over a box of codes holds for every pixel in it, whatever
// curves the tables follow.
#include "engine/tables/SureScreen.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <utility>

#include "engine/QMXOrvaniteTable.h"
#include "engine/tables/Rounding.h"

namespace orvanite {

namespace {

constexpr int one = QMXOrvaniteTable::keyOne;
constexpr int top = 255;

int screenChannel(const QMXOrvaniteTable& e) {
  return static_cast<int>(std::max_element(e.screen, e.screen + 3) - e.screen);
}

/// A box of codes by their upper eight bits: of the screen's channel from `low` to `high`, of the
/// others from 0 to `most`.
struct Box {
  int low, high;
  int most[2];
};

struct Finder {
  const QMXOrvaniteTable& e;
  const TableBounds& bounds;
  const SureScreen& screen;
  int clear;

  /// Whether the definition's steps up to the clip leave nothing of any pixel in the box.
  bool holds(const Box& box) const {
    const int c = screen.channel;
    const int a = screen.others[0], b = screen.others[1];
    const auto own = [&box](const std::int16_t(&of)[256]) {
      return std::pair{of + box.low, of + box.high + 1};
    };
    const auto [firstKey, endOfKeys] = own(bounds.leastKey[c]);
    const int key = *std::min_element(firstKey, endOfKeys) + bounds.leastKey[a][box.most[0]] +
                    bounds.leastKey[b][box.most[1]];
    const int amount = e.screenTable[std::clamp(key, 0, one - 1)];
    if (one - amount > clear) return false;
    const auto left = [&](int channel, int work) {
      return work - ((amount * e.screenWork[channel] + 2048) >> 12);
    };
    // The largest channel's quarter is the matte that the pixel gets at least.
    const auto [firstWork, endOfWork] = own(bounds.mostWork[c]);
    const int largest = std::max({left(c, *std::max_element(firstWork, endOfWork)),
                                  left(a, bounds.mostWork[a][box.most[0]]),
                                  left(b, bounds.mostWork[b][box.most[1]])});
    return largest < 4 * (clear + 1) && largest < QMXOrvaniteTable::workMax;
  }

  /// The screen's other channels, both moved by the same.
  void move(Box& box, int by) const {
    for (int k = 0; k < 2; ++k) {
      const int code = roundToInt(e.screen[screen.others[k]] * static_cast<float>(top));
      box.most[k] = std::clamp(code + by, 0, top - 1);
    }
  }

  /// The largest box of a slot; false when it holds less than the screen's own colour.
  bool grow(Box& box) const {
    move(box, 0);
    if (!holds(box)) return false;
    int held = 0;
    for (int by = top + 1; by > held + 1;) {
      const int middle = (held + by) / 2;
      move(box, middle);
      (holds(box) ? held : by) = middle;
    }
    move(box, held);
    return true;
  }
};

}  // namespace

TableBounds boundsOf(const QMXOrvaniteTable& e, Depth depth) {
  TableBounds bounds;
  const int own = screenChannel(e), step = (maxOf(depth) + 1) / (top + 1);
  for (int c = 0; c < 3; ++c) {
    for (int upper = 0; upper <= top; ++upper) {
      std::int16_t least = std::numeric_limits<std::int16_t>::max(), most = 0;
      if (c != own && upper > 0) {
        least = bounds.leastKey[c][upper - 1];
        most = bounds.mostWork[c][upper - 1];
      }
      const std::ptrdiff_t first = std::ptrdiff_t{step} * upper;
      const std::int16_t* const key = e.keyTable[c] + first;
      const std::int16_t* const work = e.fgLinear[c] + first;
      for (int i = 0; i < step; ++i) {
        least = std::min(least, key[i]);
        most = std::max(most, work[i]);
      }
      bounds.leastKey[c][upper] = least;
      bounds.mostWork[c][upper] = most;
    }
  }
  return bounds;
}

SureScreen findSureScreen(const QMXOrvaniteTable& e, const TableBounds& bounds, int clear) {
  SureScreen found = {};
  found.channel = screenChannel(e);
  found.others[0] = found.channel == 0 ? 1 : 0;
  found.others[1] = found.channel == 2 ? 1 : 2;
  const Finder finder = {e, bounds, found, clear};
  constexpr int slotCodes = SureScreen::slotCodes, last = SureScreen::slots - 1;
  Box box = {slotCodes, 2 * slotCodes - 1, {}};
  while (box.high <= top && !finder.grow(box)) ++box.low, ++box.high;
  if (box.high > top) return found;
  found.any = true;
  found.before = static_cast<std::uint8_t>(box.low - slotCodes);
  for (int slot = 1; slot <= last && box.low <= top; ++slot) {
    box.high = slot == last ? top : std::min(box.high, top);
    if (finder.grow(box)) {
      for (int k = 0; k < 2; ++k) {
        found.below[k][slot] = static_cast<std::uint8_t>(box.most[k] + 1);
      }
    }
    box.low += slotCodes;
    box.high += slotCodes;
  }
  return found;
}

}  // namespace orvanite
