// SPDX-License-Identifier: BSD-3-Clause
//
// Mattes made of pictures; see Mattes.h. Rows may be the caller's own, and unaligned, so
// that samples are copied in and out.
#include "keyer/Mattes.h"

#include <cstddef>
#include <cstring>
#include <type_traits>

namespace orvanite {

namespace {

template <class T>
T load(const void* channel, std::ptrdiff_t at) {
  T value;
  std::memcpy(&value, static_cast<const T*>(channel) + at, sizeof value);
  return value;
}

template <class T>
void store(void* channel, std::ptrdiff_t at, T value) {
  std::memcpy(static_cast<T*>(channel) + at, &value, sizeof value);
}

std::ptrdiff_t placeOf(const OtileImage& image, int x, int y) {
  return std::ptrdiff_t{image.lineStep} * y + std::ptrdiff_t{image.pixelStep} * x;
}

// The weights of red, green and blue in 65536ths; they sum up to 65536, so that greys stay.
constexpr std::uint64_t weights[] = {13933, 46871, 4732};

template <class T>
T luminanceOf(T r, T g, T b) {
  if constexpr (std::is_floating_point_v<T>) {
    return g + (0.2126f * (r - g) + 0.0722f * (b - g));
  } else {
    return static_cast<T>((weights[0] * r + weights[1] * g + weights[2] * b + 32768) >> 16);
  }
}

// 0..1 or a code; NaN is 0.
template <class T>
T held(T value) {
  if constexpr (std::is_floating_point_v<T>) {
    return value > 1 ? 1 : value > 0 ? value : 0;
  } else {
    return value;
  }
}

template <class T>
T united(T a, T b, T top) {
  if constexpr (std::is_floating_point_v<T>) {
    return 1 - (1 - a) * (1 - b);
  } else {
    const std::uint64_t rest = std::uint64_t{static_cast<T>(top - a)} * static_cast<T>(top - b);
    return static_cast<T>(top - (rest + top / 2) / top);
  }
}

template <class T>
void luminanceOfArea(const OtileImage& picture, const MatteArea& area) {
  for (int y = 0; y < area.lines; ++y) {
    for (int x = 0; x < area.width; ++x) {
      const std::ptrdiff_t at = placeOf(picture, x, y);
      store(picture.alpha, at,
            luminanceOf(load<T>(picture.red, at), load<T>(picture.green, at),
                        load<T>(picture.blue, at)));
    }
  }
}

template <class T>
void uniteArea(const OtileImage& out, const OtileImage& matte, const OtileImage& source,
               bool inverted, const MatteArea& area) {
  const T top = static_cast<T>(maxOf(area.depth));
  for (int y = 0; y < area.lines; ++y) {
    for (int x = 0; x < area.width; ++x) {
      const T own = held(load<T>(source.alpha, placeOf(source, x, y)));
      const T from = inverted ? static_cast<T>(top - own) : own;
      const T with = matte.alpha ? held(load<T>(matte.alpha, placeOf(matte, x, y))) : T{};
      store(out.alpha, placeOf(out, x, y), united(with, from, top));
    }
  }
}

}  // namespace

void luminanceToAlpha(const OtileImage& picture, const MatteArea& area) {
  withSampleOf(area.depth,
               [&]<class T>(std::type_identity<T>) { luminanceOfArea<T>(picture, area); });
}

void unite(const OtileImage& out, const OtileImage& matte, const OtileImage& source, bool inverted,
           const MatteArea& area) {
  withSampleOf(area.depth, [&]<class T>(std::type_identity<T>) {
    uniteArea<T>(out, matte, source, inverted, area);
  });
}

}  // namespace orvanite
