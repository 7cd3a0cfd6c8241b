// SPDX-License-Identifier: BSD-3-Clause
//
// What the integer kernels read of the engine.
#include "engine/kernels/QMXOrvaniteRender.h"

namespace orvanite {

Constants::Constants(const QMXOrvaniteTable& e)
    : view(e.view),
      fgMax(e.fgMax),
      bgMax(e.bgMax),
      refMax(e.refMax),
      dstMax(e.dstMax),
      gMatteMax(e.gMatteMax),
      hMatteMax(e.hMatteMax),
      refScreenKey(e.refScreenKey),
      holdTable(e.holdTable),
      garbageTable(e.garbageTable),
      screenTable(e.screenTable),
      clipTable(e.clipTable) {
  for (int set = 0; set < 2; ++set) {
    saturates[set] = e.saturation[set] != 1.0f;
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) satMatrix[set][i][j] = e.satMatrix[set][i][j];
    }
  }
  for (int c = 0; c < 3; ++c) {
    screenWork[c] = e.screenWork[c];
    replaceWork[c] = e.replaceWork[c];
    refScreenWork[c] = e.refScreenWork[c];
    bgColourWork[c] = e.bgColourWork[c];
    fgLinear[c] = e.fgLinear[c];
    keyTable[c] = e.keyTable[c];
    refTable[c] = e.refTable[c];
    refKeyTable[c] = e.refKeyTable[c];
    bgTable[c] = e.bgTable[c];
    fgGradeTable[c] = e.fgGradeTable[c];
    outputTable[c] = e.outputTable[c];
  }
}

}  // namespace orvanite
