// SPDX-License-Identifier: BSD-3-Clause
//
// A rectangle of pixels. Line 0 is the top line of the picture; x2 and y2 lie one past the end.
#pragma once

#include <algorithm>

/// Pixels x1..x2-1 of lines y1..y2-1.
struct NRiRect {
  int x1 = 0;  // first column
  int y1 = 0;  // first line
  int x2 = 0;  // one beyond the last column
  int y2 = 0;  // one beyond the last line

  /// Whether it holds no pixel.
  bool empty() const { return x1 >= x2 || y1 >= y2; }
  /// Equal corners; two empty ones may differ.
  bool operator==(const NRiRect&) const = default;

  /// What both hold.
  NRiRect intersect(const NRiRect& other) const {
    return {std::max(x1, other.x1), std::max(y1, other.y1), std::min(x2, other.x2),
            std::min(y2, other.y2)};
  }
  /// The smallest rectangle that holds both; an empty one counts as nothing.
  NRiRect unite(const NRiRect& other) const {
    if (empty()) return other;
    if (other.empty()) return *this;
    return {std::min(x1, other.x1), std::min(y1, other.y1), std::max(x2, other.x2),
            std::max(y2, other.y2)};
  }
};
