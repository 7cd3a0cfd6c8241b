// SPDX-License-Identifier: BSD-3-Clause
//
// Each row of cells finds the runs of its rows and joins those that touch; then the rows of cells
// are joined. Which run ends up as the root of others does not matter: only extents do.
#include "keyer/Specks.h"

#include <algorithm>
#include <array>

#include "keyer/simd/RowTable.h"

namespace orvanite {
namespace {

struct Run {
  int first, end;  // columns, the second exclusive
  int y;
  int parent;                    // itself at a root
  int left, right, top, bottom;  // of all that hangs together, at a root
};

class Runs {
 public:
  // diagonal  whether corners tie pixels together
  Runs(MattePlane& plane, bool islands, const Loop& loop)
      : plane_(plane),
        islands_(islands),
        limit_(static_cast<std::uint16_t>(islands ? speckTolerance : 65534 - speckTolerance)),
        reach_(islands ? 1 : 0),
        bands_(static_cast<std::size_t>(plane.cellRows())),
        offsets_(bands_.size() + 1) {
    loop(plane.cellRows(), [this](int band) { find(band); });
    for (std::size_t i = 0; i < bands_.size(); ++i) {
      offsets_[i + 1] = offsets_[i] + static_cast<int>(bands_[i].runs.size());
    }
    runs_.resize(static_cast<std::size_t>(offsets_.back()));
    loop(plane.cellRows(), [this](int band) { take(band); });
    for (std::size_t i = 1; i < bands_.size(); ++i) joinSeam(i);
  }

  // Writes `value` into what is at most `pixels` wide and high.
  void erase(int pixels, std::uint16_t value, const Loop& loop) {
    loop(plane_.cellRows(), [&](int band) {
      const auto at = static_cast<std::size_t>(band);
      for (int i = offsets_[at]; i < offsets_[at + 1]; ++i) {
        const Run& run = runs_[static_cast<std::size_t>(i)];
        const Run& root = runs_[static_cast<std::size_t>(rootOf(i))];
        if (root.right - root.left > pixels || root.bottom - root.top > pixels) continue;
        std::fill(plane_.row(run.y) + run.first, plane_.row(run.y) + run.end, value);
        for (int column = run.first / MattePlane::cellWidth;
             column <= (run.end - 1) / MattePlane::cellWidth; ++column) {
          const std::size_t cell = plane_.cell(column, band);
          plane_.low[cell] = std::min(plane_.low[cell], value);
          plane_.high[cell] = std::max(plane_.high[cell], value);
        }
      }
    });
  }

 private:
  struct Band {
    std::vector<Run> runs;
    std::vector<int> rows;  // where each row's runs begin, and the end
  };

  // Islands lie above their limit, pinholes do not lie above theirs.
  bool inside(int value) const { return (value > limit_) == islands_; }

  void find(int index) {
    Band& band = bands_[static_cast<std::size_t>(index)];
    const int top = index * MattePlane::cellHeight;
    const int bottom = std::min(plane_.height, top + MattePlane::cellHeight);
    std::array<int, MattePlane::cellWidth> at{};
    for (int y = top; y < bottom; ++y) {
      band.rows.push_back(static_cast<int>(band.runs.size()));
      const std::uint16_t* const row = plane_.row(y);
      int begin = -1;
      const auto end = [&](int x) {
        if (begin >= 0) band.runs.push_back({begin, x, y, 0, begin, x, y, y + 1});
        begin = -1;
      };
      for (int column = 0; column < plane_.cellColumns(); ++column) {
        const int from = column * MattePlane::cellWidth;
        const int to = std::min(plane_.width, from + MattePlane::cellWidth);
        const std::size_t cell = plane_.cell(column, index);
        const bool low = inside(plane_.low[cell]), high = inside(plane_.high[cell]);
        if (low && high) {
          if (begin < 0) begin = from;
        } else if (!low && !high) {
          end(from);
        } else {
          // Islands lie above their limit, pinholes do not lie above theirs.
          const int changes = rowTable().changes(row + from, to - from, limit_,
                                                 islands_ == (begin >= 0), at.data());
          for (int i = 0; i < changes; ++i) {
            const int x = from + at[static_cast<std::size_t>(i)];
            if (begin < 0) {
              begin = x;
            } else {
              end(x);
            }
          }
        }
      }
      end(plane_.width);
    }
    band.rows.push_back(static_cast<int>(band.runs.size()));
  }

  // Moves a band's runs to their place among all, and joins them row by row.
  void take(int index) {
    const Band& band = bands_[static_cast<std::size_t>(index)];
    const int offset = offsets_[static_cast<std::size_t>(index)];
    for (int i = 0; i < static_cast<int>(band.runs.size()); ++i) {
      Run& run = runs_[static_cast<std::size_t>(offset + i)];
      run = band.runs[static_cast<std::size_t>(i)];
      run.parent = offset + i;
    }
    for (std::size_t row = 0; row + 2 < band.rows.size(); ++row) {
      join(offset + band.rows[row], offset + band.rows[row + 1], offset + band.rows[row + 2]);
    }
  }

  void joinSeam(std::size_t lower) {
    const Band& above = bands_[lower - 1];
    const Band& below = bands_[lower];
    join(offsets_[lower - 1] + above.rows[above.rows.size() - 2], offsets_[lower],
         offsets_[lower] + below.rows[1]);
  }

  // Joins the runs of two rows, from first to before middle and from middle to before end.
  void join(int first, int middle, int end) {
    int i = first, j = middle;
    while (i < middle && j < end) {
      const Run& a = runs_[static_cast<std::size_t>(i)];
      const Run& b = runs_[static_cast<std::size_t>(j)];
      if (a.first < b.end + reach_ && b.first < a.end + reach_) unite(i, j);
      if (a.end < b.end) {
        ++i;
      } else {
        ++j;
      }
    }
  }

  // While runs are joined, paths are halved; afterwards they are only read.
  int halvedRootOf(int i) {
    while (true) {
      Run& run = runs_[static_cast<std::size_t>(i)];
      if (run.parent == i) return i;
      run.parent = runs_[static_cast<std::size_t>(run.parent)].parent;
      i = run.parent;
    }
  }
  int rootOf(int i) const {
    while (runs_[static_cast<std::size_t>(i)].parent != i) {
      i = runs_[static_cast<std::size_t>(i)].parent;
    }
    return i;
  }

  void unite(int i, int j) {
    i = halvedRootOf(i);
    j = halvedRootOf(j);
    if (i == j) return;
    // The earlier run is the root: paths stay short and inside a band until seams are joined.
    Run& root = runs_[static_cast<std::size_t>(std::min(i, j))];
    Run& other = runs_[static_cast<std::size_t>(std::max(i, j))];
    other.parent = std::min(i, j);
    root.left = std::min(root.left, other.left);
    root.right = std::max(root.right, other.right);
    root.top = std::min(root.top, other.top);
    root.bottom = std::max(root.bottom, other.bottom);
  }

  MattePlane& plane_;
  bool islands_;
  std::uint16_t limit_;
  int reach_;
  std::vector<Band> bands_;
  std::vector<int> offsets_;  // of each band's first run among all
  std::vector<Run> runs_;
};

}  // namespace

void MattePlane::resize(int newWidth, int newHeight) {
  width = newWidth;
  height = newHeight;
  samples.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
  const auto cells = static_cast<std::size_t>(cellColumns()) * static_cast<std::size_t>(cellRows());
  low.resize(cells);
  high.resize(cells);
}

void MattePlane::measure(int cellRow) {
  const int top = cellRow * cellHeight, bottom = std::min(height, top + cellHeight);
  for (int column = 0; column < cellColumns(); ++column) {
    const int from = column * cellWidth, to = std::min(width, from + cellWidth);
    std::uint16_t least = 65535, most = 0;
    rowTable().measure(row(top) + from, width, bottom - top, to - from, least, most);
    low[cell(column, cellRow)] = least;
    high[cell(column, cellRow)] = most;
  }
}

void removeIslands(MattePlane& plane, int pixels, const Loop& loop) {
  if (pixels > 0) Runs(plane, true, loop).erase(pixels, 0, loop);
}

void fillPinholes(MattePlane& plane, int pixels, const Loop& loop) {
  if (pixels > 0) Runs(plane, false, loop).erase(pixels, 65535, loop);
}

}  // namespace orvanite
