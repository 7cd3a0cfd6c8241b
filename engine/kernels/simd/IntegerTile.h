// SPDX-License-Identifier: BSD-3-Clause
//
// The walk over an integer tile in blocks of interleaved pixels.
//
// Blocks that lie in memory as the kernels want them are read and written where they are. Planes,
// and the ends of rows where a vector would touch samples that the caller did not give, go through
// buffers that hold whole vectors of pixels.
#pragma once

#include <hwy/cache_control.h>

#include "engine/kernels/simd/IntegerLanes.h"
#include "engine/kernels/simd/Tile.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

namespace {

/// Pixels of a block: few enough that what its stages hand on stays in the first cache.
constexpr std::size_t blockPixels = 256;

/// Interleaved pixels of one image: four samples each, in one of the two orders.
template <class T>
struct Pixels {
  const T* at = nullptr;
  bool alphaFirst = false;

  const T* channel(int c) const { return at + (alphaFirst ? 3 - c : c); }
};

/// Where the pixels of the next block lie. The keying stage asks for them as it goes: its look-ups
/// need not wait for memory then, and no burst of requests holds up those of this block.
template <class T>
struct Ahead {
  const T* start[5] = {};
  std::size_t images = 0, pixels = 0;

  /// Notes an image whose next block begins at (x, y).
  void add(const Image<T>& image, std::ptrdiff_t x, std::ptrdiff_t y) {
    // A matte's one sample in four is as good as the whole pixel here.
    const T* const first = image.base != nullptr ? image.base : image.channel[3];
    if (first == nullptr || image.pixelStep != static_cast<int>(samplesPerPixel)) return;
    start[images++] = at(image, first, x, y);
  }

  /// Asks for one vector of the next block's pixels, from its pixel i on.
  HWY_INLINE void fetch(std::size_t i) const {
    constexpr std::size_t line = 64 / sizeof(T);
    if (i >= pixels) return;
    for (std::size_t k = 0; k < images; ++k) {
      for (std::size_t s = 0; s < samplesPerPixel * shortLanes(); s += line) {
        hwy::Prefetch(start[k] + samplesPerPixel * i + s);
      }
    }
  }
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
  Ahead<T> ahead;
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
  copyIn(image, x, y, n, to);
}

/// The pixels of an image for a block, where they are or in the buffer.
template <class T>
HWY_INLINE Pixels<T> pixelsOf(const Image<T>& image, const Tile<T>& tile, std::ptrdiff_t x,
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

/// The codes of a matte's n pixels, of which `left` remain in the row: where they are, or in the
/// buffer.
template <class T>
HWY_NOINLINE const std::uint16_t* matteCodes(const Image<T>& image, std::ptrdiff_t x,
                                             std::ptrdiff_t y, std::size_t n, std::size_t left,
                                             std::uint16_t* to) {
  if (image.arrangement == unused) return nullptr;
  const T* const from = at(image, image.channel[3], x, y);
  if constexpr (sizeof(T) == sizeof(*to)) {
    if (image.pixelStep == 1 && n % shortLanes() == 0) return from;
  }
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
HWY_NOINLINE void unstage(const Tile<T>& tile, std::ptrdiff_t x, std::ptrdiff_t y, std::size_t n,
                          bool alpha, const T* from) {
  const Image<T>& dst = tile.dst;
  if (dst.arrangement != planes) {
    copyOut(dst, x, y, n, alpha, from);
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
inline void walk(const Tile<T>& tile, bool alpha, const Body& body) {
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
      const bool rowEnds = left == n;
      if (!rowEnds || y + 1 < tile.height) {
        const std::size_t next = rowEnds ? static_cast<std::size_t>(tile.width) : left - n;
        block.ahead.pixels = next < blockPixels ? next : blockPixels;
        for (const Image<T>* image : {&tile.fg, &tile.bg, &tile.ref, &tile.hold, &tile.garbage}) {
          block.ahead.add(*image, rowEnds ? 0 : x + static_cast<std::ptrdiff_t>(n),
                          rowEnds ? y + 1 : y);
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
