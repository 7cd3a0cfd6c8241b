// SPDX-License-Identifier: BSD-3-Clause
//
// How float tiles lie in memory, for kernels that take whole vectors of pixels: which tiles they
// can take, and the walk over one in blocks.
//
// A vector touches all four samples of its pixels. Where the caller gave fewer (a plate without
// alpha, a matte of which only one sample is ours to read), the pixels at a row's ends go through
// a buffer, so that nothing is read that the caller did not give.
#pragma once

#include "engine/QMXOrvaniteTable.h"
#include "engine/kernels/simd/Kernels.h"
#include "engine/kernels/simd/Lanes.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

namespace {

constexpr std::size_t samplesPerPixel = 4;

/// Pixels of a block: few enough that all that a block needs stays in the first cache.
constexpr std::size_t blockPixels = 128;

/// The order of a pixel's samples in memory.
enum Order { unknownOrder, redFirst, alphaFirst };

/// One interleaved image: where the samples of its first pixel begin.
struct Image {
  const float* base = nullptr;
  std::ptrdiff_t lineStep = 0;
  Order order = unknownOrder;
  bool whole = false;  // the caller gave all four samples
};

inline Image imageOf(const OtileImage& image) {
  const float* const red = static_cast<const float*>(image.red);
  const float* const green = static_cast<const float*>(image.green);
  const float* const blue = static_cast<const float*>(image.blue);
  const float* const alpha = static_cast<const float*>(image.alpha);
  Image out;
  out.lineStep = image.lineStep;
  if (red == nullptr || green == nullptr || blue == nullptr) return out;
  if (green == red + 1 && blue == red + 2) {
    out.order = redFirst;
    out.base = red;
    out.whole = alpha == red + 3;
  } else if (green == blue + 1 && red == blue + 2) {
    out.order = alphaFirst;
    out.base = blue - 1;
    out.whole = alpha == blue - 1;
  }
  return out;
}

/// A matte: the sample that is read, as if it were the first of its pixel.
inline Image matteOf(const OtileImage& image) {
  Image out;
  out.base = static_cast<const float*>(image.alpha);
  out.lineStep = image.lineStep;
  out.order = redFirst;
  return out;
}

/// The images of a tile; those that are not used have no base.
struct FloatTile {
  Image dst, bg, fg, hold, garbage;
  int width, height;
};

struct Range {
  const float *first, *end;
};

inline Range rangeOf(const Image& image, int width, int height) {
  const std::ptrdiff_t down = (height - 1) * image.lineStep;
  const std::ptrdiff_t across = static_cast<std::ptrdiff_t>(samplesPerPixel) * width;
  return {image.base + (down < 0 ? down : 0), image.base + (down > 0 ? down : 0) + across};
}

/// Whether an input can be read a block ahead of what is written: it shares nothing with the
/// destination, or each of its pixels only the same pixel.
inline bool readableAhead(const FloatTile& tile, const Image& input) {
  if (input.base == nullptr) return true;
  const Range a = rangeOf(tile.dst, tile.width, tile.height);
  const Range b = rangeOf(input, tile.width, tile.height);
  if (b.end <= a.first || a.end <= b.first) return true;
  const std::ptrdiff_t ahead = input.base - tile.dst.base;
  return input.lineStep == tile.dst.lineStep && ahead >= 0 &&
         ahead < static_cast<std::ptrdiff_t>(samplesPerPixel);
}

/// Describes a tile; false when the reference has to key it.
inline bool describe(const QMXOrvaniteTable& engine, int width, int height, const Otile& record,
                     const TileVariant& variant, FloatTile& tile) {
  tile.width = width;
  tile.height = height;
  tile.dst = imageOf(record.dst);
  tile.fg = imageOf(record.fg);
  tile.bg = imageOf(record.bg);
  tile.hold = variant.hold ? matteOf(record.hold) : Image();
  tile.garbage = variant.garbage ? matteOf(record.garbage) : Image();
  const bool fgGiven = record.fg.red && record.fg.green && record.fg.blue;
  const bool bgGiven = record.bg.red && record.bg.green && record.bg.blue;
  if (tile.dst.order == unknownOrder || (variant.alpha && !tile.dst.whole)) return false;
  if (!variant.alpha) tile.dst.whole = false;  // an alpha that is not written may be anybody's
  if (fgGiven && tile.fg.order == unknownOrder) return false;
  const bool bgUsed = !fgGiven || engine.view == 0;
  if (bgUsed && bgGiven && tile.bg.order == unknownOrder) return false;
  // A background's alpha that lies elsewhere than beside its colours.
  if (bgUsed && variant.alpha && record.bg.alpha != nullptr && !tile.bg.whole) return false;
  if (!bgUsed) tile.bg = Image();
  if (!fgGiven) tile.hold = tile.garbage = Image();

  const std::ptrdiff_t step = tile.dst.lineStep < 0 ? -tile.dst.lineStep : tile.dst.lineStep;
  if (height > 1 && step < static_cast<std::ptrdiff_t>(samplesPerPixel) * width) return false;
  for (const Image* input : {&tile.bg, &tile.fg, &tile.hold, &tile.garbage}) {
    if (!readableAhead(tile, *input)) return false;
  }
  return true;
}

/// Where a block's pixels are: whole pixels may be read and written at each pointer that is not
/// null.
struct Block {
  float* dst;
  const float *bg, *fg, *hold, *garbage;
  std::size_t pixels;  // whole vectors
};

inline const float* at(const Image& image, std::ptrdiff_t x, std::ptrdiff_t y) {
  if (image.base == nullptr) return nullptr;
  return image.base + y * image.lineStep + static_cast<std::ptrdiff_t>(samplesPerPixel) * x;
}

/// Copies pixels to a buffer: all four samples, or those that were given.
inline const float* stage(const Image& image, bool matte, const float* from, std::size_t n,
                          float* to) {
  if (from == nullptr) return nullptr;
  const std::size_t first = !matte && !image.whole && image.order == alphaFirst ? 1 : 0;
  const std::size_t end = matte ? 1 : image.whole || image.order == alphaFirst ? 4 : 3;
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t s = first; s < end; ++s) {
      to[samplesPerPixel * i + s] = from[samplesPerPixel * i + s];
    }
  }
  return to;
}

/// Puts n keyed pixels where they belong; the alpha only where it is written.
inline void unstage(const FloatTile& tile, std::ptrdiff_t x, std::ptrdiff_t y, std::size_t n,
                    bool alpha, const float* from) {
  float* const to = const_cast<float*>(at(tile.dst, x, y));  // dst came in as a writable image
  const std::size_t first = !alpha && tile.dst.order == alphaFirst ? 1 : 0;
  const std::size_t samples = alpha ? samplesPerPixel : 3;
  for (std::size_t i = first; i < samplesPerPixel * n; i += samplesPerPixel) {
    for (std::size_t s = 0; s < samples; ++s) to[i + s] = from[i + s];
  }
}

/// Takes fewer pixels than a block through buffers.
template <class Body>
HWY_NOINLINE void walkStaged(const FloatTile& tile, std::ptrdiff_t x, std::ptrdiff_t y,
                             std::size_t n, bool alpha, const Body& body) {
  constexpr std::size_t size = samplesPerPixel * 2 * maxFloatLanes;
  HWY_ALIGN float buffers[5][size];
  for (auto& buffer : buffers) {
    for (float& v : buffer) v = 0;
  }
  Block block;
  block.bg = stage(tile.bg, false, at(tile.bg, x, y), n, buffers[0]);
  block.fg = stage(tile.fg, false, at(tile.fg, x, y), n, buffers[1]);
  block.hold = stage(tile.hold, true, at(tile.hold, x, y), n, buffers[2]);
  block.garbage = stage(tile.garbage, true, at(tile.garbage, x, y), n, buffers[3]);
  block.dst = buffers[4];
  block.pixels = (n + floatLanes() - 1) / floatLanes() * floatLanes();
  body(block);
  unstage(tile, x, y, n, alpha, block.dst);
}

/// Calls body for blocks that together are the tile, line by line, left to right.
template <class Body>
inline void walk(const FloatTile& tile, bool alpha, const Body& body) {
  const std::size_t width = static_cast<std::size_t>(tile.width), lanes = floatLanes();
  bool guardStart = false, guardEnd = tile.hold.base != nullptr || tile.garbage.base != nullptr;
  for (const Image* image : {&tile.fg, &tile.bg}) {
    if (image->base == nullptr || image->whole) continue;
    if (image->base == tile.dst.base && tile.dst.whole) continue;
    (image->order == alphaFirst ? guardStart : guardEnd) = true;
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
      if (!alpha) unstage(tile, column, y, n, alpha, keyed);
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

HWY_INLINE Pixels loadPixels(const float* from, Order order) {
  Pixels p;
  if (order == alphaFirst) {
    loadSamples(from, p.alpha, p.colour[2], p.colour[1], p.colour[0]);
  } else {
    loadSamples(from, p.colour[0], p.colour[1], p.colour[2], p.alpha);
  }
  return p;
}

HWY_INLINE void storePixels(const Pixels& p, float* to, Order order) {
  if (order == alphaFirst) {
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
