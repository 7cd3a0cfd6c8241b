// SPDX-License-Identifier: BSD-3-Clause
//
// Pictures of one number a pixel, and what is done to them when a plate is looked at: blurs,
// distances, openings. Small ones: a plate is reduced before it is looked at.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <span>
#include <vector>

#include "keyer/Loops.h"
#include "keyer/Recycled.h"

namespace orvanite {

template <class T>
using Values = std::vector<T, Recycled<T>>;

/// A value for every pixel, row by row from the top left.
template <class T>
struct Raster {
  int width = 0, height = 0;
  Values<T> values;

  Raster() = default;
  Raster(int w, int h, T value = T())
      : width(w),
        height(h),
        values(static_cast<std::size_t>(w) * static_cast<std::size_t>(h), value) {}
  /// One whose values are anything until they are set.
  static Raster unset(int w, int h) {
    Raster raster;
    raster.width = w;
    raster.height = h;
    raster.values.resize(static_cast<std::size_t>(w) * static_cast<std::size_t>(h));
    return raster;
  }
  std::size_t size() const { return values.size(); }
  std::size_t index(int x, int y) const {
    return static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
           static_cast<std::size_t>(x);
  }
  T& operator()(int x, int y) { return values[index(x, y)]; }
  const T& operator()(int x, int y) const { return values[index(x, y)]; }
  T& operator[](std::size_t i) { return values[i]; }
  const T& operator[](std::size_t i) const { return values[i]; }
};

using Plane = Raster<float>;
/// 0 or 1 a pixel.
using Mask = Raster<std::uint8_t>;
using Colours = std::array<Plane, 3>;

/// The three channels of a pixel together.
inline float sumAt(const Colours& colours, std::size_t i) {
  return colours[0][i] + colours[1][i] + colours[2][i];
}

/// 0 up to `from`, 1 from `to` on, a line between.
inline float ramp(float v, float from, float to) {
  return std::clamp((v - from) / (to - from), 0.0f, 1.0f);
}

/// How many pixels a mask holds.
inline std::size_t countOf(const Mask& mask) {
  return std::accumulate(mask.values.begin(), mask.values.end(), std::size_t{0});
}

/// Rows of a band for one thread: fewer are not worth the handing over.
inline constexpr int leastRows = 24;

/// Calls body(i) for the index of every pixel of a raster.
template <class T, class Body>
void eachPixel(const Raster<T>& raster, const RowLoop& rows, const Body& body) {
  rows(raster.height, leastRows, [&](int first, int count) {
    const std::size_t end = raster.index(0, first + count);
    for (std::size_t i = raster.index(0, first); i < end; ++i) body(i);
  });
}

/// A Gaussian of `sigma` pixels; beyond the edges their pixels are repeated. A wide one is applied
/// to a reduced plane.
Plane blurred(const Plane& plane, float sigma, const RowLoop& rows = bandAfterBand);
Colours blurred(const Colours& planes, float sigma, const RowLoop& rows = bandAfterBand);
Plane planeOf(const Mask& mask);

/// The largest value minus the least one among a pixel and its eight neighbours.
Plane contrast(const Plane& plane, const RowLoop& rows = bandAfterBand);

/// The value below which a share (0..1) of them lies; 0 where there are none. May reorder them.
float quantile(std::span<float> values, double share);

/// The same of a plane's values where a mask is not 0.
float quantile(const Plane& plane, const Mask& mask, double share,
               const RowLoop& rows = bandAfterBand);

/// Values between pixels: of a plane that is stretched over a picture of another size. One serves
/// many threads.
class Stretch {
 public:
  /// width, height  of the picture that the plane is stretched over; the plane must outlive this
  Stretch(const Plane& plane, int width, int height);
  /// Writes the values along a row of the picture.
  void row(int y, float* values) const;

 private:
  const Plane& plane_;
  int height_;
  int repeats_;                // columns from cell to cell, where they are always the same; else 0
  std::vector<int> cells_;     // where each column lies: between which two pixels of a row,
  std::vector<float> shares_;  // and how near to the second
};

/// One of those values.
float stretchedAt(const Plane& plane, int width, int height, int x, int y);

}  // namespace orvanite
