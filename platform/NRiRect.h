// SPDX-License-Identifier: BSD-3-Clause
//
// A rectangle of pixels. Line 0 is the top line of the picture; x2 and y2 lie one past the end.
#pragma once

#include <algorithm>

struct NRiRect {
  int x1 = 0;
  int y1 = 0;
  int x2 = 0;
  int y2 = 0;

  bool empty() const { return x1 >= x2 || y1 >= y2; }
  bool operator==(const NRiRect&) const = default;

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
