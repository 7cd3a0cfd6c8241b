// SPDX-License-Identifier: BSD-3-Clause
#include "keyer/Look.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "engine/colour/Power.h"

namespace orvanite {
namespace {

/// The encoding curve over the square root of light, where it is nearly straight.
class CodeTable {
 public:
  CodeTable() {
    for (int i = 0; i <= steps; ++i) {
      const float root = static_cast<float>(i) * top / steps;
      codes_[static_cast<std::size_t>(i)] = codeOfLight(root * root);
    }
  }
  float operator()(float light) const {
    const float place = std::min(std::sqrt(std::max(light, 0.0f)) * (steps / top), steps - 0.001f);
    const auto cell = static_cast<std::size_t>(place);
    return codes_[cell] + (place - static_cast<float>(cell)) * (codes_[cell + 1] - codes_[cell]);
  }

 private:
  static constexpr int steps = 8192;
  static constexpr float top = 8;  // the root of 64
  std::array<float, steps + 1> codes_{};
};

template <class Sample>
void reduceRow(const Plate& plate, int factor, int row, const std::array<float*, 3>& to,
               int width) {
  using Sum = std::conditional_t<std::is_same_v<Sample, float>, float, std::uint32_t>;
  const OtileImage& i = plate.image;
  const std::array<const void*, 3> channels = {i.red, i.green, i.blue};
  const int top = row * factor;
  const int bottom = std::min(plate.height, top + factor);
  const float white = std::is_same_v<Sample, float>          ? 1.0f
                      : std::is_same_v<Sample, std::uint8_t> ? 255.0f
                                                             : 65535.0f;
  for (std::size_t c = 0; c < 3; ++c) {
    for (int x = 0; x < width; ++x) {
      const int left = x * factor;
      const int right = std::min(plate.width, left + factor);
      Sum sum = 0;
      for (int y = top; y < bottom; ++y) {
        const Sample* from = static_cast<const Sample*>(channels[c]) +
                             std::ptrdiff_t{y} * i.lineStep + std::ptrdiff_t{left} * i.pixelStep;
        for (int at = left; at < right; ++at, from += i.pixelStep) {
          if constexpr (std::is_same_v<Sample, float>) {
            // Infinities and what is no number count as black.
            if (*from > 0 && *from < 1e30f) sum += std::min(*from, 64.0f);
          } else {
            sum += *from;
          }
        }
      }
      to[c][x] =
          static_cast<float>(sum) / (white * static_cast<float>((bottom - top) * (right - left)));
    }
  }
}

/// Whether green and blue lie behind red, and four samples on the next pixel's.
template <class Sample>
bool isInterleaved(const OtileImage& image) {
  const auto* red = static_cast<const Sample*>(image.red);
  return image.pixelStep == 4 && image.green == red + 1 && image.blue == red + 2;
}

/// The same for interleaved integers, whose sums come in any order: rows first.
template <class Sample>
void reduceRow(const Plate& plate, int factor, int row, std::vector<std::uint32_t>& line,
               const std::array<float*, 3>& to, int width) {
  const int top = row * factor;
  const int bottom = std::min(plate.height, top + factor);
  // Nothing is read behind the last blue.
  const std::size_t samples = 4 * static_cast<std::size_t>(plate.width) - 1;
  line.assign(samples, 0);
  for (int y = top; y < bottom; ++y) {
    const Sample* from =
        static_cast<const Sample*>(plate.image.red) + std::ptrdiff_t{y} * plate.image.lineStep;
    for (std::size_t i = 0; i < samples; ++i) line[i] += from[i];
  }
  const float white = std::is_same_v<Sample, std::uint8_t> ? 255.0f : 65535.0f;
  for (int x = 0; x < width; ++x) {
    const int left = x * factor;
    const int right = std::min(plate.width, left + factor);
    std::array<std::uint32_t, 3> sum{};
    for (int at = left; at < right; ++at) {
      for (std::size_t c = 0; c < 3; ++c) sum[c] += line[4 * static_cast<std::size_t>(at) + c];
    }
    const float of = white * static_cast<float>((bottom - top) * (right - left));
    for (std::size_t c = 0; c < 3; ++c) to[c][x] = static_cast<float>(sum[c]) / of;
  }
}

}  // namespace

float codeOfLight(float light) {
  return light <= 0.0031308f ? 12.92f * std::max(light, 0.0f)
                             : 1.055f * power(light, 1 / 2.4f) - 0.055f;
}

float lightOfCode(float code) {
  return code <= 0.04045f ? std::max(code, 0.0f) / 12.92f : power((code + 0.055f) / 1.055f, 2.4f);
}

Look lookAt(const Plate& plate, Encoding encoding, const RowLoop& rows, int most) {
  Look look;
  look.rows = rows;
  look.width = plate.width;
  look.height = plate.height;
  look.encoding = encoding;
  if (plate.width < 1 || plate.height < 1) return look;
  const double pixels = static_cast<double>(plate.width) * plate.height;
  look.factor = std::max(1, static_cast<int>(std::ceil(std::sqrt(pixels / most))));
  const int w = (plate.width + look.factor - 1) / look.factor;
  const int h = (plate.height + look.factor - 1) / look.factor;
  for (Plane& plane : look.codes) plane = Plane::unset(w, h);
  static const CodeTable encode;
  constexpr int fewRows = 8;
  rows(h, fewRows, [&](int first, int count) {
    std::vector<std::uint32_t> line;
    for (int y = first; y < first + count; ++y) {
      const std::array<float*, 3> to = {&look.codes[0](0, y), &look.codes[1](0, y),
                                        &look.codes[2](0, y)};
      withSampleOf(plate.depth, [&]<class T>(std::type_identity<T>) {
        if constexpr (!std::is_same_v<T, float>) {
          if (isInterleaved<T>(plate.image))
            return reduceRow<T>(plate, look.factor, y, line, to, w);
        }
        reduceRow<T>(plate, look.factor, y, to, w);
      });
      if (encoding == Encoding::codes) continue;
      for (float* row : to) {
        for (int x = 0; x < w; ++x) row[x] = encode(row[x]);
      }
    }
  });
  return look;
}

}  // namespace orvanite
