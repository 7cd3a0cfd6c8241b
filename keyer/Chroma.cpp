// SPDX-License-Identifier: BSD-3-Clause
#include "keyer/Chroma.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <type_traits>

#include "keyer/simd/RowTable.h"

namespace orvanite {
namespace {

float lightOf(const Rgb& c) { return 0.299f * c[0] + 0.587f * c[1] + 0.114f * c[2]; }
float leanOf(const Rgb& c) { return c[1] - 0.5f * (c[0] + c[2]); }

constexpr float edge = 0.06f;  // codes over two pixels, or from one to the next

/// What a plate's edges are like along rows, in light or in colour.
struct Edges {
  double bend = 0, rise = 0;      // how sharp they are: how much they bend for what they rise
  std::array<double, 2> steps{};  // from even columns to odd ones and on
  std::size_t count = 0;

  void add(float before, float here, float after, int column) {
    const float step = std::abs(after - here);
    if (step > edge) steps[static_cast<std::size_t>(column % 2)] += static_cast<double>(step);
    const float up = std::abs(after - before);
    if (up <= edge) return;
    bend += static_cast<double>(std::abs(after - here - (here - before)));
    rise += static_cast<double>(up);
    ++count;
  }
  void add(const Edges& other) {
    bend += other.bend;
    rise += other.rise;
    for (std::size_t i = 0; i < 2; ++i) steps[i] += other.steps[i];
    count += other.count;
  }
};

/// Whether edges of colour are softer than those of light, or steps of two pixels. Of drawn plates
/// with hardly any grain none of 60 that were stored whole are, and of JPEG files 19 of 25 in which
/// nothing moves and 5 of 35 that are blurred by motion.
bool edgesAreCoarse(const Plate& plate, const Look& look) {
  constexpr std::size_t few = 100;
  constexpr double softer = 0.62, uneven = 0.4;
  std::vector<std::array<Edges, 2>> found(static_cast<std::size_t>(plate.height));
  look.rows(plate.height, leastRows, [&](int first, int count) {
    for (int y = first; y < first + count; ++y) {
      if (y % (2 * look.factor - 1) != 0) continue;
      auto& [light, colour] = found[static_cast<std::size_t>(y)];
      Rgb before = colourAt(plate, 0, y), here = before;
      for (int x = 0; x < plate.width; ++x) {
        const Rgb after = x + 1 < plate.width ? colourAt(plate, x + 1, y) : here;
        light.add(lightOf(before), lightOf(here), lightOf(after), x);
        colour.add(leanOf(before), leanOf(here), leanOf(after), x);
        before = here;
        here = after;
      }
    }
  });
  Edges light, colour;
  for (const auto& [ofLight, ofColour] : found) {
    light.add(ofLight);
    colour.add(ofColour);
  }
  if (std::min(light.count, colour.count) < few) return false;
  // A thing's own edges may all lie on even columns, in light as well.
  const auto isUneven = [](const Edges& edges) {
    const auto [less, more] = std::minmax(edges.steps[0], edges.steps[1]);
    return less < uneven * more;
  };
  return colour.bend * light.rise < softer * light.bend * colour.rise ||
         (isUneven(colour) && !isUneven(light));
}

}  // namespace

float chromaLead(const Plate& plate, const Look& look, const Mask& sure) {
  if (look.encoding == Encoding::light) return 0;  // no file of light stores it so
  std::vector<float> light, colour;                // steps of the screen's grain
  for (int y = 0; y < sure.height; y += 2) {
    for (int x = 1; x < sure.width; x += 3) {
      if (sure(x, y) == 0 || sure(x - 1, y) == 0) continue;
      const int at = x * look.factor, row = y * look.factor;
      const Rgb here = colourAt(plate, at, row), before = colourAt(plate, at - 1, row);
      light.push_back(std::abs(lightOf(here) - lightOf(before)));
      colour.push_back(std::abs(here[0] - before[0] - (here[1] - before[1])));
    }
  }
  // Of grain of its own in every channel the second is twice the first. Without grain edges tell.
  const float grain = quantile(light, 0.7), ofColour = quantile(colour, 0.7);
  constexpr float tells = 0.0015f;
  if (grain > tells ? ofColour < grain : edgesAreCoarse(plate, look)) return 1;
  constexpr float some = 0.012f, all = 0.02f;
  return std::clamp((grain - some) / (all - some), 0.0f, 1.0f);
}

LedRows::LedRows(const OtileImage& image, Depth depth, int width, int height, int first, float lead)
    : image_(image),
      depth_(depth),
      width_(width),
      height_(height),
      next_(first),
      lead_(lead),
      stride_(width + 2),
      rows_(9 * static_cast<std::size_t>(stride_)),
      lines_(12 * static_cast<std::size_t>(stride_)) {
  for (int y = first - 2; y <= first; ++y) load(y);
  fit(first - 1);
  load(first + 1);
  fit(first);
}

float* LedRows::room(std::vector<float>& ring, int y, std::size_t planes) {
  const auto place = static_cast<std::size_t>((y + 3) % 3);
  return ring.data() + place * planes * static_cast<std::size_t>(stride_) + 1;
}

void LedRows::load(int y) {
  float* const light = room(rows_, y, 3);
  const int held = std::clamp(y, 0, height_ - 1);
  withSampleOf(depth_, [&]<class Sample>(std::type_identity<Sample>) {
    const std::ptrdiff_t row = std::ptrdiff_t{held} * image_.lineStep;
    const std::array<const Sample*, 3> channels = {static_cast<const Sample*>(image_.red) + row,
                                                   static_cast<const Sample*>(image_.green) + row,
                                                   static_cast<const Sample*>(image_.blue) + row};
    rowTable().colours<Sample>().splitChroma(
        channels.data(), std::is_floating_point_v<Sample> ? 4 : image_.pixelStep, width_, stride_,
        light);
  });
  for (std::ptrdiff_t i = 0; i < 3; ++i) {
    float* const plane = light + i * stride_;
    plane[-1] = plane[0];
    plane[width_] = plane[width_ - 1];
  }
}

void LedRows::fit(int y) {
  const std::array<const float*, 3> rows = {room(rows_, y - 1, 3), room(rows_, y, 3),
                                            room(rows_, y + 1, 3)};
  float* const lines = room(lines_, y, 4);
  rowTable().fitChroma(rows.data(), stride_, width_, lines);
  for (int i = 0; i < 4; ++i) {
    float* const plane = lines + i * stride_;
    plane[-1] = plane[0];
    plane[width_] = plane[width_ - 1];
  }
}

void LedRows::next(const std::array<std::uint16_t*, 3>& words) {
  const int y = next_++;
  load(y + 2);
  fit(y + 1);
  const std::array<const float*, 3> lines = {room(lines_, y - 1, 4), room(lines_, y, 4),
                                             room(lines_, y + 1, 4)};
  rowTable().leadChroma(lines.data(), room(rows_, y, 3), stride_, lead_, width_, words.data());
}

}  // namespace orvanite
