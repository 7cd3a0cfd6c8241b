// SPDX-License-Identifier: BSD-3-Clause
//
// A plate in every format that OBS's sources have, and what its pixels are by the book: codes by
// BT.709, differences sited left and, where rows are halved, midway between rows.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <vector>

#include "tests/plugins/ObsHost.h"

namespace obsScene {

using Rgb = std::array<double, 3>;

/// A grey disc with a soft edge, striped with skin, before an uneven green screen: 0 to 255.
inline Rgb subject(int x, int y, int width, int height) {
  const double dx = x - width * 0.5, dy = y - height * 0.55;
  const double radius = std::sqrt(dx * dx + dy * dy) / height;
  const double solid = std::clamp((0.33 - radius) / 0.04, 0.0, 1.0);
  const double light = 1 - 0.12 * x / width;
  const Rgb screen{44 * light, 158 * light, 60 * light};
  const Rgb inside = (x / 9) % 3 == 0 ? Rgb{190, 140, 118} : Rgb{128, 128, 128};
  Rgb mixed{};
  for (std::size_t c = 0; c < 3; ++c) mixed[c] = solid * inside[c] + (1 - solid) * screen[c];
  return mixed;
}

/// Where a format's samples lie, written down once more.
struct Form {
  video_format format;
  int bits, shift;      // of a sample; how far up it stands
  int across, down;     // pixels to a sample of difference
  int planes;           // 3, 2, or 1 packed
  const char* packing;  // of two pixels, where packed
};

constexpr Form forms[] = {
    {VIDEO_FORMAT_I420, 8, 0, 2, 2, 3, ""},     {VIDEO_FORMAT_NV12, 8, 0, 2, 2, 2, ""},
    {VIDEO_FORMAT_YUY2, 8, 0, 2, 1, 1, "yuYv"}, {VIDEO_FORMAT_YVYU, 8, 0, 2, 1, 1, "yvYu"},
    {VIDEO_FORMAT_UYVY, 8, 0, 2, 1, 1, "uyvY"}, {VIDEO_FORMAT_I422, 8, 0, 2, 1, 3, ""},
    {VIDEO_FORMAT_I444, 8, 0, 1, 1, 3, ""},     {VIDEO_FORMAT_I40A, 8, 0, 2, 2, 3, ""},
    {VIDEO_FORMAT_I42A, 8, 0, 2, 1, 3, ""},     {VIDEO_FORMAT_YUVA, 8, 0, 1, 1, 3, ""},
    {VIDEO_FORMAT_AYUV, 8, 0, 1, 1, 1, "vuya"}, {VIDEO_FORMAT_I010, 10, 0, 2, 2, 3, ""},
    {VIDEO_FORMAT_P010, 10, 6, 2, 2, 2, ""},    {VIDEO_FORMAT_I210, 10, 0, 2, 1, 3, ""},
    {VIDEO_FORMAT_I412, 12, 0, 1, 1, 3, ""},    {VIDEO_FORMAT_YA2L, 12, 0, 1, 1, 3, ""},
    {VIDEO_FORMAT_RGBA, 8, 0, 1, 1, 1, "rgba"}, {VIDEO_FORMAT_BGRA, 8, 0, 1, 1, 1, "bgra"},
    {VIDEO_FORMAT_BGRX, 8, 0, 1, 1, 1, "bgra"}, {VIDEO_FORMAT_BGR3, 8, 0, 1, 1, 1, "bgr"},
};

/// Codes of one component.
struct Plane {
  int width = 0, height = 0;
  std::vector<int> codes;
  int at(int x, int y) const {
    return codes[static_cast<std::size_t>(std::clamp(y, 0, height - 1) * width +
                                          std::clamp(x, 0, width - 1))];
  }
};

class Plate {
 public:
  /// `gap` is how many pixels lie between its rows.
  Plate(const Form& form, int width, int height, int gap = 0)
      : frame(form.format, width + gap, height), width_(width), height_(height), form_(form) {
    frame->width = static_cast<std::uint32_t>(width);
    const bool rgb = std::strchr(form.packing, 'r') != nullptr;
    for (std::size_t c = 0; c < 3; ++c) {
      const bool halved = c > 0 && !rgb;
      planes_[c] = {(width + (halved ? form.across - 1 : 0)) / (halved ? form.across : 1),
                    (height + (halved ? form.down - 1 : 0)) / (halved ? form.down : 1),
                    {}};
      for (int y = 0; y < planes_[c].height; ++y) {
        for (int x = 0; x < planes_[c].width; ++x) {
          const Rgb colour =
              subject(x * (halved ? form.across : 1), y * (halved ? form.down : 1), width, height);
          planes_[c].codes.push_back(rgb ? static_cast<int>(std::lround(colour[c]))
                                         : codeOf(colour, c));
        }
      }
    }
    rgba = byTheBook(rgb);
    write();
  }

  ObsFrame frame;
  std::vector<std::uint8_t> rgba;  // what its pixels are

 private:
  double scale() const { return 1 << (form_.bits - 8); }

  int codeOf(const Rgb& colour, std::size_t component) const {
    const double luma = (0.2126 * colour[0] + 0.7152 * colour[1] + 0.0722 * colour[2]) / 255;
    const double unit = component == 0   ? 16 + 219 * luma
                        : component == 1 ? 128 + 224 * (colour[2] / 255 - luma) / 1.8556
                                         : 128 + 224 * (colour[0] / 255 - luma) / 1.5748;
    return static_cast<int>(std::lround(unit * scale()));
  }

  double difference(std::size_t component, int x, int y) const {
    const Plane& plane = planes_[component];
    const double across = form_.across == 2 ? x / 2.0 : x;
    const double down = form_.down == 2 ? (y + 0.5) / 2 - 0.5 : y;
    const int left = static_cast<int>(std::floor(across)), top = static_cast<int>(std::floor(down));
    const double right = across - left, below = down - top;
    return (1 - below) * ((1 - right) * plane.at(left, top) + right * plane.at(left + 1, top)) +
           below * ((1 - right) * plane.at(left, top + 1) + right * plane.at(left + 1, top + 1));
  }

  std::vector<std::uint8_t> byTheBook(bool rgb) const {
    std::vector<std::uint8_t> made;
    for (int y = 0; y < height_; ++y) {
      for (int x = 0; x < width_; ++x) {
        Rgb colour{};
        if (rgb) {
          for (std::size_t c = 0; c < 3; ++c) colour[c] = planes_[c].at(x, y) / 255.0;
        } else {
          const double luma = (planes_[0].at(x, y) / scale() - 16) / 219;
          const double blue = 1.8556 * (difference(1, x, y) / scale() - 128) / 224;
          const double red = 1.5748 * (difference(2, x, y) / scale() - 128) / 224;
          colour = {luma + red, luma - (0.2126 * red + 0.0722 * blue) / 0.7152, luma + blue};
        }
        for (const double value : colour) {
          made.push_back(
              static_cast<std::uint8_t>(std::floor(std::clamp(value, 0.0, 1.0) * 255 + 0.5)));
        }
        made.push_back(255);
      }
    }
    return made;
  }

  void put(std::size_t plane, int x, int y, int code) {
    std::uint8_t* const row =
        frame->data[plane] + static_cast<std::size_t>(y) * frame->linesize[plane];
    if (form_.bits == 8) {
      row[x] = static_cast<std::uint8_t>(code);
    } else {
      const auto word = static_cast<std::uint16_t>(code << form_.shift);
      std::memcpy(row + 2 * x, &word, 2);
    }
  }

  void write() {
    if (form_.planes > 1) {
      for (std::size_t c = 0; c < 3; ++c) {
        const Plane& plane = planes_[c];
        for (int y = 0; y < plane.height; ++y) {
          for (int x = 0; x < plane.width; ++x) {
            const bool pair = c > 0 && form_.planes == 2;
            put(pair ? 1 : c, pair ? 2 * x + static_cast<int>(c) - 1 : x, y, plane.at(x, y));
          }
        }
      }
      return;
    }
    const int length = static_cast<int>(std::strlen(form_.packing));
    const int pixels = form_.across;
    for (int y = 0; y < height_; ++y) {
      for (int x = 0; x < width_; x += pixels) {
        for (int k = 0; k < length; ++k) {
          const int half = x / form_.across;
          int code = 77;  // an alpha that nobody reads
          switch (form_.packing[k]) {
            case 'y':
            case 'r':
              code = planes_[0].at(x, y);
              break;
            case 'Y':
              code = planes_[0].at(x + 1, y);
              break;
            case 'u':
            case 'g':
              code = planes_[1].at(half, y);
              break;
            case 'v':
            case 'b':
              code = planes_[2].at(half, y);
              break;
            default:
              break;
          }
          put(0, x / pixels * length + k, y, code);
        }
      }
    }
  }

  int width_, height_;
  Form form_;
  std::array<Plane, 3> planes_;
};

}  // namespace obsScene
