// SPDX-License-Identifier: BSD-3-Clause
//
// Pixels in memory. A pixel's stored channels lie in the order alpha, blue, green, red, absent ones
// leaving no gap; channel masks use bit 1 alpha, 2 blue, 4 green, 8 red. A buffer may hold fewer
// channels than its image and fewer pixels than a region; expand() makes up for both.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>

#include "platform/NRiBPixel.h"
#include "platform/NRiExport.h"
#include "platform/NRiRect.h"

/// A rectangle of pixels, its own memory or a view of another's.
class NRI_API NRiIBuf {
 public:
  void* data = nullptr;  // first pixel of the first line; null when the buffer holds nothing
  int extra = 0;         // elements that follow the pixels of each line
  int firstLine = 0;     // the first, from the top
  int lines = 0;         // how many
  int firstPixel = 0;    // column of the first
  int width = 0;         // pixels a line
  int channels = 0;      // stored channels
  int depth = 0;         // bytes of an element: 1, 2 or 4

  NRiIBuf() = default;
  /// Takes the memory over; the other holds nothing then.
  NRiIBuf(NRiIBuf&& other) noexcept { swap(other); }
  NRiIBuf& operator=(NRiIBuf&& other) noexcept {
    NRiIBuf taken(std::move(other));  // leaves `other` holding nothing
    swap(taken);
    return *this;
  }

  /// Takes memory for a rectangle, its contents unset. An empty rectangle or mask clears the
  /// buffer. Throws NRiError when the size is beyond 2^31 bytes or memory runs out.
  void allocate(const NRiRect& rect, int channelMask, int bytes, int extraElements = 0);
  /// Lets memory go; the buffer then holds nothing.
  void clear();

  /// What it covers.
  NRiRect rect() const { return {firstPixel, firstLine, firstPixel + width, firstLine + lines}; }
  /// How many channels a mask names.
  static int channelCount(int mask);
  std::ptrdiff_t lineStep() const {  // in elements
    return static_cast<std::ptrdiff_t>(width) * channelCount(channels) + extra;
  }
  std::byte* at(int x, int y) const;  // the pixel's first element

  /// Makes `slice` the share of `rect` that belongs to thread `thread` of `threads`, and `rect`
  /// its extent: whole lines, split evenly, so equal rectangles give equal shares whatever the
  /// buffer. The slice is a view of this buffer where the two meet. `bytes` is the element size;
  /// `mode` is 0.
  void threadIBuf(NRiIBuf& slice, NRiRect& rect, int bytes, int thread, int threads, int mode);

  /// Makes this slice hold four channels for every pixel of its share, `sliceWidth` pixels a line.
  /// A wanted channel that the image lacks (`has`), and every pixel outside the buffer, takes the
  /// background pixel's value; but a picture without alpha is opaque when colours are wanted of it.
  /// A slice of a four-channel buffer that covers the share stays a view
  /// of that buffer; any other gets memory of its own.
  void expand(int sliceWidth, int bytes, const NRiBPixel& background, int has, int wanted);

  /// A copy of `rect` with four channels at `bytes` an element, converting between depths; what
  /// the buffer does not hold takes the background pixel's value.
  NRiIBuf interleaved(const NRiRect& rect, int bytes, const NRiBPixel& background) const;
  /// The same pixels and channels at another depth.
  NRiIBuf converted(int bytes) const;

 private:
  void swap(NRiIBuf& other) noexcept {
    std::swap(data, other.data);
    std::swap(extra, other.extra);
    std::swap(firstLine, other.firstLine);
    std::swap(lines, other.lines);
    std::swap(firstPixel, other.firstPixel);
    std::swap(width, other.width);
    std::swap(channels, other.channels);
    std::swap(depth, other.depth);
    std::swap(memory_, other.memory_);
    std::swap(share_, other.share_);
  }

  std::unique_ptr<std::byte[]> memory_;
  NRiRect share_;  // of a slice
};
