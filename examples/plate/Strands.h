// SPDX-License-Identifier: BSD-3-Clause
//
// Thin things: hair, brows, lashes, sprigs. Each is a line with a width, drawn with the exact share
// of a pixel that it covers, so that a hair of a tenth of a pixel is a tenth opaque.
// Builds on Sculpture.h for the head.
#pragma once

#include <vector>

#include "examples/plate/Sculpture.h"

namespace orvanite::plate {

/// A straight piece of a strand, in scene units; colour and spill are not multiplied by anything.
struct Segment {
  float x0, y0, x1, y1;
  float depth;      ///< z of its middle
  float halfWidth;  ///< at its middle
  float density;    ///< opacity of the material, 0..1
  V3 colour, spill;
};

/// All segments, back to front.
std::vector<Segment> growStrands(const Options& options, const Head& head, V3 screenLight);

/// The segments that may touch a tile, by tile of `side` pixels, each in drawing order.
class TiledStrands {
 public:
  static constexpr int side = 32;

  /// `pixelsPerUnit`, `centreX`, `centreY`: where the scene lies in the picture.
  TiledStrands(std::vector<Segment> all, int width, int height, float pixelsPerUnit, float centreX,
               float centreY);

  int tilesAcross() const { return across; }
  int tilesDown() const { return down; }
  /// Draws a tile's segments over `layers`, rows of `side` layers. With depths given, draws only
  /// what lies in front of them.
  void draw(int tile, Layer* layers, const float* depths) const;

 private:
  std::vector<Segment> segments;  // in pixels
  std::vector<std::vector<int>> byTile;
  int across, down;
};

}  // namespace orvanite::plate
