// SPDX-License-Identifier: BSD-3-Clause
//
// What tests/engine/LaneChecks.cpp, built once per target, lets IntegerLanesTest.cpp call.
#pragma once

namespace orvanite {

/// The first difference between a function of kernels/simd/IntegerLanes.h and its definition.
struct LaneDifference {
  long count = 0;  // of all differences
  int a = 0, b = 0, got = 0, wanted = 0;
};

/// Each goes through every pair of arguments that a kernel can meet.
struct LaneChecks {
  LaneDifference (*raised)();         // colour * 16383 / largest
  LaneDifference (*unpremultiply)();  // colour * 4096 / matte
  LaneDifference (*cleanPlate)();     // min(16384, key * 4096 / plate key)
  LaneDifference (*removeScreen)();   // colour less a share of the screen
  LaneDifference (*mix)();
  LaneDifference (*keyProduct)();
  LaneDifference (*mergeAlpha8)();
  LaneDifference (*mergeAlpha16)();
  LaneDifference (*mattes)();  // matte and status codes, key units
  LaneDifference (*lines)();   // codes, working values and key units of linear pictures
};

}  // namespace orvanite
