// SPDX-License-Identifier: BSD-3-Clause
#include "keyer/MatteFilter.h"

#include <algorithm>
#include <cmath>

#include "engine/colour/Power.h"
#include "keyer/simd/RowTable.h"

namespace orvanite {
namespace {

// One step inwards, or `part` 65536ths of it; `out` is smaller by one on each side.
constexpr std::uint32_t wholeStep = 65536;
void step(const MatteTile& in, std::uint32_t part, MatteTile& out) {
  out.resize(in.width - 2, in.height - 2);
  for (int y = 0; y < out.height; ++y) {
    rowTable().shrink(in.row(y), in.row(y + 1), in.row(y + 2), part, out.width, out.row(y));
  }
}

void turn(MatteTile& tile) {
  rowTable().turn(tile.samples.data(), static_cast<int>(tile.samples.size()));
}

// A mean over 2 * whole + 1 samples and a part, in 256ths, of one more at each end.
struct Box {
  int whole;
  std::int32_t part;

  static Box of(float half) {
    const int whole = static_cast<int>(half);
    return {whole, static_cast<std::int32_t>((half - static_cast<float>(whole)) * 256.0f + 0.5f)};
  }
  int border() const { return whole + (part > 0 ? 1 : 0); }
};

// Along rows; `out` is narrower by the box's border on each side.
void alongRows(const MatteTile& in, const Box& box, MatteTile& out) {
  out.resize(in.width - 2 * box.border(), in.height);
  std::vector<std::int32_t> sums(3 * static_cast<std::size_t>(in.width));
  for (int y = 0; y < in.height; ++y) {
    rowTable().meanAlong(in.row(y), box.whole, box.part, out.width, sums.data(), out.row(y));
  }
}

// Along columns; `out` is lower by the box's border on each side.
void alongColumns(const MatteTile& in, const Box& box, MatteTile& out) {
  const int border = box.border();
  out.resize(in.width, in.height - 2 * border);
  const auto width = static_cast<std::size_t>(in.width);
  std::vector<std::int32_t> sums(width);
  const int first = border - box.whole, last = border + box.whole;
  for (int y = first; y < last; ++y) {
    const std::uint16_t* const from = in.row(y);
    for (std::size_t x = 0; x < width; ++x) sums[x] += from[x];
  }
  for (int y = 0; y < out.height; ++y) {
    rowTable().meanAcross(in.row(y + last), in.row(y + first), in.row(y), in.row(y + 2 * border),
                          box.whole, box.part, in.width, sums.data(), out.row(y));
  }
}

}  // namespace

std::vector<std::uint16_t> matteCurve(float black, float white, float gamma, int entries) {
  std::vector<std::uint16_t> curve(static_cast<std::size_t>(entries));
  const float last = static_cast<float>(entries - 1);
  const float exponent = 1.0f / gamma;
  for (int i = 0; i < entries; ++i) {
    const float v = static_cast<float>(i) / last;
    float share = 0;
    if (v > black) {
      share = v >= white ? 1.0f : (v - black) / (white - black);
      if (share > 0 && share < 1 && exponent != 1) share = power(share, exponent);
    }
    curve[static_cast<std::size_t>(i)] = static_cast<std::uint16_t>(
        std::clamp(share, 0.0f, 1.0f) * static_cast<float>(solid) + 0.5f);
  }
  return curve;
}

int moveBorder(float pixels) { return static_cast<int>(std::ceil(std::abs(pixels))); }

void moveEdge(MatteTile& tile, float pixels, MatteTile& scratch) {
  if (pixels == 0) return;
  const float distance = std::abs(pixels);
  const int steps = static_cast<int>(distance);
  const auto rest = static_cast<std::uint32_t>((distance - static_cast<float>(steps)) * 65536.0f);
  // Growing is shrinking what is not there.
  if (pixels < 0) turn(tile);
  for (int i = 0; i < moveBorder(pixels); ++i) {
    step(tile, i < steps ? wholeStep : rest, scratch);
    std::swap(tile, scratch);
  }
  if (pixels < 0) turn(tile);
}

int softenBorder(float pixels) { return 2 * Box::of(pixels / 2).border(); }

void soften(MatteTile& tile, float pixels, MatteTile& scratch) {
  if (pixels <= 0) return;
  const Box box = Box::of(pixels / 2);
  for (int i = 0; i < 2; ++i) {
    alongRows(tile, box, scratch);
    std::swap(tile, scratch);
  }
  for (int i = 0; i < 2; ++i) {
    alongColumns(tile, box, scratch);
    std::swap(tile, scratch);
  }
}

void spread(const MatteTile& tile, int reach, MatteTile& means, MatteTile& scratch) {
  const Box box{reach, 0};
  alongRows(tile, box, scratch);
  alongColumns(scratch, box, means);
}

}  // namespace orvanite
