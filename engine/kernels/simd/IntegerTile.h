// SPDX-License-Identifier: BSD-3-Clause
//
// How integer tiles lie in memory, and the walk over one in blocks of interleaved pixels.
//
// Blocks that lie in memory as the kernels want them are read and written where they are. Planes,
// and the ends of rows where a vector would touch samples that the caller did not give, go through
// buffers that hold whole vectors of pixels.
#pragma once

#include <hwy/cache_control.h>

#include "engine/QMXOrvaniteTable.h"
#include "engine/kernels/simd/IntegerLanes.h"
#include "engine/kernels/simd/Kernels.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

namespace {

constexpr std::size_t samplesPerPixel = 4;

/// Pixels of a block: few enough that what its stages hand on stays in the first cache.
constexpr std::size_t blockPixels = 256;

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

template <class T>
inline Image<T> imageOf(const OtileImage& image, bool alphaUsed) {
  Image<T> out;
  const T* const red = static_cast<const T*>(image.red);
  const T* const green = static_cast<const T*>(image.green);
  const T* const blue = static_cast<const T*>(image.blue);
  const T* const alpha = static_cast<const T*>(image.alpha);
  out.arrangement = unknown;
  out.pixelStep = image.pixelStep;
  out.lineStep = image.lineStep;
  out.channel[0] = red;
  out.channel[1] = green;
  out.channel[2] = blue;
  out.channel[3] = alphaUsed ? alpha : nullptr;
  if (image.pixelStep == 1) {
    out.arrangement = planes;
  } else if (image.pixelStep == static_cast<int>(samplesPerPixel)) {
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
  out.pixelStep = image.pixelStep;
  out.lineStep = image.lineStep;
  out.arrangement = planes;
  return out;
}

/// The images of a tile.
template <class T>
struct IntegerTile {
  Image<T> dst, bg, fg, ref, hold, garbage;
  int width, height;
};

/// Whether a channel of an input can be read a block ahead of what is written to a channel of the
/// destination: they share nothing, or each pixel only the same pixel.
template <class T>
inline bool apart(const IntegerTile<T>& tile, const Image<T>& input, const T* in, const T* out) {
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
inline bool readableAhead(const IntegerTile<T>& tile, const Image<T>& input) {
  if (input.arrangement == unused) return true;
  for (const T* in : input.channel) {
    for (const T* out : tile.dst.channel) {
      if (in != nullptr && out != nullptr && !apart(tile, input, in, out)) return false;
    }
  }
  return true;
}

/// Describes a tile; false when the reference has to key it.
template <class T>
inline bool describe(const QMXOrvaniteTable& engine, int width, int height, const Otile& record,
                     const TileVariant& variant, IntegerTile<T>& tile) {
  if (!(record.fg.red && record.fg.green && record.fg.blue)) return false;
  tile.width = width;
  tile.height = height;
  tile.dst = imageOf<T>(record.dst, variant.alpha);
  tile.fg = imageOf<T>(record.fg, false);
  if (engine.view == 0) tile.bg = imageOf<T>(record.bg, variant.alpha);
  if (variant.ref) tile.ref = imageOf<T>(record.ref, false);
  if (variant.hold) tile.hold = matteOf<T>(record.hold);
  if (variant.garbage) tile.garbage = matteOf<T>(record.garbage);
  if (tile.dst.arrangement == planes) {
    for (int a = 0; a < 4; ++a) {  // planes that overlap are written in another order
      for (int b = a + 1; b < 4; ++b) {
        const T* const one = tile.dst.channel[a];
        const T* const other = tile.dst.channel[b];
        if (other != nullptr && (one == other || !apart(tile, tile.dst, one, other))) return false;
      }
    }
  }
  for (const Image<T>* image :
       {&tile.dst, &tile.bg, &tile.fg, &tile.ref, &tile.hold, &tile.garbage}) {
    if (image->arrangement == unknown) return false;
    if (image != &tile.dst && !readableAhead(tile, *image)) return false;
  }
  return true;
}

/// Interleaved pixels of one image: four samples each, in one of the two orders.
template <class T>
struct Pixels {
  const T* at = nullptr;
  bool alphaFirst = false;

  const T* channel(int c) const { return at + (alphaFirst ? 3 - c : c); }
};

/// What the stages of a block work on. Every image holds whole vectors of pixels.
template <class T>
struct Block {
  Pixels<T> fg, bg, ref;
  T* dst;
  bool dstAlphaFirst;
  std::size_t pixels;         // whole vectors
  const std::uint16_t* hold;  // matte codes, null without
  const std::uint16_t* garbage;
};

template <class T>
struct BlockBuffers {
  HWY_ALIGN T pixels[4][samplesPerPixel * blockPixels];
  HWY_ALIGN std::uint16_t mattes[2][blockPixels];
};

/// Four planes to pixels, red first. Missing planes give 0.
template <class T>
inline void interleave(const T* const (&from)[4], std::size_t n, T* to) {
  constexpr hn::ScalableTag<T> tag;
  const std::size_t lanes = hn::Lanes(tag);
  std::size_t i = 0;
  for (; i + lanes <= n; i += lanes) {
    const auto load = [&](int c) {
      return from[c] != nullptr ? hn::LoadU(tag, from[c] + i) : hn::Zero(tag);
    };
    hn::StoreInterleaved4(load(0), load(1), load(2), load(3), tag, to + samplesPerPixel * i);
  }
  for (; i < n; ++i) {
    for (std::size_t c = 0; c < 4; ++c) {
      to[samplesPerPixel * i + c] = from[c] != nullptr ? from[c][i] : T{0};
    }
  }
}

/// A place in a row of an image.
template <class T>
inline const T* at(const Image<T>& image, const T* first, std::ptrdiff_t x, std::ptrdiff_t y) {
  return first == nullptr ? nullptr : first + y * image.lineStep + x * image.pixelStep;
}

/// Brings n pixels into a buffer, touching only the samples that may be.
template <class T>
HWY_NOINLINE void stage(const Image<T>& image, std::ptrdiff_t x, std::ptrdiff_t y, std::size_t n,
                        T* to) {
  if (image.arrangement == planes) {
    const T* const from[4] = {at(image, image.channel[0], x, y), at(image, image.channel[1], x, y),
                              at(image, image.channel[2], x, y), at(image, image.channel[3], x, y)};
    interleave(from, n, to);
    return;
  }
  const T* const from = at(image, image.base, x, y);
  const std::size_t samples = samplesPerPixel * n;
  // Between the row's first and last colour sample everything may be read.
  const std::size_t first = !image.whole && image.arrangement == alphaFirst ? 1 : 0;
  const std::size_t end = !image.whole && image.arrangement == redFirst ? samples - 1 : samples;
  for (std::size_t i = first; i < end; ++i) to[i] = from[i];
}

/// The pixels of an image for a block, where they are or in the buffer.
template <class T>
HWY_INLINE Pixels<T> pixelsOf(const Image<T>& image, const IntegerTile<T>& tile, std::ptrdiff_t x,
                              std::ptrdiff_t y, std::size_t n, bool wholeVectors, T* buffer) {
  if (image.arrangement == unused) return {};
  const bool alpha1 = image.arrangement == alphaFirst;
  const bool start = x == 0 && alpha1;
  const bool end = x + static_cast<std::ptrdiff_t>(n) == tile.width && !alpha1;
  if (wholeVectors && image.arrangement != planes && (image.whole || !(start || end))) {
    return {at(image, image.base, x, y), alpha1};
  }
  stage(image, x, y, n, buffer);
  return {buffer, alpha1};
}

/// Asks for the pixels of a later block, so that its look-ups need not wait for memory.
template <class T>
HWY_INLINE void fetchAhead(const Image<T>& image, std::ptrdiff_t x, std::ptrdiff_t y,
                           std::size_t n) {
  // A matte's one sample in four is as good as the whole pixel here.
  const T* const start = image.base != nullptr ? image.base : image.channel[3];
  if (start == nullptr || image.pixelStep != static_cast<int>(samplesPerPixel)) return;
  const T* const from = at(image, start, x, y);
  constexpr std::size_t line = 64 / sizeof(T);
  for (std::size_t i = 0; i < samplesPerPixel * n; i += line) hwy::Prefetch(from + i);
}

/// The first of four samples of each of a vector's pixels.
HWY_INLINE U16 everyFourth(const std::uint8_t* from) {
  U16 low, high;
  hn::LoadInterleaved2(u16Tag, reinterpret_cast<const std::uint16_t*>(from), low, high);
  return hn::And(low, shorts(255));
}
HWY_INLINE U16 everyFourth(const std::uint16_t* from) {
  U16 first, b, c, d;
  hn::LoadInterleaved4(u16Tag, from, first, b, c, d);
  return first;
}

/// The codes of a matte's n pixels, of which `left` remain in the row.
template <class T>
HWY_NOINLINE const std::uint16_t* matteCodes(const Image<T>& image, std::ptrdiff_t x,
                                             std::ptrdiff_t y, std::size_t n, std::size_t left,
                                             std::uint16_t* to) {
  if (image.arrangement == unused) return nullptr;
  const T* const from = at(image, image.channel[3], x, y);
  std::size_t i = 0;
  if (image.pixelStep == 4) {
    // Samples between the row's first and last may be touched, those after it may not.
    const std::size_t lanes = shortLanes();
    for (; i + lanes <= n && i + lanes < left; i += lanes) {
      hn::StoreU(everyFourth(from + 4 * i), u16Tag, to + i);
    }
    for (; i < n; ++i) to[i] = from[4 * i];
  } else if (image.pixelStep == 1) {
    for (; i < n; ++i) to[i] = from[i];
  } else {
    for (; i < n; ++i) to[i] = from[static_cast<std::ptrdiff_t>(i) * image.pixelStep];
  }
  return to;
}

/// Puts n keyed pixels where they belong; the alpha only where it is written: else it may be
/// anybody's.
template <class T>
HWY_NOINLINE void unstage(const IntegerTile<T>& tile, std::ptrdiff_t x, std::ptrdiff_t y,
                          std::size_t n, bool alpha, const T* from) {
  const Image<T>& dst = tile.dst;
  if (dst.arrangement != planes) {
    T* const to = const_cast<T*>(at(dst, dst.base, x, y));  // dst came in as a writable image
    if (alpha) {
      for (std::size_t i = 0; i < samplesPerPixel * n; ++i) to[i] = from[i];
      return;
    }
    const std::size_t red = dst.arrangement == alphaFirst ? 1 : 0;
    for (std::size_t i = red; i < samplesPerPixel * n; i += samplesPerPixel) {
      for (std::size_t c = 0; c < 3; ++c) to[i + c] = from[i + c];
    }
    return;
  }
  T* to[4];
  const std::size_t channels = alpha ? 4 : 3;
  for (std::size_t c = 0; c < 4; ++c) to[c] = const_cast<T*>(at(dst, dst.channel[c], x, y));
  constexpr hn::ScalableTag<T> tag;
  const std::size_t lanes = hn::Lanes(tag);
  std::size_t i = 0;
  for (; i + lanes <= n; i += lanes) {
    hn::Vec<decltype(tag)> v[4];
    hn::LoadInterleaved4(tag, from + samplesPerPixel * i, v[0], v[1], v[2], v[3]);
    for (std::size_t c = 0; c < channels; ++c) hn::StoreU(v[c], tag, to[c] + i);
  }
  for (; i < n; ++i) {
    for (std::size_t c = 0; c < channels; ++c) to[c][i] = from[samplesPerPixel * i + c];
  }
}

/// Calls body for blocks that together are the tile, line by line, left to right.
template <class T, class Body>
inline void walk(const IntegerTile<T>& tile, bool alpha, const Body& body) {
  BlockBuffers<T> buffers;
  for (auto& pixels : buffers.pixels) {
    for (T& sample : pixels) sample = 0;
  }
  for (auto& matte : buffers.mattes) {
    for (std::uint16_t& code : matte) code = 0;
  }
  const std::size_t lanes = shortLanes();
  for (std::ptrdiff_t y = 0; y < tile.height; ++y) {
    for (std::ptrdiff_t x = 0; x < tile.width;) {
      const std::size_t left = static_cast<std::size_t>(tile.width - x);
      const std::size_t n = left < blockPixels ? left : blockPixels;
      Block<T> block;
      block.pixels = (n + lanes - 1) / lanes * lanes;
      const bool whole = block.pixels == n;
      block.fg = pixelsOf(tile.fg, tile, x, y, n, whole, buffers.pixels[0]);
      block.bg = pixelsOf(tile.bg, tile, x, y, n, whole, buffers.pixels[1]);
      block.ref = pixelsOf(tile.ref, tile, x, y, n, whole, buffers.pixels[2]);
      if (left > n) {
        const std::size_t next = left - n < blockPixels ? left - n : blockPixels;
        for (const Image<T>* image : {&tile.fg, &tile.bg, &tile.ref, &tile.hold, &tile.garbage}) {
          fetchAhead(*image, x + static_cast<std::ptrdiff_t>(n), y, next);
        }
      }
      block.hold = matteCodes(tile.hold, x, y, n, left, buffers.mattes[0]);
      block.garbage = matteCodes(tile.garbage, x, y, n, left, buffers.mattes[1]);
      block.dstAlphaFirst = tile.dst.arrangement == alphaFirst;
      if (whole && alpha && tile.dst.arrangement != planes) {
        block.dst = const_cast<T*>(at(tile.dst, tile.dst.base, x, y));
        body(block);
      } else {
        block.dst = buffers.pixels[3];
        body(block);
        unstage(tile, x, y, n, alpha, block.dst);
      }
      x += static_cast<std::ptrdiff_t>(n);
    }
  }
}

}  // namespace

}  // namespace orvanite::ORVANITE_SIMD_TARGET
