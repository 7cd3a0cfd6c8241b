// SPDX-License-Identifier: BSD-3-Clause
//
// A screen is a crowd of pixels of one chromaticity, and its light varies more than its hue. So
// the crowd is sought among chromaticities, where shadow and falloff do not show, and its members
// are then sorted by light.
#include "keyer/Screen.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>

#include "base/Error.h"
#include "keyer/Settings.h"

namespace orvanite {
namespace {

// What makes a pixel lean to a channel: that much above the greater of the other two, as a share
// of itself. Below it a hue is too uncertain to count, in grain above all.
constexpr float leastLean = 0.2F;
// Darker pixels than this have no certain hue.
constexpr float leastLight = 0.04F;
// Chromaticities that lie no further from the screen's hue are screen. Narrower than the crowd's
// reach: what is mixed with foreground by more than a little must stay out.
constexpr float ownHue = 0.07F;
// Beside screen whose hue has drifted, a pixel may be that far from it, and that far from the whole
// screen's.
constexpr float besideHue = 0.04F;
constexpr float farthestHue = 0.2F;
// A fuller colour than the screen's is the screen in the dark rather than a mix: no subject makes a
// green screen greener. Its hue may change faster.
constexpr float besideFuller = 0.12F;
// A screen fills at least this share of the frame.
constexpr float leastCoverage = 0.004F;

struct Chromaticity {
  float r, g;  // shares of red and green in the sum of the three
};

float light(const Rgb& c) { return c[0] + c[1] + c[2]; }

Chromaticity chromaticity(const Rgb& c) {
  const float sum = std::max(light(c), 1e-6F);
  return {c[0] / sum, c[1] / sum};
}

float distance(Chromaticity a, Chromaticity b) {
  const float r = a.r - b.r;
  const float g = a.g - b.g;
  return std::sqrt(r * r + g * g + (r + g) * (r + g));  // blue's share differs by -(r + g)
}

float lean(const Rgb& c, int primary) {
  const float others = std::max(c[primary == 0 ? 1 : 0], c[primary == 2 ? 1 : 2]);
  return c[static_cast<std::size_t>(primary)] - others;
}

bool leansTo(const Rgb& c, int primary) {
  const float p = c[static_cast<std::size_t>(primary)];
  return p > leastLight && lean(c, primary) > leastLean * p;
}

/// The fullest cell of a grid of chromaticities, then the mean of what lies around it.
Chromaticity densest(const std::vector<Pixel>& pixels) {
  constexpr std::size_t cells = 48;
  std::vector<float> crowd(cells * cells);
  const auto cell = [](float share) {
    const int place = static_cast<int>(share * cells);
    return static_cast<std::size_t>(std::clamp(place, 0, static_cast<int>(cells) - 1));
  };
  for (const Pixel& p : pixels) {
    const Chromaticity c = chromaticity(p.colour);
    crowd[cell(c.g) * cells + cell(c.r)] += 1;
  }
  const auto fullest =
      static_cast<std::size_t>(std::max_element(crowd.begin(), crowd.end()) - crowd.begin());
  const std::size_t row = fullest / cells, column = fullest % cells;
  Chromaticity centre = {(static_cast<float>(column) + 0.5F) / cells,
                         (static_cast<float>(row) + 0.5F) / cells};
  for (int round = 0; round < 8; ++round) {
    double r = 0;
    double g = 0;
    int count = 0;
    for (const Pixel& p : pixels) {
      const Chromaticity c = chromaticity(p.colour);
      if (distance(c, centre) > 0.08F) continue;
      r += c.r;
      g += c.g;
      ++count;
    }
    if (count == 0) break;
    centre = {static_cast<float>(r / count), static_cast<float>(g / count)};
  }
  return centre;
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

float readSample(const void* channel, std::ptrdiff_t at, int depth) {
  if (depth == 1) return static_cast<float>(static_cast<const std::uint8_t*>(channel)[at]) / 255.0F;
  if (depth == 2) {
    return static_cast<float>(static_cast<const std::uint16_t*>(channel)[at]) / 65535.0F;
  }
  const float v = static_cast<const float*>(channel)[at];
  return std::isfinite(v) ? std::clamp(v, 0.0F, 64.0F) : 0;
}

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

Rgb Screen::colourAtFraction(float fraction) const {
  const auto count = static_cast<float>(screenPixels.size());
  const float half = std::max(0.5F, 0.03F * count);  // three percent to either side
  const auto from = static_cast<std::size_t>(std::clamp(fraction * count - half, 0.0F, count - 1));
  const auto to = static_cast<std::size_t>(std::clamp(fraction * count + half, 1.0F, count));
  std::vector<Rgb> colours;
  for (std::size_t i = from; i < std::max(to, from + 1); ++i) {
    colours.push_back(screenPixels[i].colour);
  }
  return medianOf(colours);
}

bool Screen::holds(const Rgb& c) const {
  return found && leansTo(c, primary) && distance(chromaticity(c), {hue[0], hue[1]}) < ownHue;
}

bool Screen::mayHold(const Rgb& c) const {
  return found && leansTo(c, primary) &&
         (isFuller(c) || distance(chromaticity(c), {hue[0], hue[1]}) < farthestHue);
}

bool Screen::holdsBeside(const Rgb& c, const Rgb& beside) const {
  return mayHold(c) &&
         distance(chromaticity(c), chromaticity(beside)) < (isFuller(c) ? besideFuller : besideHue);
}

bool Screen::isFuller(const Rgb& c) const {
  const auto p = static_cast<std::size_t>(primary);
  return lean(c, primary) * colour[p] > lean(colour, primary) * c[p];
}

Screen findScreen(const Plate& plate) {
  Screen screen;
  const std::vector<Pixel> samples = sampleGrid(plate);
  if (samples.empty()) return screen;

  // The hue that more light leans to; its crowd decides which of its pixels are the screen.
  std::array<std::size_t, 3> crowds{};
  for (const Pixel& p : samples) {
    for (int c = 1; c < 3; ++c) {
      if (leansTo(p.colour, c)) ++crowds[static_cast<std::size_t>(c)];
    }
  }
  screen.primary = crowds[2] > crowds[1] ? 2 : 1;
  const auto primary = static_cast<std::size_t>(screen.primary);
  std::vector<Pixel> candidates;
  for (const Pixel& p : samples) {
    if (leansTo(p.colour, screen.primary)) candidates.push_back(p);
  }
  if (candidates.empty()) return screen;
  const Chromaticity centre = densest(candidates);
  screen.hue = {centre.r, centre.g};

  std::vector<Pixel>& pixels = screen.screenPixels;
  for (const Pixel& p : candidates) {
    if (distance(chromaticity(p.colour), centre) < ownHue) pixels.push_back(p);
  }
  std::sort(pixels.begin(), pixels.end(), [primary](const Pixel& a, const Pixel& b) {
    return a.colour[primary] < b.colour[primary];
  });
  screen.coverage = static_cast<float>(pixels.size()) / static_cast<float>(samples.size());
  if (screen.coverage < leastCoverage || pixels.size() < 16) {
    pixels.clear();
    return screen;
  }
  screen.found = true;
  std::vector<Rgb> colours;
  colours.reserve(pixels.size());
  for (const Pixel& p : pixels) colours.push_back(p.colour);
  screen.colour = medianOf(colours);

  // Screen in the dark is fuller than the crowd. It counts for how much screen there is and how its
  // light varies; the screen's colour does not follow it.
  std::vector<float> lights;
  for (const Pixel& p : candidates) {
    const bool own = distance(chromaticity(p.colour), centre) < ownHue;
    if (own || screen.isFuller(p.colour)) lights.push_back(p.colour[primary]);
  }
  screen.coverage = static_cast<float>(lights.size()) / static_cast<float>(samples.size());
  std::sort(lights.begin(), lights.end());
  screen.evenness = lights[lights.size() / 20] / lights[lights.size() - 1 - lights.size() / 20];

  // Up to most of the way back to grey from the screen's hue a pixel may still be a mix of the two;
  // what is further away, or does not lean to the primary, is foreground. What leans to it more
  // than the screen does is not: screen in the dark does.
  constexpr Chromaticity grey = {1.0F / 3, 1.0F / 3};
  const float span = distance(grey, centre);
  for (const Pixel& p : samples) {
    const float leaning = lean(p.colour, screen.primary);
    const bool greyer =
        leaning * screen.colour[primary] < lean(screen.colour, screen.primary) * p.colour[primary];
    const bool far = distance(chromaticity(p.colour), centre) > 0.75F * span;
    if (leaning < 0.02F || (far && greyer)) {
      screen.foregroundPixels.push_back(p);
    }
  }
  return screen;
}

}  // namespace orvanite
