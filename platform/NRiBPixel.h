// SPDX-License-Identifier: BSD-3-Clause
//
// The background pixel of an image: what stands where the image has no pixels. 1.0 is white at
// every depth.
#pragma once

#include <cstdint>

#include "platform/NRiExport.h"

/// Four values, 1.0 is white.
struct NRI_API NRiBPixel {
  float alpha = 0;         // 0 clear, 1 solid
  float blue = 0;          // blue
  float green = 0;         // green
  float red = 0;           // red
  std::uint32_t word = 0;  // free for the owner of the pixel

  /// Component 0 .. 3 in memory order: alpha, blue, green, red.
  float component(int i) const { return i == 0 ? alpha : i == 1 ? blue : i == 2 ? green : red; }
  /// Sets the component that component(i) returns.
  void setComponent(int i, float value) {
    (i == 0 ? alpha : i == 1 ? blue : i == 2 ? green : red) = value;
  }

  /// Brings each component to the nearest value that `depth` bytes a channel can hold: steps of
  /// 1/255 or 1/65535 within 0..1 for 1 and 2, unchanged for others. NaN becomes 0.
  void quantize(int depth);

  /// Exact equality of all five.
  bool operator==(const NRiBPixel&) const = default;
};

/// `value` as a code of 0..max: clamped, rounded to the nearest; NaN becomes 0.
inline unsigned NRiCode(float value, unsigned max) {
  const float scaled = value * static_cast<float>(max) + 0.5f;
  if (!(scaled > 0.0f)) return 0;
  const auto top = static_cast<float>(max);
  return scaled >= top ? max : static_cast<unsigned>(scaled);
}
