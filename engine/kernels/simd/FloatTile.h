// SPDX-License-Identifier: BSD-3-Clause
//
// The walk over a float tile in blocks of whole vectors of pixels, and pixels in registers.
//
// The pixels at a row's ends go through a buffer where a vector would touch more than the caller
// gave.
#pragma once

#include "engine/kernels/simd/Tile.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

namespace {

/// Pixels of a block: few enough that all that a block needs stays in the first cache.
constexpr std::size_t blockPixels = 128;

/// Where a block's pixels are: whole pixels may be read and written at each pointer that is not
/// null.
struct Block {
  float* dst;
  const float *bg, *fg, *hold, *garbage;
  std::size_t pixels;  // whole vectors
};

inline const float* at(const Image<float>& image, std::ptrdiff_t x, std::ptrdiff_t y) {
  return at(image, image.arrangement == planes ? image.channel[3] : image.base, x, y);
}

/// Pixels of an image in a buffer, or null; of a matte the one sample that is ours.
inline const float* stage(const Image<float>& image, std::ptrdiff_t x, std::ptrdiff_t y,
                          std::size_t n, float* to) {
  if (image.arrangement == unused) return nullptr;
  if (image.arrangement != planes) {
    copyIn(image, x, y, n, to);
    return to;
  }
  const float* const from = at(image, x, y);
  for (std::size_t i = 0; i < samplesPerPixel * n; i += samplesPerPixel) to[i] = from[i];
  return to;
}

/// Takes fewer pixels than a block through buffers.
template <class Body>
HWY_NOINLINE void walkStaged(const Tile<float>& tile, std::ptrdiff_t x, std::ptrdiff_t y,
                             std::size_t n, bool alpha, const Body& body) {
  constexpr std::size_t size = samplesPerPixel * 2 * maxFloatLanes;
  HWY_ALIGN float buffers[5][size];
  for (auto& buffer : buffers) {
    for (float& v : buffer) v = 0;
  }
  Block block;
  block.bg = stage(tile.bg, x, y, n, buffers[0]);
  block.fg = stage(tile.fg, x, y, n, buffers[1]);
  block.hold = stage(tile.hold, x, y, n, buffers[2]);
  block.garbage = stage(tile.garbage, x, y, n, buffers[3]);
  block.dst = buffers[4];
  block.pixels = (n + floatLanes() - 1) / floatLanes() * floatLanes();
  body(block);
  copyOut(tile.dst, x, y, n, alpha, block.dst);
}

/// Calls body for blocks that together are the tile, line by line, left to right.
template <class Body>
inline void walk(const Tile<float>& tile, bool alpha, const Body& body) {
  const std::size_t width = static_cast<std::size_t>(tile.width), lanes = floatLanes();
  bool guardStart = false,
       guardEnd = tile.hold.arrangement != unused || tile.garbage.arrangement != unused;
  for (const Image<float>* image : {&tile.fg, &tile.bg}) {
    if (image->arrangement == unused || image->whole) continue;
    if (image->base == tile.dst.base && tile.dst.whole) continue;
    (image->arrangement == alphaFirst ? guardStart : guardEnd) = true;
  }
  HWY_ALIGN float keyed[samplesPerPixel * blockPixels];
  const std::size_t head = guardStart ? 1 : 0;
  const std::size_t guarded = head + (guardEnd ? 1 : 0);
  const std::size_t middle = width > guarded ? (width - guarded) / lanes * lanes : 0;
  for (std::ptrdiff_t y = 0; y < tile.height; ++y) {
    if (head > 0) walkStaged(tile, 0, y, head, alpha, body);
    std::size_t x = head;
    for (std::size_t left = middle; left > 0;) {
      const std::size_t n = left < blockPixels ? left : blockPixels;
      const std::ptrdiff_t column = static_cast<std::ptrdiff_t>(x);
      const Block block = {alpha ? const_cast<float*>(at(tile.dst, column, y)) : keyed,
                           at(tile.bg, column, y),
                           at(tile.fg, column, y),
                           at(tile.hold, column, y),
                           at(tile.garbage, column, y),
                           n};
      body(block);
      if (!alpha) copyOut(tile.dst, column, y, n, alpha, keyed);
      x += n;
      left -= n;
    }
    while (x < width) {
      const std::size_t n = width - x < lanes ? width - x : lanes;
      walkStaged(tile, static_cast<std::ptrdiff_t>(x), y, n, alpha, body);
      x += n;
    }
  }
}

/// The samples of one vector of pixels.
struct Pixels {
  Floats colour[3];
  Floats alpha;
};

// Which lane holds which pixel is a matter between the loads and the store below, and nothing
// else asks. On x86 lane by lane of 128 bits: across them costs more than all the rest.
#if HWY_ARCH_X86
HWY_INLINE Floats lowerPairs(Floats a, Floats b) {
  return hn::BitCast(floatTag, hn::InterleaveLower(doubleTag, hn::BitCast(doubleTag, a),
                                                   hn::BitCast(doubleTag, b)));
}
HWY_INLINE Floats upperPairs(Floats a, Floats b) {
  return hn::BitCast(floatTag, hn::InterleaveUpper(doubleTag, hn::BitCast(doubleTag, a),
                                                   hn::BitCast(doubleTag, b)));
}

/// Four samples of each pixel, in memory's order.
HWY_INLINE void loadSamples(const float* from, Floats& a, Floats& b, Floats& c, Floats& d) {
  const std::size_t n = floatLanes();
  const Floats v0 = hn::LoadU(floatTag, from), v1 = hn::LoadU(floatTag, from + n);
  const Floats v2 = hn::LoadU(floatTag, from + 2 * n), v3 = hn::LoadU(floatTag, from + 3 * n);
  const Floats ab01 = hn::InterleaveLower(floatTag, v0, v1);
  const Floats cd01 = hn::InterleaveUpper(floatTag, v0, v1);
  const Floats ab23 = hn::InterleaveLower(floatTag, v2, v3);
  const Floats cd23 = hn::InterleaveUpper(floatTag, v2, v3);
  a = lowerPairs(ab01, ab23);
  b = upperPairs(ab01, ab23);
  c = lowerPairs(cd01, cd23);
  d = upperPairs(cd01, cd23);
}

HWY_INLINE void storeSamples(Floats a, Floats b, Floats c, Floats d, float* to) {
  const std::size_t n = floatLanes();
  const Floats ab01 = hn::InterleaveLower(floatTag, a, b);
  const Floats ab23 = hn::InterleaveUpper(floatTag, a, b);
  const Floats cd01 = hn::InterleaveLower(floatTag, c, d);
  const Floats cd23 = hn::InterleaveUpper(floatTag, c, d);
  hn::StoreU(lowerPairs(ab01, cd01), floatTag, to);
  hn::StoreU(upperPairs(ab01, cd01), floatTag, to + n);
  hn::StoreU(lowerPairs(ab23, cd23), floatTag, to + 2 * n);
  hn::StoreU(upperPairs(ab23, cd23), floatTag, to + 3 * n);
}
#else
HWY_INLINE void loadSamples(const float* from, Floats& a, Floats& b, Floats& c, Floats& d) {
  hn::LoadInterleaved4(floatTag, from, a, b, c, d);
}

HWY_INLINE void storeSamples(Floats a, Floats b, Floats c, Floats d, float* to) {
  hn::StoreInterleaved4(a, b, c, d, floatTag, to);
}
#endif

HWY_INLINE Pixels loadPixels(const float* from, Arrangement arrangement) {
  Pixels p;
  if (arrangement == alphaFirst) {
    loadSamples(from, p.alpha, p.colour[2], p.colour[1], p.colour[0]);
  } else {
    loadSamples(from, p.colour[0], p.colour[1], p.colour[2], p.alpha);
  }
  return p;
}

HWY_INLINE void storePixels(const Pixels& p, float* to, Arrangement arrangement) {
  if (arrangement == alphaFirst) {
    storeSamples(p.alpha, p.colour[2], p.colour[1], p.colour[0], to);
  } else {
    storeSamples(p.colour[0], p.colour[1], p.colour[2], p.alpha, to);
  }
}

HWY_INLINE Floats loadMatte(const float* from) {
  Floats matte, b, c, d;
  loadSamples(from, matte, b, c, d);
  return matte;
}

}  // namespace

}  // namespace orvanite::ORVANITE_SIMD_TARGET
