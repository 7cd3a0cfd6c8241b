// SPDX-License-Identifier: BSD-3-Clause
//
// How a tile's images lie in memory, for kernels that take whole vectors of pixels: which tiles
// they can take, and how pixels go through buffers where a vector would touch samples that the
// caller did not give (a plate without alpha, a matte of which only one sample is ours to read, a
// destination whose alpha is not written).
#pragma once

#include "engine/Choices.h"
#include "engine/QMXOrvaniteTable.h"
#include "engine/View.h"
#include "engine/kernels/simd/Lanes.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

namespace {

constexpr std::size_t samplesPerPixel = 4;

enum Arrangement { unused, redFirst, alphaFirst, planes, unknown };

/// One image of a tile.
template <class T>
struct Image {
  Arrangement arrangement = unused;
  const T* base = nullptr;   // interleaved: the first sample of the first pixel
  const T* channel[4] = {};  // red, green, blue, alpha; those that may be touched
  bool whole = false;        // interleaved: all four samples may be
  int pixelStep = 0;
  std::ptrdiff_t lineStep = 0;
};

/// The images of a tile; those that are not used have no channels.
template <class T>
struct Tile {
  Image<T> dst, bg, fg, ref, hold, garbage;
  int width, height;
};

/// Float pixels are four samples apart whatever their step says.
template <class T>
inline int stepOf(const OtileImage& image) {
  return sizeof(T) == sizeof(float) ? static_cast<int>(samplesPerPixel) : image.pixelStep;
}

template <class T>
inline Image<T> imageOf(const OtileImage& image, bool alphaUsed) {
  Image<T> out;
  const T* const red = static_cast<const T*>(image.red);
  const T* const green = static_cast<const T*>(image.green);
  const T* const blue = static_cast<const T*>(image.blue);
  const T* const alpha = static_cast<const T*>(image.alpha);
  out.arrangement = unknown;
  out.pixelStep = stepOf<T>(image);
  out.lineStep = image.lineStep;
  out.channel[0] = red;
  out.channel[1] = green;
  out.channel[2] = blue;
  out.channel[3] = alphaUsed ? alpha : nullptr;
  if (out.pixelStep == 1) {
    out.arrangement = planes;
  } else if (out.pixelStep == static_cast<int>(samplesPerPixel)) {
    if (green == red + 1 && blue == red + 2) {
      out.base = red;
      out.whole = alpha == red + 3;
      out.arrangement = redFirst;
    } else if (green == blue + 1 && red == blue + 2) {
      out.base = blue - 1;
      out.whole = alpha == blue - 1;
      out.arrangement = alphaFirst;
    }
    if (alphaUsed && alpha != nullptr && !out.whole) out.arrangement = unknown;
  }
  return out;
}

/// A matte: only its alpha counts, and any step will do.
template <class T>
inline Image<T> matteOf(const OtileImage& image) {
  Image<T> out;
  out.channel[3] = static_cast<const T*>(image.alpha);
  out.pixelStep = stepOf<T>(image);
  out.lineStep = image.lineStep;
  out.arrangement = planes;
  return out;
}

/// Whether a channel of an input can be read a block ahead of what is written to a channel of the
/// destination: they share nothing, or each pixel only the same pixel.
template <class T>
inline bool apart(const Tile<T>& tile, const Image<T>& input, const T* in, const T* out) {
  const auto across = [&tile](int step) {
    return static_cast<std::ptrdiff_t>(tile.width - 1) * step;
  };
  const auto down = [&tile](std::ptrdiff_t step) { return (tile.height - 1) * step; };
  const auto lowest = [](const T* p, std::ptrdiff_t x, std::ptrdiff_t y) {
    return p + (x < 0 ? x : 0) + (y < 0 ? y : 0);
  };
  const auto highest = [](const T* p, std::ptrdiff_t x, std::ptrdiff_t y) {
    return p + (x > 0 ? x : 0) + (y > 0 ? y : 0);
  };
  const Image<T>& dst = tile.dst;
  const std::ptrdiff_t inX = across(input.pixelStep), inY = down(input.lineStep);
  const std::ptrdiff_t outX = across(dst.pixelStep), outY = down(dst.lineStep);
  if (highest(in, inX, inY) < lowest(out, outX, outY) ||
      highest(out, outX, outY) < lowest(in, inX, inY)) {
    return true;
  }
  if (input.pixelStep != dst.pixelStep || input.lineStep != dst.lineStep) return false;
  if (dst.arrangement == planes) return in == out;
  return in >= dst.base && in < dst.base + samplesPerPixel;
}

template <class T>
inline bool readableAhead(const Tile<T>& tile, const Image<T>& input) {
  for (const T* in : input.channel) {
    for (const T* out : tile.dst.channel) {
      if (in != nullptr && out != nullptr && !apart(tile, input, in, out)) return false;
    }
  }
  return true;
}

/// Whether no sample of the destination is two pixels' or two channels': such are written in an
/// order of their own.
template <class T>
inline bool writtenOnce(const Tile<T>& tile) {
  const Image<T>& dst = tile.dst;
  const std::ptrdiff_t line = dst.lineStep < 0 ? -dst.lineStep : dst.lineStep;
  if (tile.height > 1 && line < std::ptrdiff_t{dst.pixelStep} * tile.width) return false;
  if (dst.arrangement != planes) return true;
  for (int a = 0; a < 4; ++a) {
    for (int b = a + 1; b < 4; ++b) {
      const T* const one = dst.channel[a];
      const T* const other = dst.channel[b];
      if (other != nullptr && (one == other || !apart(tile, dst, one, other))) return false;
    }
  }
  return true;
}

/// Describes a tile; false when the definition has to key it.
template <class T>
inline bool describe(const QMXOrvaniteTable& engine, int width, int height, const Otile& record,
                     const Choices& choices, Tile<T>& tile) {
  const bool keyed = hasColours(record.fg);  // else the background passes
  tile.width = width;
  tile.height = height;
  tile.dst = imageOf<T>(record.dst, choices.alpha);
  if (!choices.alpha) tile.dst.whole = false;  // an alpha that is not written may be anybody's
  if (keyed) tile.fg = imageOf<T>(record.fg, false);
  if (!keyed || viewOf(engine.view) == View::composite) {
    tile.bg = imageOf<T>(record.bg, choices.alpha);
  }
  if (keyed && choices.ref) tile.ref = imageOf<T>(record.ref, false);
  if (keyed && choices.hold) tile.hold = matteOf<T>(record.hold);
  if (keyed && choices.garbage) tile.garbage = matteOf<T>(record.garbage);
  if (tile.dst.arrangement == unknown || !writtenOnce(tile)) return false;
  for (const Image<T>* image : {&tile.bg, &tile.fg, &tile.ref, &tile.hold, &tile.garbage}) {
    if (image->arrangement == unknown || !readableAhead(tile, *image)) return false;
  }
  return true;
}

/// A place in a row of an image.
template <class T>
inline const T* at(const Image<T>& image, const T* first, std::ptrdiff_t x, std::ptrdiff_t y) {
  return first == nullptr ? nullptr : first + y * image.lineStep + x * image.pixelStep;
}

/// Brings n interleaved pixels into a buffer, touching only what the caller gave: all between the
/// first and the last colour sample, and the alpha beyond them where it is there.
template <class T>
inline void copyIn(const Image<T>& image, std::ptrdiff_t x, std::ptrdiff_t y, std::size_t n,
                   T* to) {
  const T* const from = at(image, image.base, x, y);
  const std::size_t samples = samplesPerPixel * n;
  const std::size_t first = !image.whole && image.arrangement == alphaFirst ? 1 : 0;
  const std::size_t end = !image.whole && image.arrangement == redFirst ? samples - 1 : samples;
  for (std::size_t i = first; i < end; ++i) to[i] = from[i];
}

/// Puts n keyed pixels into an interleaved destination; the alpha only where it is written.
template <class T>
inline void copyOut(const Image<T>& dst, std::ptrdiff_t x, std::ptrdiff_t y, std::size_t n,
                    bool alpha, const T* from) {
  T* const to = const_cast<T*>(at(dst, dst.base, x, y));  // dst came in as a writable image
  if (alpha) {
    for (std::size_t i = 0; i < samplesPerPixel * n; ++i) to[i] = from[i];
    return;
  }
  const std::size_t red = dst.arrangement == alphaFirst ? 1 : 0;
  for (std::size_t i = red; i < samplesPerPixel * n; i += samplesPerPixel) {
    for (std::size_t c = 0; c < 3; ++c) to[i + c] = from[i + c];
  }
}

}  // namespace

}  // namespace orvanite::ORVANITE_SIMD_TARGET
