// SPDX-License-Identifier: BSD-3-Clause
//
// One table of layouts, rows of codes read by it, and one matrix; see Conversion.h.
#include "plugins/obs/Conversion.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace orvanite::obsPlugin {
namespace {

// Where a component's samples lie.
struct Component {
  int plane, first, step;        // bytes from the row's start, and from a sample to the next
  int halvedAcross, halvedDown;  // 1: there is one sample for two pixels
};

struct Layout {
  video_format format;
  int bytes, unusedBits;  // of a sample, and how many of its lowest bits mean nothing
  float top;              // the code of 1.0
  bool yuv;
  std::array<Component, 3> components;  // luma and two differences; or red, green, blue
};

// Alpha that a format has is not read: what is keyed gets its own.
constexpr Layout layouts[] = {
    {VIDEO_FORMAT_I420, 1, 0, 255, true, {{{0, 0, 1, 0, 0}, {1, 0, 1, 1, 1}, {2, 0, 1, 1, 1}}}},
    {VIDEO_FORMAT_I40A, 1, 0, 255, true, {{{0, 0, 1, 0, 0}, {1, 0, 1, 1, 1}, {2, 0, 1, 1, 1}}}},
    {VIDEO_FORMAT_NV12, 1, 0, 255, true, {{{0, 0, 1, 0, 0}, {1, 0, 2, 1, 1}, {1, 1, 2, 1, 1}}}},
    {VIDEO_FORMAT_YUY2, 1, 0, 255, true, {{{0, 0, 2, 0, 0}, {0, 1, 4, 1, 0}, {0, 3, 4, 1, 0}}}},
    {VIDEO_FORMAT_YVYU, 1, 0, 255, true, {{{0, 0, 2, 0, 0}, {0, 3, 4, 1, 0}, {0, 1, 4, 1, 0}}}},
    {VIDEO_FORMAT_UYVY, 1, 0, 255, true, {{{0, 1, 2, 0, 0}, {0, 0, 4, 1, 0}, {0, 2, 4, 1, 0}}}},
    {VIDEO_FORMAT_I422, 1, 0, 255, true, {{{0, 0, 1, 0, 0}, {1, 0, 1, 1, 0}, {2, 0, 1, 1, 0}}}},
    {VIDEO_FORMAT_I42A, 1, 0, 255, true, {{{0, 0, 1, 0, 0}, {1, 0, 1, 1, 0}, {2, 0, 1, 1, 0}}}},
    {VIDEO_FORMAT_I444, 1, 0, 255, true, {{{0, 0, 1, 0, 0}, {1, 0, 1, 0, 0}, {2, 0, 1, 0, 0}}}},
    {VIDEO_FORMAT_YUVA, 1, 0, 255, true, {{{0, 0, 1, 0, 0}, {1, 0, 1, 0, 0}, {2, 0, 1, 0, 0}}}},
    {VIDEO_FORMAT_AYUV, 1, 0, 255, true, {{{0, 2, 4, 0, 0}, {0, 1, 4, 0, 0}, {0, 0, 4, 0, 0}}}},
    {VIDEO_FORMAT_I010, 2, 0, 1023, true, {{{0, 0, 2, 0, 0}, {1, 0, 2, 1, 1}, {2, 0, 2, 1, 1}}}},
    {VIDEO_FORMAT_P010, 2, 6, 1023, true, {{{0, 0, 2, 0, 0}, {1, 0, 4, 1, 1}, {1, 2, 4, 1, 1}}}},
    {VIDEO_FORMAT_I210, 2, 0, 1023, true, {{{0, 0, 2, 0, 0}, {1, 0, 2, 1, 0}, {2, 0, 2, 1, 0}}}},
    {VIDEO_FORMAT_I412, 2, 0, 4095, true, {{{0, 0, 2, 0, 0}, {1, 0, 2, 0, 0}, {2, 0, 2, 0, 0}}}},
    {VIDEO_FORMAT_YA2L, 2, 0, 4095, true, {{{0, 0, 2, 0, 0}, {1, 0, 2, 0, 0}, {2, 0, 2, 0, 0}}}},
    {VIDEO_FORMAT_RGBA, 1, 0, 255, false, {{{0, 0, 4, 0, 0}, {0, 1, 4, 0, 0}, {0, 2, 4, 0, 0}}}},
    {VIDEO_FORMAT_BGRA, 1, 0, 255, false, {{{0, 2, 4, 0, 0}, {0, 1, 4, 0, 0}, {0, 0, 4, 0, 0}}}},
    {VIDEO_FORMAT_BGRX, 1, 0, 255, false, {{{0, 2, 4, 0, 0}, {0, 1, 4, 0, 0}, {0, 0, 4, 0, 0}}}},
    {VIDEO_FORMAT_BGR3, 1, 0, 255, false, {{{0, 2, 3, 0, 0}, {0, 1, 3, 0, 0}, {0, 0, 3, 0, 0}}}},
};

const Layout* layoutOf(video_format format) {
  const auto* const found = std::find_if(std::begin(layouts), std::end(layouts),
                                         [&](const Layout& each) { return each.format == format; });
  return found == std::end(layouts) ? nullptr : found;
}

template <int step>
void readBytes(const std::uint8_t* from, std::size_t count, float* to) {
  for (std::size_t x = 0; x < count; ++x) to[x] = static_cast<float>(from[x * step]);
}

void readWords(const std::uint8_t* from, std::size_t step, int unusedBits, std::size_t count,
               float* to) {
  for (std::size_t x = 0; x < count; ++x) {
    std::uint16_t word;
    std::memcpy(&word, from + x * step, sizeof word);
    to[x] = static_cast<float>(word >> unusedBits);
  }
}

// `count` codes of a component's row.
void readCodes(const Layout& layout, const Component& component, const obs_source_frame& frame,
               std::size_t row, std::size_t count, float* to) {
  const std::uint8_t* from = frame.data[component.plane] + component.first +
                             row * std::size_t{frame.linesize[component.plane]};
  if (layout.bytes == 2) {
    return readWords(from, static_cast<std::size_t>(component.step), layout.unusedBits, count, to);
  }
  switch (component.step) {
    case 1:
      return readBytes<1>(from, count, to);
    case 2:
      return readBytes<2>(from, count, to);
    case 3:
      return readBytes<3>(from, count, to);
    default:
      return readBytes<4>(from, count, to);
  }
}

// A code for each of a row's pixels. `room` holds two rows of half the width.
void readRow(const Layout& layout, const Component& component, const obs_source_frame& frame,
             std::size_t y, float* to, float* room) {
  const std::size_t width = frame.width;
  if (component.halvedAcross == 0) return readCodes(layout, component, frame, y, width, to);
  const std::size_t half = (width + 1) / 2;
  float* const near = room;
  if (component.halvedDown == 0) {
    readCodes(layout, component, frame, y, half, near);
  } else {
    // A row of samples lies between two rows of pixels: each is a quarter of a step away from it.
    const std::size_t last = (std::size_t{frame.height} + 1) / 2 - 1;
    const std::size_t row = y / 2;
    const std::size_t other =
        y % 2 == 1 ? std::min(row + 1, last) : std::max<std::size_t>(row, 1) - 1;
    float* const far = room + half;
    readCodes(layout, component, frame, row, half, near);
    readCodes(layout, component, frame, other, half, far);
    for (std::size_t x = 0; x < half; ++x) near[x] = 0.75f * near[x] + 0.25f * far[x];
  }
  // Even pixels lie on a sample, odd ones midway to the next.
  const std::size_t pairs = half - 1;
  for (std::size_t x = 0; x < pairs; ++x) {
    to[2 * x] = near[x];
    to[2 * x + 1] = 0.5f * (near[x] + near[x + 1]);
  }
  for (std::size_t x = 2 * pairs; x < width; ++x) to[x] = near[pairs];
}

// What makes bytes of a row's codes.
struct Matrix {
  float low[3], high[3];
  float rows[3][4];
};

Matrix matrixOf(const Layout& layout, const obs_source_frame& frame) {
  Matrix made{};
  for (std::size_t c = 0; c < 3; ++c) {
    made.high[c] = layout.top;
    made.rows[c][c] = 255 / layout.top;
    if (layout.yuv) {
      if (!frame.full_range) {
        made.low[c] = frame.color_range_min[c] * layout.top;
        made.high[c] = frame.color_range_max[c] * layout.top;
      }
      for (std::size_t k = 0; k < 3; ++k) {
        made.rows[c][k] = frame.color_matrix[4 * c + k] * (255 / layout.top);
      }
      made.rows[c][3] = frame.color_matrix[4 * c + 3] * 255;
    } else if (!frame.full_range) {  // 16 to 235
      made.rows[c][c] = 255.0f / 219;
      made.rows[c][3] = -16 * 255.0f / 219;
    }
    made.rows[c][3] += 0.5f;  // what follows cuts off
  }
  return made;
}

// Clamping as the machine's own least and greatest do it: so compilers see vectors in it.
inline float clamped(float value, float low, float high) {
  const float least = low > value ? low : value;
  return high < least ? high : least;
}

void writeRow(const Matrix& matrix, const float* first, const float* second, const float* third,
              std::size_t width, std::uint8_t* to) {
  const Matrix m = matrix;
  const auto code = [](float value) {
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(clamped(value, 0.5f, 255.5f)));
  };
  for (std::size_t x = 0; x < width; ++x) {
    const float a = clamped(first[x], m.low[0], m.high[0]);
    const float b = clamped(second[x], m.low[1], m.high[1]);
    const float c = clamped(third[x], m.low[2], m.high[2]);
    const std::uint32_t red =
        code(m.rows[0][0] * a + m.rows[0][1] * b + m.rows[0][2] * c + m.rows[0][3]);
    const std::uint32_t green =
        code(m.rows[1][0] * a + m.rows[1][1] * b + m.rows[1][2] * c + m.rows[1][3]);
    const std::uint32_t blue =
        code(m.rows[2][0] * a + m.rows[2][1] * b + m.rows[2][2] * c + m.rows[2][3]);
    // OBS runs on little-endian machines alone.
    const std::uint32_t pixel = red | green << 8 | blue << 16 | 0xff000000U;
    std::memcpy(to + 4 * x, &pixel, sizeof pixel);
  }
}

// Bytes of full range need another order alone.
void reorder(const Layout& layout, const obs_source_frame& frame, std::uint8_t* to,
             std::ptrdiff_t rowStride) {
  const std::size_t step = static_cast<std::size_t>(layout.components[0].step);
  const auto red = static_cast<std::size_t>(layout.components[0].first);
  const auto blue = static_cast<std::size_t>(layout.components[2].first);
  for (std::size_t y = 0; y < frame.height; ++y, to += rowStride) {
    const std::uint8_t* const from = frame.data[0] + y * frame.linesize[0];
    for (std::size_t x = 0; x < frame.width; ++x) {
      const std::uint32_t pixel = std::uint32_t{from[x * step + red]} |
                                  std::uint32_t{from[x * step + 1]} << 8 |
                                  std::uint32_t{from[x * step + blue]} << 16 | 0xff000000U;
      std::memcpy(to + 4 * x, &pixel, sizeof pixel);
    }
  }
}

}  // namespace

bool isColoured(video_format format) { return layoutOf(format) != nullptr; }

bool isRgba(const obs_source_frame& frame) {
  return frame.format == VIDEO_FORMAT_RGBA && frame.full_range;
}

void Converter::toRgba(const obs_source_frame& frame, std::uint8_t* to, std::ptrdiff_t rowStride) {
  const Layout& layout = *layoutOf(frame.format);
  const Matrix matrix = matrixOf(layout, frame);
  const std::size_t width = frame.width;
  if (!layout.yuv && frame.full_range) return reorder(layout, frame, to, rowStride);
  room_.resize(4 * width + 2);
  float* const rows[3] = {room_.data(), room_.data() + width, room_.data() + 2 * width};
  for (std::size_t y = 0; y < frame.height; ++y, to += rowStride) {
    for (std::size_t c = 0; c < 3; ++c) {
      readRow(layout, layout.components[c], frame, y, rows[c], room_.data() + 3 * width);
    }
    writeRow(matrix, rows[0], rows[1], rows[2], width, to);
  }
}

}  // namespace orvanite::obsPlugin
