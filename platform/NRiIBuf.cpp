// SPDX-License-Identifier: BSD-3-Clause
//
// Buffers, slices and their conversion. Every access stays inside the rectangle that a buffer says
// it has.
#include "platform/NRiIBuf.h"

#include <bit>
#include <cassert>
#include <cstdint>
#include <cstring>
#include <new>

#include "platform/NRiError.h"

namespace {

constexpr std::int64_t mostBytes = std::int64_t{1} << 31;

template <class T>
T fromUnit(float value) {
  if constexpr (sizeof(T) == 4) {
    return value;
  } else {
    return static_cast<T>(NRiCode(value, sizeof(T) == 1 ? 255u : 65535u));
  }
}

template <class To, class From>
To convertElement(From value) {
  if constexpr (sizeof(To) == sizeof(From)) {
    return value;
  } else if constexpr (sizeof(From) == 4) {
    return fromUnit<To>(value);
  } else if constexpr (sizeof(To) == 4) {
    // As picture readers do it: one product with the nearest float of the reciprocal.
    return static_cast<float>(value) * (1.0f / (sizeof(From) == 1 ? 255.0f : 65535.0f));
  } else if constexpr (sizeof(From) == 1) {
    return static_cast<To>(value * 257);
  } else {
    return static_cast<To>((value * 255u + 32767u) / 65535u);
  }
}

// Calls f with a value of the element type of a depth.
template <class F>
void withElement(int depth, F f) {
  if (depth == 1) {
    f(std::uint8_t{});
  } else if (depth == 2) {
    f(std::uint16_t{});
  } else {
    f(float{});
  }
}

// For each of the four channels its place in a stored pixel, or -1.
void places(int stored, int has, int place[4]) {
  int next = 0;
  for (int c = 0; c < 4; ++c) {
    const bool held = stored & (1 << c);
    place[c] = held && (has & (1 << c)) ? next : -1;
    if (held) ++next;
  }
}

// What a channel that the image lacks is taken to be: a picture without alpha is opaque, anything
// else is as its background.
float absent(int c, int has, int wanted, const NRiBPixel& background) {
  const bool picture = (has & 14) && (wanted & 14);
  return c == 0 && picture && !(has & 1) ? 1.0f : background.component(c);
}

// Copies `source` into the four-channel buffer `target`, whose rectangle it need not cover.
template <class To, class From>
void interleave(const NRiIBuf& source, NRiIBuf& target, const NRiBPixel& background, int has,
                int wanted) {
  int place[4];
  places(source.channels, has, place);
  To missing[4];  // of pixels outside
  To lacked[4];   // of pixels inside
  for (int c = 0; c < 4; ++c) {
    missing[c] = fromUnit<To>(background.component(c));
    lacked[c] = fromUnit<To>(absent(c, has, wanted, background));
  }
  const NRiRect whole = target.rect();
  NRiRect common = source.data ? source.rect().intersect(whole) : NRiRect{};
  if (common.empty()) common = {whole.x1, whole.y2, whole.x1, whole.y2};
  const int count = NRiIBuf::channelCount(source.channels);
  for (int y = whole.y1; y < whole.y2; ++y) {
    To* out = reinterpret_cast<To*>(target.at(whole.x1, y));
    const bool held = y >= common.y1 && y < common.y2;
    const int from = held ? common.x1 : whole.x2;
    const int to = held ? common.x2 : whole.x2;
    const auto fill = [&](int x, int end) {
      for (; x < end; ++x, out += 4) std::memcpy(out, missing, sizeof missing);
    };
    fill(whole.x1, from);
    if (from < to) {
      const From* in = reinterpret_cast<const From*>(source.at(from, y));
      for (int x = from; x < to; ++x, in += count, out += 4) {
        for (int c = 0; c < 4; ++c) {
          out[c] = place[c] < 0 ? lacked[c] : convertElement<To>(in[place[c]]);
        }
      }
    }
    fill(to, whole.x2);
  }
}

}  // namespace

int NRiIBuf::channelCount(int mask) { return std::popcount(static_cast<unsigned>(mask) & 15u); }

std::byte* NRiIBuf::at(int x, int y) const {
  const std::ptrdiff_t element =
      (y - firstLine) * lineStep() + std::ptrdiff_t{x - firstPixel} * channelCount(channels);
  return static_cast<std::byte*>(data) + element * depth;
}

void NRiIBuf::clear() { *this = NRiIBuf(); }

void NRiIBuf::allocate(const NRiRect& rect, int channelMask, int bytes, int extraElements) {
  clear();
  if (rect.empty() || channelCount(channelMask) == 0) return;
  assert(extraElements >= 0 && (bytes == 1 || bytes == 2 || bytes == 4));
  const std::int64_t columns = std::int64_t{rect.x2} - rect.x1;
  const std::int64_t rows = std::int64_t{rect.y2} - rect.y1;
  const std::int64_t step = columns * channelCount(channelMask) + extraElements;
  if (step > mostBytes || step * bytes > mostBytes / rows) {
    throw NRiError("an image of " + std::to_string(columns) + " x " + std::to_string(rows) +
                   " pixels is too large: expected at most 2147483648 bytes");
  }
  const auto size = static_cast<std::size_t>(step * bytes * rows);
  memory_.reset(new (std::nothrow) std::byte[size]);
  if (!memory_) throw NRiError("out of memory for " + std::to_string(size) + " bytes of pixels");
  data = memory_.get();
  extra = extraElements;
  firstLine = rect.y1;
  lines = static_cast<int>(rows);
  firstPixel = rect.x1;
  width = static_cast<int>(columns);
  channels = channelMask & 15;
  depth = bytes;
}

void NRiIBuf::threadIBuf(NRiIBuf& slice, NRiRect& rect, int bytes, int thread, int threads,
                         [[maybe_unused]] int mode) {
  assert(mode == 0 && thread >= 0 && thread < threads);
  const std::int64_t rows = rect.empty() ? 0 : std::int64_t{rect.y2} - rect.y1;
  const int top = rect.y1;
  rect.y1 = top + static_cast<int>(rows * thread / threads);
  rect.y2 = top + static_cast<int>(rows * (thread + 1) / threads);

  slice.clear();
  slice.share_ = rect;
  slice.depth = bytes;
  slice.channels = channels;
  if (!data || rect.empty()) return;
  assert(bytes == depth);
  const NRiRect common = rect.intersect(this->rect());
  if (common.empty()) return;
  slice.data = at(common.x1, common.y1);
  slice.firstPixel = common.x1;
  slice.width = common.x2 - common.x1;
  slice.firstLine = common.y1;
  slice.lines = common.y2 - common.y1;
  slice.extra = static_cast<int>(lineStep() - std::ptrdiff_t{slice.width} * channelCount(channels));
}

void NRiIBuf::expand([[maybe_unused]] int sliceWidth, int bytes, const NRiBPixel& background,
                     int has, int wanted) {
  assert(sliceWidth == share_.x2 - share_.x1);
  const bool fits = data && channels == 15 && rect() == share_;
  withElement(bytes, [&](auto element) {
    using T = decltype(element);
    if (!fits) {
      NRiIBuf own;
      own.allocate(share_, 15, bytes);
      interleave<T, T>(*this, own, background, has, wanted);
      own.share_ = share_;
      *this = std::move(own);
      return;
    }
    for (int c = 0; c < 4; ++c) {
      if (!((wanted & ~has) & (1 << c))) continue;
      const T value = fromUnit<T>(absent(c, has, wanted, background));
      for (int y = share_.y1; y < share_.y2; ++y) {
        T* out = reinterpret_cast<T*>(at(share_.x1, y)) + c;
        for (int x = share_.x1; x < share_.x2; ++x, out += 4) *out = value;
      }
    }
  });
}

NRiIBuf NRiIBuf::interleaved(const NRiRect& rect, int bytes, const NRiBPixel& background) const {
  NRiIBuf copy;
  copy.allocate(rect, 15, bytes);
  if (!copy.data) return copy;
  const NRiRect common = data ? rect.intersect(this->rect()) : NRiRect{};
  if (common == rect && channels == 15 && depth == bytes) {  // nothing to work out: copy lines
    const std::size_t length = static_cast<std::size_t>(copy.lineStep() * depth);
    for (int y = rect.y1; y < rect.y2; ++y) {
      std::memcpy(copy.at(rect.x1, y), at(rect.x1, y), length);
    }
    return copy;
  }
  withElement(bytes, [&](auto to) {
    withElement(data ? depth : bytes, [&](auto from) {
      interleave<decltype(to), decltype(from)>(*this, copy, background, 15, 15);
    });
  });
  return copy;
}

NRiIBuf NRiIBuf::converted(int bytes) const {
  NRiIBuf copy;
  if (!data) return copy;
  copy.allocate(rect(), channels, bytes);
  const int count = width * channelCount(channels);
  withElement(bytes, [&](auto to) {
    withElement(depth, [&](auto from) {
      using To = decltype(to);
      using From = decltype(from);
      for (int y = firstLine; y < firstLine + lines; ++y) {
        const From* in = reinterpret_cast<const From*>(at(firstPixel, y));
        To* out = reinterpret_cast<To*>(copy.at(firstPixel, y));
        for (int i = 0; i < count; ++i) out[i] = convertElement<To>(in[i]);
      }
    });
  });
  return copy;
}
