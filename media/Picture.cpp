// SPDX-License-Identifier: BSD-3-Clause
//
// Pictures in memory.
#include "media/Picture.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>

#include "base/Error.h"

namespace orvanite::media {
namespace {

// Beyond the last pixel: converters of whole vectors may touch what lies there.
constexpr std::size_t slackBytes = 64;

template <class Sample>
void multiply(Picture& picture) {
  auto* pixel = reinterpret_cast<Sample*>(picture.pixels.get());
  const auto* end = pixel + picture.bytes() / sizeof(Sample);
  for (; pixel != end; pixel += 4) {
    for (int c = 0; c < 3; ++c) {
      if constexpr (std::is_integral_v<Sample>) {
        constexpr unsigned most = std::numeric_limits<Sample>::max();
        pixel[c] = static_cast<Sample>((unsigned{pixel[c]} * pixel[3] + most / 2) / most);
      } else {
        pixel[c] *= pixel[3];
      }
    }
  }
}

template <class Sample>
void paint(Picture& picture, const Window& inside, const std::array<Sample, 3>& colour) {
  auto* pixel = reinterpret_cast<Sample*>(picture.pixels.get());
  const Window& data = picture.data;
  for (int y = data.y; y < data.y + data.height; ++y) {
    const bool rowInside = y >= inside.y && y < inside.y + inside.height;
    for (int x = data.x; x < data.x + data.width; ++x, pixel += 4) {
      if (rowInside && x >= inside.x && x < inside.x + inside.width) continue;
      std::copy(colour.begin(), colour.end(), pixel);
    }
  }
}

template <class Sample>
void fillAlpha(Picture& picture, Sample value) {
  auto* const samples = reinterpret_cast<Sample*>(picture.pixels.get());
  const std::size_t count = picture.bytes() / sizeof(Sample);
  for (std::size_t i = 3; i < count; i += 4) samples[i] = value;
}

template <class Code>
std::array<Code, 3> codesOf(const std::array<float, 3>& colour, Code most) {
  const auto code = [top = static_cast<float>(most)](float v) {
    return static_cast<Code>(std::clamp(std::fma(v, top, 0.5f), 0.0f, top));
  };
  return {code(colour[0]), code(colour[1]), code(colour[2])};
}

}  // namespace

Depth depthOf(Samples samples) {
  return samples == Samples::uint8    ? Depth::bytes
         : samples == Samples::uint16 ? Depth::shorts
                                      : Depth::floats;
}

OIIO::TypeDesc typeInMemory(Depth depth) {
  return depth == Depth::bytes    ? OIIO::TypeDesc::UINT8
         : depth == Depth::shorts ? OIIO::TypeDesc::UINT16
                                  : OIIO::TypeDesc::FLOAT;
}

std::string nameOf(Samples samples) {
  switch (samples) {
    case Samples::uint8:
      return "8-bit";
    case Samples::uint16:
      return "16-bit";
    case Samples::half:
      return "half";
    default:
      return "float";
  }
}

Window united(const Window& a, const Window& b) {
  const int x = std::min(a.x, b.x);
  const int y = std::min(a.y, b.y);
  return {x, y, std::max(a.x + a.width, b.x + b.width) - x,
          std::max(a.y + a.height, b.y + b.height) - y};
}

Picture Picture::make(const Window& data, Depth depth, Samples samples) {
  Picture picture;
  picture.data = data;
  picture.depth = depth;
  picture.samples = samples;
  try {
    picture.pixels = takePixels(picture.bytes() + slackBytes);
  } catch (const std::bad_alloc&) {
    throw Error(Fault::failure, "picture",
                "out of memory for " + std::to_string(data.width) + "x" +
                    std::to_string(data.height) + " pixels");
  }
  return picture;
}

Picture atDepth(const Picture& picture, Depth depth) {
  Picture result = Picture::make(picture.data, depth, picture.samples);
  result.hasAlpha = picture.hasAlpha;
  result.header = picture.header;
  OIIO::convert_image(4, picture.data.width, picture.data.height, 1, picture.pixels.get(),
                      typeInMemory(picture.depth), OIIO::stride_t{4} * bytesOf(picture.depth),
                      static_cast<OIIO::stride_t>(picture.rowBytes()), OIIO::AutoStride,
                      result.pixels.get(), typeInMemory(depth), OIIO::stride_t{4} * bytesOf(depth),
                      static_cast<OIIO::stride_t>(result.rowBytes()), OIIO::AutoStride);
  return result;
}

Picture placed(Picture picture, const Window& window) {
  return picture.data == window ? std::move(picture) : part(picture, window);
}

Picture part(const Picture& picture, const Window& window) {
  const Window& from = picture.data;
  Picture result = Picture::make(window, picture.depth, picture.samples);
  std::memset(result.pixels.get(), 0, result.bytes());
  const int left = std::max(from.x, window.x);
  const int right = std::min(from.x + from.width, window.x + window.width);
  const int top = std::max(from.y, window.y);
  const int bottom = std::min(from.y + from.height, window.y + window.height);
  const auto pixelBytes = std::size_t{4} * static_cast<std::size_t>(bytesOf(picture.depth));
  for (int y = top; y < bottom && left < right; ++y) {
    std::memcpy(result.pixels.get() + result.rowBytes() * static_cast<std::size_t>(y - window.y) +
                    pixelBytes * static_cast<std::size_t>(left - window.x),
                picture.pixels.get() + picture.rowBytes() * static_cast<std::size_t>(y - from.y) +
                    pixelBytes * static_cast<std::size_t>(left - from.x),
                pixelBytes * static_cast<std::size_t>(right - left));
  }
  result.hasAlpha = picture.hasAlpha;
  result.header = picture.header;
  return result;
}

void paintOutside(Picture& picture, const Window& inside, const std::array<float, 3>& colour) {
  if (picture.data == inside) return;
  withSampleOf(picture.depth, [&]<class Sample>(std::type_identity<Sample>) {
    if constexpr (std::is_integral_v<Sample>) {
      paint(picture, inside, codesOf(colour, std::numeric_limits<Sample>::max()));
    } else {
      paint(picture, inside, colour);
    }
  });
}

void makeOpaque(Picture& picture) {
  withSampleOf(picture.depth, [&]<class Sample>(std::type_identity<Sample>) {
    fillAlpha(picture, static_cast<Sample>(maxOf(picture.depth)));
  });
}

void multiplyByAlpha(Picture& picture) {
  picture.premultiplied = true;
  withSampleOf(picture.depth,
               [&]<class Sample>(std::type_identity<Sample>) { multiply<Sample>(picture); });
}

}  // namespace orvanite::media
