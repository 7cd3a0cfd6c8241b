// SPDX-License-Identifier: BSD-3-Clause
#include "keyer/MatteFilter.h"

#include <algorithm>
#include <cmath>

#include "engine/colour/Power.h"

namespace orvanite {
namespace {

// sqrt 2 - 1 in 65536ths.
constexpr std::uint32_t diagonalPart = 27146;

// One step inwards, or `part` 65536ths of it; `out` is smaller by one on each side.
constexpr std::uint32_t wholeStep = 65536;
void step(const MatteTile& in, std::uint32_t part, MatteTile& out) {
  out.resize(in.width - 2, in.height - 2);
  const auto width = static_cast<std::size_t>(out.width);
  for (int y = 0; y < out.height; ++y) {
    const std::uint16_t* const above = in.row(y);
    const std::uint16_t* const here = in.row(y + 1);
    const std::uint16_t* const below = in.row(y + 2);
    std::uint16_t* const to = out.row(y);
    for (std::size_t x = 0; x < width; ++x) {
      const std::uint16_t middle = here[x + 1];
      const auto least = [](std::uint16_t a, std::uint16_t b) { return a < b ? a : b; };
      const std::uint16_t row = least(least(here[x], here[x + 2]), middle);
      const std::uint16_t cross = least(row, least(above[x + 1], below[x + 1]));
      const std::uint16_t corners =
          least(least(above[x], above[x + 2]), least(below[x], below[x + 2]));
      const std::uint16_t square = least(cross, corners);
      const auto moved = static_cast<std::uint16_t>(
          cross - ((static_cast<std::uint32_t>(cross - square) * diagonalPart) >> 16));
      to[x] = part == wholeStep
                  ? moved
                  : static_cast<std::uint16_t>(
                        middle - ((static_cast<std::uint32_t>(middle - moved) * part) >> 16));
    }
  }
}

void turn(MatteTile& tile) {
  for (std::uint16_t& sample : tile.samples) sample = static_cast<std::uint16_t>(solid - sample);
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
  float scale() const { return 1.0f / static_cast<float>(256 * (2 * whole + 1) + 2 * part); }
};

// Even samples come out as they are: the roundings to 24 bits move 65535 by less than .02.
std::uint16_t mean(std::int32_t sum, std::int32_t ends, const Box& box, float scale) {
  const float weighted = static_cast<float>(sum) * 256.0f + static_cast<float>(ends * box.part);
  return static_cast<std::uint16_t>(static_cast<std::int32_t>(weighted * scale + 0.5f));
}

// Along rows; `out` is narrower by the box's border on each side.
void alongRows(const MatteTile& in, const Box& box, MatteTile& out) {
  const int border = box.border();
  out.resize(in.width - 2 * border, in.height);
  const float scale = box.scale();
  std::vector<std::int32_t> sums(static_cast<std::size_t>(in.width) + 1);
  for (int y = 0; y < in.height; ++y) {
    const std::uint16_t* const from = in.row(y);
    std::int32_t sum = 0;
    for (std::size_t x = 0; x < static_cast<std::size_t>(in.width); ++x) {
      sums[x] = sum;
      sum += from[x];
    }
    sums[static_cast<std::size_t>(in.width)] = sum;
    std::uint16_t* const to = out.row(y);
    // Sample x + border is in the middle; whole samples run from x + first to before x + last.
    const auto first = static_cast<std::size_t>(border - box.whole);
    const auto last = static_cast<std::size_t>(border + box.whole + 1);
    const auto end = static_cast<std::size_t>(2 * border);
    for (std::size_t x = 0; x < static_cast<std::size_t>(out.width); ++x) {
      to[x] = mean(sums[x + last] - sums[x + first], from[x] + from[x + end], box, scale);
    }
  }
}

// Along columns; `out` is lower by the box's border on each side.
void alongColumns(const MatteTile& in, const Box& box, MatteTile& out) {
  const int border = box.border();
  out.resize(in.width, in.height - 2 * border);
  const float scale = box.scale();
  const auto width = static_cast<std::size_t>(in.width);
  std::vector<std::int32_t> sums(width);
  const int first = border - box.whole, last = border + box.whole;
  for (int y = first; y < last; ++y) {
    const std::uint16_t* const from = in.row(y);
    for (std::size_t x = 0; x < width; ++x) sums[x] += from[x];
  }
  for (int y = 0; y < out.height; ++y) {
    const std::uint16_t* const come = in.row(y + last);
    const std::uint16_t* const go = in.row(y + first);
    const std::uint16_t* const low = in.row(y);
    const std::uint16_t* const high = in.row(y + 2 * border);
    std::uint16_t* const to = out.row(y);
    for (std::size_t x = 0; x < width; ++x) {
      const std::int32_t sum = sums[x] + come[x];
      to[x] = mean(sum, low[x] + high[x], box, scale);
      sums[x] = sum - go[x];
    }
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

void spread(MatteTile& tile, int reach, MatteTile& scratch) {
  const Box box{reach, 0};
  alongRows(tile, box, scratch);
  alongColumns(scratch, box, tile);
}

}  // namespace orvanite
