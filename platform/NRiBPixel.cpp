// SPDX-License-Identifier: BSD-3-Clause
//
// Quantizing of background pixels.
#include "platform/NRiBPixel.h"

void NRiBPixel::quantize(int depth) {
  if (depth != 1 && depth != 2) return;
  const unsigned max = depth == 1 ? 255u : 65535u;
  for (int i = 0; i < 4; ++i) {
    setComponent(i, static_cast<float>(NRiCode(component(i), max)) / static_cast<float>(max));
  }
}
