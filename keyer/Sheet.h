// SPDX-License-Identifier: BSD-3-Clause
//
// A sheet under tension that follows what is seen on a coarse grid, and falls back to nothing where
// nothing is.
#pragma once

#include <vector>

#include "keyer/Planes.h"

namespace orvanite {

/// What is seen in each cell, and how much it counts; both start as nothing.
class Sheet {
 public:
  /// A grid of that many cells.
  Sheet(int columns, int rows) : seen_(columns, rows), weight_(columns, rows) {}

  Plane& seen() { return seen_; }      ///< the value of each cell
  Plane& weight() { return weight_; }  ///< how much it counts: 0 not at all

  /// By conjugate gradients, a fixed number of rounds.
  Plane solve() const;

 private:
  using Cells = std::vector<double>;
  void bend(const Cells& z, Cells& out) const;
  void apply(const Cells& z, Cells& once, Cells& twice, Cells& out) const;

  Plane seen_, weight_;
};

}  // namespace orvanite
