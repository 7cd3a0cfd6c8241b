// SPDX-License-Identifier: BSD-3-Clause
//
// 16-bit codes go through a table that the library's own conversion filled, so that both forms
// agree by construction.
#include "apps/view/Proxy.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <type_traits>

#include "apps/view/PageView.h"

namespace orvanite::view {
namespace {

using Rows = tbb::blocked_range<int>;
constexpr int bandRows = 32;

std::size_t at(int index) { return static_cast<std::size_t>(index); }

template <class Sample>
void shrinkRows(const Sample* from, int width, int height, Sample* to, int divisor) {
  const int outWidth = (width + divisor - 1) / divisor;
  const int outHeight = (height + divisor - 1) / divisor;
  // Integer sums: 64 pixels of 16 bits need 22.
  using Sum = std::conditional_t<std::is_floating_point_v<Sample>, float, std::uint32_t>;
  tbb::parallel_for(Rows(0, outHeight, bandRows), [&](const Rows& rows) {
    for (int y = rows.begin(); y != rows.end(); ++y) {
      const int top = y * divisor;
      const int bottom = std::min(height, top + divisor);
      for (int x = 0; x < outWidth; ++x) {
        const int left = x * divisor;
        const int right = std::min(width, left + divisor);
        std::array<Sum, 4> sums{};
        for (int v = top; v < bottom; ++v) {
          const Sample* pixel = from + 4 * (at(v) * at(width) + at(left));
          for (int u = left; u < right; ++u, pixel += 4) {
            for (std::size_t c = 0; c < 4; ++c) sums[c] += pixel[c];
          }
        }
        const auto count = static_cast<Sum>((bottom - top) * (right - left));
        Sample* result = to + 4 * (at(y) * at(outWidth) + at(x));
        for (std::size_t c = 0; c < 4; ++c) {
          if constexpr (std::is_floating_point_v<Sample>) {
            result[c] = sums[c] / count;
          } else {
            result[c] = static_cast<Sample>((sums[c] + count / 2) / count);
          }
        }
      }
    }
  });
}

const std::array<std::uint8_t, 65536>& codesOf16() {
  static const std::array<std::uint8_t, 65536> table = [] {
    std::vector<std::uint16_t> codes(65536);
    for (std::size_t i = 0; i < codes.size(); ++i) codes[i] = static_cast<std::uint16_t>(i);
    std::array<std::uint8_t, 65536> made{};
    OIIO::convert_pixel_values(OIIO::TypeDesc::UINT16, codes.data(), OIIO::TypeDesc::UINT8,
                               made.data(), 65536);
    return made;
  }();
  return table;
}

}  // namespace

media::Picture shrink(const media::Picture& picture, int divisor) {
  const media::Window window{0, 0, (picture.data.width + divisor - 1) / divisor,
                             (picture.data.height + divisor - 1) / divisor};
  media::Picture result = media::Picture::make(window, picture.depth, picture.samples);
  result.hasAlpha = picture.hasAlpha;
  withSampleOf(picture.depth, [&]<class Sample>(std::type_identity<Sample>) {
    shrinkRows(reinterpret_cast<const Sample*>(picture.pixels.get()), picture.data.width,
               picture.data.height, reinterpret_cast<Sample*>(result.pixels.get()), divisor);
  });
  return result;
}

ScreenPicture toScreen(const std::byte* pixels, std::size_t rowBytes, int width, int height,
                       Depth depth, bool light) {
  ScreenPicture screen{width, height, {}};
  const std::size_t samples = 4 * at(width);
  screen.rgba.resize(samples * at(height));
  tbb::parallel_for(Rows(0, height, bandRows), [&](const Rows& rows) {
    for (int y = rows.begin(); y != rows.end(); ++y) {
      const std::byte* from = pixels + at(y) * rowBytes;
      std::uint8_t* to = screen.rgba.data() + at(y) * samples;
      switch (depth) {
        case Depth::bytes:
          std::memcpy(to, from, samples);
          break;
        case Depth::shorts: {
          const auto& table = codesOf16();
          const auto* codes = reinterpret_cast<const std::uint16_t*>(from);
          for (std::size_t i = 0; i < samples; ++i) to[i] = table[codes[i]];
          break;
        }
        case Depth::floats:
          if (light) {
            toCodes(reinterpret_cast<const float*>(from), at(width), to, light);
            break;
          }
          OIIO::convert_pixel_values(OIIO::TypeDesc::FLOAT, from, OIIO::TypeDesc::UINT8, to,
                                     static_cast<int>(samples));
      }
    }
  });
  return screen;
}

ScreenPicture shrink(const ScreenPicture& picture, int divisor) {
  ScreenPicture result{
      (picture.width + divisor - 1) / divisor, (picture.height + divisor - 1) / divisor, {}};
  result.rgba.resize(4 * at(result.width) * at(result.height));
  shrinkRows(picture.rgba.data(), picture.width, picture.height, result.rgba.data(), divisor);
  return result;
}

}  // namespace orvanite::view
