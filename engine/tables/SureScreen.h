// SPDX-License-Identifier: BSD-3-Clause
//
// Codes of a plate that are screen and nothing else, told without a look-up: by their upper eight
// bits, the screen's channel in slots of eight and a limit for each of the others.
#pragma once

#include <cstdint>

#include "base/Depth.h"

struct QMXOrvaniteTable;

namespace orvanite {

struct SureScreen {
  static constexpr int slotCodes = 8, slots = 16;

  bool any = false;         // whether there are such codes
  int channel = 1;          // the screen's
  int others[2] = {0, 2};   // the other two, to which `below` belongs
  std::uint8_t before = 0;  // slot 0 ends slotCodes above this; the last one has all codes above it
  // Both others below these, in the screen's channel's slot: the view clips the matte to nothing
  // and shows what lies behind. 0 where no code is sure.
  std::uint8_t below[2][slots];
};

/// Bounds of a plate's tables by channel, of all codes with the same upper eight bits; of the
/// channels that are not the screen's, of all codes up to those.
struct TableBounds {
  std::int16_t leastKey[3][256];
  std::int16_t mostWork[3][256];
};
TableBounds boundsOf(const QMXOrvaniteTable& e, Depth depth);

/// Finds them for the views composite and flat.
///
/// bounds  of the engine's tables as they are
/// clear   a matte that is no greater is clipped to 0
/// What is found holds for every plate; mattes, clean plates and saturation are not thought of.
SureScreen findSureScreen(const QMXOrvaniteTable& e, const TableBounds& bounds, int clear);

}  // namespace orvanite
