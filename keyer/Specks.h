// SPDX-License-Identifier: BSD-3-Clause
//
// Islands and pinholes: what stands alone in a matte and is small goes.
// Uses the standard library only.
#pragma once

#include <cstdint>
#include <vector>

#include "keyer/Loops.h"

namespace orvanite {

/// A whole matte, and for each of its cells the least and greatest value that may stand in it, so
/// that even parts need not be read.
struct MattePlane {
  static constexpr int cellWidth = 128;
  static constexpr int cellHeight = 32;

  int width = 0;
  int height = 0;
  std::vector<std::uint16_t> samples;    // rows without gaps
  std::vector<std::uint16_t> low, high;  // of cells, row by row

  /// Makes room; what stands in it is anything.
  void resize(int newWidth, int newHeight);
  /// Cells in a row, and rows of cells.
  int cellColumns() const { return (width + cellWidth - 1) / cellWidth; }
  int cellRows() const { return (height + cellHeight - 1) / cellHeight; }
  /// The place of a cell in `low` and `high`.
  std::size_t cell(int column, int row) const {
    return static_cast<std::size_t>(row) * static_cast<std::size_t>(cellColumns()) +
           static_cast<std::size_t>(column);
  }
  /// The first sample of a row.
  std::uint16_t* row(int y) { return samples.data() + static_cast<std::ptrdiff_t>(y) * width; }
  /// The same for readers.
  const std::uint16_t* row(int y) const {
    return samples.data() + static_cast<std::ptrdiff_t>(y) * width;
  }
  /// Reads a row of cells anew.
  void measure(int cellRow);
};

/// Parts of a matte this far from clear or solid still count as that where islands and pinholes
/// are told apart: 1/32, so that faint grain ties no specks together.
inline constexpr int speckTolerance = 2048;

/// Clears islands: what lies above the tolerance, hangs together over sides and corners, and is at
/// most `pixels` wide and high. A strand that is longer than that stays, however thin it is.
///
/// What lies further than `pixels` from the plane's edges comes out as if the plane went on, so a
/// tile with that border equals the whole.
/// loop  its bodies for one plane run on any threads
void removeIslands(MattePlane& plane, int pixels, const Loop& loop);

/// Fills pinholes: what lies below full by more than the tolerance, hangs together over sides, and
/// is at most `pixels` wide and high. Holes in translucent parts are none: all of it hangs
/// together.
void fillPinholes(MattePlane& plane, int pixels, const Loop& loop);

}  // namespace orvanite
