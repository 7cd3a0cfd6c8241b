// SPDX-License-Identifier: BSD-3-Clause
//
// A screen's light varies more than its hue. So its pixels are told by their hue, where shadow and
// falloff do not show, and are then sorted by light.
#include "keyer/Screen.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>

#include "base/Error.h"
#include "keyer/ScreenHue.h"

namespace orvanite {
namespace {

// Chromaticities that lie no further from the screen's hue are screen; of a dull one, which is
// nearer to grey, less.
constexpr float ownHue = 0.07f;
constexpr float ownShare = 0.32f;  // of its distance from grey
// A screen's own pixels have at least this share of its light.
constexpr float leastLight = 0.25f;
// Most of the way back to grey from the screen's hue a pixel may still be a mix of the two.
constexpr float mixShare = 0.75f;
// What leans to the primary by less than this is no screen.
constexpr float leastLean = 0.02f;

struct Chromaticity {
  float r, g;  // shares of red and green in the sum of the three
};

float light(const Rgb& c) { return c[0] + c[1] + c[2]; }

Chromaticity chromaticity(const Rgb& c) {
  const float sum = std::max(light(c), 1e-6f);
  return {c[0] / sum, c[1] / sum};
}

float distance(Chromaticity a, Chromaticity b) {
  const float r = a.r - b.r;
  const float g = a.g - b.g;
  return std::sqrt(r * r + g * g + (r + g) * (r + g));  // blue's share differs by -(r + g)
}

/// How far a channel is above the greater of the other two.
float lean(const Rgb& c, int primary) {
  const float others = std::max(c[primary == 0 ? 1 : 0], c[primary == 2 ? 1 : 2]);
  return c[static_cast<std::size_t>(primary)] - others;
}

Rgb medianOf(const std::vector<Rgb>& pixels) {
  Rgb median{};
  std::vector<float> values(pixels.size());
  for (std::size_t c = 0; c < 3; ++c) {
    for (std::size_t i = 0; i < pixels.size(); ++i) values[i] = pixels[i][c];
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    median[c] = *middle;
  }
  return median;
}

float readSample(const void* channel, std::ptrdiff_t at, Depth depth) {
  if (depth == Depth::bytes)
    return static_cast<float>(static_cast<const std::uint8_t*>(channel)[at]) / 255.0f;
  if (depth == Depth::shorts) {
    return static_cast<float>(static_cast<const std::uint16_t*>(channel)[at]) / 65535.0f;
  }
  const float v = static_cast<const float*>(channel)[at];
  return std::isfinite(v) ? std::clamp(v, 0.0f, 64.0f) : 0;
}

/// Tells the pixels of a screen by its colour.
class OwnPixels {
 public:
  explicit OwnPixels(const Rgb& colour)
      : own_(hueOfColour(colour)),
        centre_(chromaticity(colour)),
        fromGrey_(distance({1.0f / 3, 1.0f / 3}, centre_)),
        within_(std::min(ownHue, ownShare * fromGrey_)),
        least_(leastLight * light(colour)) {}

  float fromGrey() const { return fromGrey_; }
  float distanceOf(const Rgb& c) const { return distance(chromaticity(c), centre_); }
  /// Whether a pixel has the screen's hue, in no less than a part of its light.
  bool lit(const Rgb& c) const { return distanceOf(c) < within_ && light(c) > least_; }
  bool dark(const Rgb& c) const { return isDarkScreen(own_, c); }

 private:
  ScreenHue own_;
  Chromaticity centre_;
  float fromGrey_, within_, least_;
};

}  // namespace

Rgb colourAt(const Plate& plate, int x, int y) {
  const OtileImage& i = plate.image;
  const std::ptrdiff_t at =
      static_cast<std::ptrdiff_t>(y) * i.lineStep + static_cast<std::ptrdiff_t>(x) * i.pixelStep;
  return {readSample(i.red, at, plate.depth), readSample(i.green, at, plate.depth),
          readSample(i.blue, at, plate.depth)};
}

Rgb colourOf(const Plate& plate, const Box& box, Average average) {
  if (box.width < 1 || box.height < 1 || box.x < 0 || box.y < 0 ||
      box.width > plate.width - box.x || box.height > plate.height - box.y) {
    throw Error::expected(Fault::wrongUse, "screen",
                          "a box within " + std::to_string(plate.width) + "x" +
                              std::to_string(plate.height) + " pixels",
                          std::to_string(box.x) + "," + std::to_string(box.y) + "," +
                              std::to_string(box.width) + "," + std::to_string(box.height));
  }
  std::vector<Rgb> pixels;
  pixels.reserve(static_cast<std::size_t>(box.width) * static_cast<std::size_t>(box.height));
  for (int y = 0; y < box.height; ++y) {
    for (int x = 0; x < box.width; ++x) pixels.push_back(colourAt(plate, box.x + x, box.y + y));
  }
  if (average == Average::median) return medianOf(pixels);
  std::array<double, 3> sum{};
  for (const Rgb& p : pixels) {
    for (std::size_t c = 0; c < 3; ++c) sum[c] += p[c];
  }
  Rgb mean{};
  for (std::size_t c = 0; c < 3; ++c) {
    mean[c] = static_cast<float>(sum[c] / static_cast<double>(pixels.size()));
  }
  return mean;
}

std::vector<Pixel> sampleGrid(const Plate& plate, int most) {
  const double pixels = static_cast<double>(plate.width) * plate.height;
  const int step = std::max(1, static_cast<int>(std::ceil(std::sqrt(pixels / most))));
  std::vector<Pixel> samples;
  for (int y = step / 2; y < plate.height; y += step) {
    for (int x = step / 2; x < plate.width; x += step) {
      samples.push_back({colourAt(plate, x, y), x, y});
    }
  }
  return samples;
}

// Of 39 photographs and frames with a screen all are sure, of 19 without one six: a lawn, the sea,
// a gradient.
bool Screen::sure() const {
  const float fromGrey = distance({1.0f / 3, 1.0f / 3}, {hue[0], hue[1]});
  const bool vivid = fromGrey > 0.25f;
  return found && (confidence >= 0.5f || (vivid && evenness > 0.7f)) && (vivid || evenness > 0.3f);
}

Rgb Screen::colourAtFraction(float fraction) const {
  const auto count = static_cast<float>(screenPixels.size());
  const float half = std::max(0.5f, 0.03f * count);  // three percent to either side
  const auto from = static_cast<std::size_t>(std::clamp(fraction * count - half, 0.0f, count - 1));
  const auto to = static_cast<std::size_t>(std::clamp(fraction * count + half, 1.0f, count));
  std::vector<Rgb> colours;
  for (std::size_t i = from; i < std::max(to, from + 1); ++i) {
    colours.push_back(screenPixels[i].colour);
  }
  return medianOf(colours);
}

Screen findScreen(const Plate& plate) {
  Screen screen;
  if (plate.width < 1 || plate.height < 1) return screen;
  const bool encode = plate.depth == Depth::floats;  // float pictures hold light as a rule
  const ScreenHue hue = screenHue(lookAt(plate, encode ? Encoding::light : Encoding::codes));
  screen.confidence = hue.confidence;
  screen.primary = hue.primary;
  screen.coverage = hue.coverage;
  if (hue.confidence < leastConfidence) return screen;
  Rgb middle = hue.colour;
  if (encode) {
    for (float& v : middle) v = lightOfCode(v);
  }
  const OwnPixels own(middle);
  const auto primary = static_cast<std::size_t>(screen.primary);
  const std::vector<Pixel> samples = sampleGrid(plate);
  std::vector<Pixel>& pixels = screen.screenPixels;
  // Screen in the dark counts for how much screen there is and how its light varies; the screen's
  // colour does not follow it.
  std::vector<float> lights;
  for (const Pixel& p : samples) {
    const bool lit = own.lit(p.colour);
    if (lit) pixels.push_back(p);
    if (lit || own.dark(p.colour)) {
      lights.push_back(p.colour[primary]);
      continue;
    }
    // What leans to the primary more than the screen does is no subject: screen in the dark does.
    const float leaning = lean(p.colour, screen.primary);
    const bool greyer =
        leaning * middle[primary] < lean(middle, screen.primary) * p.colour[primary];
    const bool far = own.distanceOf(p.colour) > mixShare * own.fromGrey();
    if (leaning < leastLean || (far && greyer)) screen.foregroundPixels.push_back(p);
  }
  if (pixels.size() < 16) {
    pixels.clear();
    screen.foregroundPixels.clear();
    return screen;
  }
  std::sort(pixels.begin(), pixels.end(), [primary](const Pixel& a, const Pixel& b) {
    return a.colour[primary] < b.colour[primary];
  });
  screen.found = true;
  screen.coverage = static_cast<float>(lights.size()) / static_cast<float>(samples.size());
  std::vector<Rgb> colours;
  colours.reserve(pixels.size());
  for (const Pixel& p : pixels) colours.push_back(p.colour);
  screen.colour = medianOf(colours);
  screen.hue = {chromaticity(screen.colour).r, chromaticity(screen.colour).g};
  std::sort(lights.begin(), lights.end());
  screen.evenness = lights[lights.size() / 20] / lights[lights.size() - 1 - lights.size() / 20];
  return screen;
}

float coverageOf(const Plate& plate, const Rgb& colour) {
  const OwnPixels own(colour);
  const std::vector<Pixel> samples = sampleGrid(plate);
  const auto count = std::count_if(samples.begin(), samples.end(), [&](const Pixel& p) {
    return own.lit(p.colour) || own.dark(p.colour);
  });
  return static_cast<float>(count) / static_cast<float>(samples.size());
}

const char* nameOfColour(const Rgb& c) {
  const float high = std::max({c[0], c[1], c[2]});
  const float low = std::min({c[0], c[1], c[2]});
  if (high - low < 0.08f * high) return "grey";
  const float step = (high - low) / 3;  // a channel that much below the highest is not one of two
  const auto strong = [&](std::size_t i) { return c[i] > high - step; };
  if (strong(0) && strong(1)) return high < 0.5f ? "olive" : "yellow-green";
  if (strong(1) && strong(2)) return "teal";
  if (strong(0) && strong(2)) return "magenta";
  if (strong(0)) return c[1] > low + step / 2 && c[2] == low ? "orange" : "red";
  return strong(1) ? "green" : "blue";
}

}  // namespace orvanite
