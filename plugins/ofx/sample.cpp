// SPDX-License-Identifier: BSD-3-Clause
//
// Measuring a screen's colour, and the button that does it; see sample.h.
#include "plugins/ofx/sample.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "plugins/ofx/images.h"
#include "plugins/ofx/instance.h"

namespace orvanite::ofxPlugin {

namespace {

// Pixels looked at, at the most, on an even grid: a median of so many moves by less than a code.
constexpr double mostSamples = 250000;
// How far a screen's channel stands above the next: less is a grey with a cast.
constexpr float leastLean = 0.05F;

using Rgb = std::array<float, 3>;

float valueAt(const std::byte* at, int depth) {
  if (depth == 1) return static_cast<float>(static_cast<std::uint8_t>(*at)) / 255.0F;
  if (depth == 2) {
    std::uint16_t word;
    std::memcpy(&word, at, sizeof word);
    return static_cast<float>(word) / 65535.0F;
  }
  float value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

float leanOf(const Rgb& pixel, std::size_t channel) {
  return pixel[channel] - std::max(pixel[0], pixel[3 - channel]);  // 1 and 2 are each other's rest
}

float median(std::vector<float>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

}  // namespace

std::optional<std::array<double, 3>> measureScreen(const Picture& picture, int depth) {
  if (picture.channels < 3 || isEmpty(picture.bounds)) return {};
  const double width = static_cast<double>(picture.bounds.x2) - picture.bounds.x1;
  const double height = static_cast<double>(picture.bounds.y2) - picture.bounds.y1;
  const int step =
      std::max(1, static_cast<int>(std::ceil(std::sqrt(width * height / mostSamples))));

  std::vector<Rgb> leaning[3];  // by channel; red stays empty
  std::size_t seen = 0;
  for (int y = 0; y < static_cast<int>(height); y += step) {
    const std::byte* row = picture.data + y * picture.rowBytes;
    for (int x = 0; x < static_cast<int>(width); x += step) {
      const std::byte* at = row + std::ptrdiff_t{x} * picture.channels * depth;
      const Rgb pixel{valueAt(at, depth), valueAt(at + depth, depth),
                      valueAt(at + 2 * depth, depth)};
      ++seen;
      if (!std::isfinite(pixel[0] + pixel[1] + pixel[2])) continue;
      for (const std::size_t channel : {std::size_t{1}, std::size_t{2}}) {
        if (leanOf(pixel, channel) > leastLean) leaning[channel].push_back(pixel);
      }
    }
  }

  const std::size_t primary = leaning[1].size() >= leaning[2].size() ? 1 : 2;
  std::vector<Rgb>& screen = leaning[primary];
  if (screen.empty() || screen.size() * 100 < seen) return {};
  const auto middle = screen.begin() + static_cast<std::ptrdiff_t>(screen.size() / 2);
  std::nth_element(screen.begin(), middle, screen.end(), [primary](const Rgb& a, const Rgb& b) {
    return leanOf(a, primary) > leanOf(b, primary);
  });

  std::array<double, 3> colour{};
  std::vector<float> values;
  for (std::size_t c = 0; c < 3; ++c) {
    values.clear();
    for (auto at = screen.begin(); at <= middle; ++at) values.push_back((*at)[c]);
    colour[c] = static_cast<double>(median(values));
  }
  return colour;
}

ofx::Status Instance::sampleScreen(ofx::Time time) {
  const Image image(source_.clip, time);
  if (!image || image.depth() == 0) {
    report(ofx::message::warning, "Sample screen: there is no plate at this frame");
    return ofx::ok;
  }
  const auto colour = measureScreen(image.picture(ofx::sourceClip), image.depth());
  if (!colour) {
    report(ofx::message::warning, "Sample screen: this frame shows no blue or green screen");
    return ofx::ok;
  }
  parameters_.setScreen((*colour)[0], (*colour)[1], (*colour)[2], time);
  parameters_.followScreen(time);
  return ofx::ok;
}

}  // namespace orvanite::ofxPlugin
