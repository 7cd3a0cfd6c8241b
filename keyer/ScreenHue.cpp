// SPDX-License-Identifier: BSD-3-Clause
//
// Pixels vote for their hue. A vote counts by what makes a screen: smoothness, saturation, a place
// at the frame's border. Saturation counts squared and reds count little: else a large subject of
// fire or fur outvotes the screen around it.
#include "keyer/ScreenHue.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <utility>
#include <vector>

namespace orvanite {
namespace {

constexpr float leastSaturation = 0.14f;
constexpr float leastLight = 0.06f;
constexpr float redLead = 0.02f;  // red this much above the others is skin, fur or fire
constexpr float redVote = 0.1f;
constexpr float borderVote = 2.5f;
constexpr float borderShare = 0.03f;  // of the frame, along each side
constexpr float reach = 0.05f;        // of one screen's hues around their middle
constexpr float tie = 0.94f;          // of red: a channel as strong as that leads in its stead

struct Vote {
  std::size_t pixel;
  float r, g, weight, steepness;
  bool border, red;
};

}  // namespace

// Roots do not fall where squares rise: the square is found among the patterns of doubles, which
// rise with them.
Shorter::Shorter(float length) {
  std::uint64_t low = 0, high = std::bit_cast<std::uint64_t>(std::numeric_limits<double>::max());
  while (low < high) {
    const std::uint64_t middle = low + (high - low) / 2;
    if (static_cast<float>(std::sqrt(std::bit_cast<double>(middle))) < length) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  square_ = std::bit_cast<double>(low);
}

float hueReach(const ScreenHue& screen) { return std::min(0.05f, 0.32f * screen.fromGrey); }

bool isDarkScreen(const ScreenHue& screen, const Rgb& c) {
  const HueOffset off = offsetOf(screen, hueOf(c[0], c[1], c[2]));
  const float light = screen.colour[0] + screen.colour[1] + screen.colour[2];
  return off.fuller > 0 && off.beside < hueReach(screen) + 0.35f * off.fuller &&
         c[0] + c[1] + c[2] > 0.1f * light;
}

ScreenHue hueOfColour(const Rgb& colour) {
  ScreenHue screen;
  screen.colour = colour;
  screen.hue = hueOf(colour[0], colour[1], colour[2]);
  screen.fromGrey = lengthOf(screen.hue[0] - 1.0f / 3, screen.hue[1] - 1.0f / 3);
  std::array<std::size_t, 3> order = {0, 1, 2};
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t a, std::size_t b) { return colour[a] > colour[b]; });
  screen.primary = static_cast<int>(order[0]);
  screen.middle = static_cast<int>(order[1]);
  screen.weakest = static_cast<int>(order[2]);
  return screen;
}

namespace {

/// Of a yellow or a magenta screen chance says which channel is its strongest. Never red, which
/// leads in subjects: a key that asks how far green leads a yellow screen keeps skin, one that asks
/// for red keys it.
void leadWithoutRed(ScreenHue& screen) {
  const auto middle = static_cast<std::size_t>(screen.middle);
  if (screen.primary != 0 || screen.colour[middle] < tie * screen.colour[0]) return;
  std::swap(screen.colour[0], screen.colour[middle]);
  std::swap(screen.primary, screen.middle);
}

/// What votes for one hue.
struct Crowd {
  float r = 0, g = 0;            // the hue
  std::vector<std::size_t> own;  // pixels of it
  std::size_t atBorder = 0;      // how many of them lie at the frame's border
};

/// The hue with the heaviest votes. red  what a red vote counts
Crowd heaviest(const std::vector<Vote>& votes, float red) {
  const auto weightOf = [red](const Vote& vote) { return vote.weight * (vote.red ? red : 1.0f); };
  constexpr int cells = 64;
  Plane weights(cells, cells);
  for (const Vote& vote : votes) {
    weights(std::clamp(static_cast<int>(vote.r * cells), 0, cells - 1),
            std::clamp(static_cast<int>(vote.g * cells), 0, cells - 1)) += weightOf(vote);
  }
  weights = blurred(weights, 1);
  const auto fullest = static_cast<std::size_t>(
      std::max_element(weights.values.begin(), weights.values.end()) - weights.values.begin());
  Crowd crowd;
  crowd.r = (static_cast<float>(fullest % cells) + 0.5f) / cells;
  crowd.g = (static_cast<float>(fullest / cells) + 0.5f) / cells;
  const Shorter within(reach);
  const auto near = [&](const Vote& vote) { return within(vote.r - crowd.r, vote.g - crowd.g); };
  for (int round = 0; round < 8; ++round) {
    double sumR = 0, sumG = 0, sum = 0;
    for (const Vote& vote : votes) {
      if (!near(vote)) continue;
      const float weight = weightOf(vote);
      sumR += static_cast<double>(weight * vote.r);
      sumG += static_cast<double>(weight * vote.g);
      sum += static_cast<double>(weight);
    }
    if (sum <= 0) break;
    crowd.r = static_cast<float>(sumR / sum);
    crowd.g = static_cast<float>(sumG / sum);
  }
  for (const Vote& vote : votes) {
    if (!near(vote)) continue;
    crowd.own.push_back(vote.pixel);
    crowd.atBorder += vote.border;
  }
  return crowd;
}

/// The screen that a crowd of votes is, out of what was looked at.
ScreenHue screenOf(const Crowd& crowd, const Colours& smooth, std::size_t looked,
                   std::size_t borders) {
  if (crowd.own.size() < 16) return {};
  Rgb median{};
  std::vector<float> values(crowd.own.size());
  for (std::size_t c = 0; c < 3; ++c) {
    std::transform(crowd.own.begin(), crowd.own.end(), values.begin(),
                   [&](std::size_t pixel) { return smooth[c][pixel]; });
    median[c] = quantile(values, 0.5);
  }
  ScreenHue screen = hueOfColour(median);
  leadWithoutRed(screen);
  screen.hue = {crowd.r, crowd.g};
  screen.fromGrey = lengthOf(crowd.r - 1.0f / 3, crowd.g - 1.0f / 3);
  screen.coverage = static_cast<float>(crowd.own.size()) / static_cast<float>(looked);
  const float high = screen.colour[static_cast<std::size_t>(screen.primary)];
  const float saturation = (high - screen.colour[static_cast<std::size_t>(screen.weakest)]) / high;
  const float contact =
      static_cast<float>(crowd.atBorder) / static_cast<float>(std::max<std::size_t>(borders, 1));
  // Half sure at 2 % of the frame, or at a tenth of its border.
  const float area = screen.coverage / (screen.coverage + 0.02f);
  const float frame = contact / (contact + 0.1f);
  const float colour = std::min(1.0f, saturation / 0.3f);
  const bool red = screen.colour[0] > std::max(screen.colour[1], screen.colour[2]) + redLead;
  screen.confidence = area * (0.5f + 0.5f * frame) * colour * colour *
                      (red ? 0.35f * std::min(1.0f, saturation / 0.7f) : 1.0f);
  return screen;
}

/// Whether a crowd is what all else stands before: on most of the frame's border, where the other
/// crowd hardly is, and as far from grey. Red has to be vivid besides: wood and skin are duller.
bool isAround(const Crowd& crowd, const ScreenHue& screen, const Crowd& other,
              const ScreenHue& otherScreen, std::size_t borders) {
  constexpr float dull = 0.65f;  // a saturation
  if (2 * crowd.atBorder < borders || crowd.atBorder < 3 * other.atBorder ||
      3 * crowd.own.size() < other.own.size()) {
    return false;
  }
  if (screen.primary != 0) return screen.fromGrey > 0.8f * otherScreen.fromGrey;
  return 1 - screen.colour[static_cast<std::size_t>(screen.weakest)] / screen.colour[0] > dull &&
         crowd.own.size() > 2 * other.own.size();
}

}  // namespace

ScreenHue screenHue(const Look& look) {
  const Colours smooth = blurred(look.codes, 1.2f, look.rows);
  const int w = smooth[0].width;
  const int h = smooth[0].height;
  const auto hueAt = [&](int x, int y) {
    const std::size_t i = smooth[0].index(x, y);
    return hueOf(smooth[0][i], smooth[1][i], smooth[2][i]);
  };
  const int border =
      std::max(1, static_cast<int>(borderShare * static_cast<float>(std::min(w, h))));
  std::vector<Vote> votes;
  std::size_t looked = 0, borders = 0;
  for (int y = 0; y < h; y += 2) {
    for (int x = 0; x < w; x += 2) {
      const std::size_t i = smooth[0].index(x, y);
      const float r = smooth[0][i], g = smooth[1][i], b = smooth[2][i];
      const float high = std::max({r, g, b});
      const bool atBorder = x < border || y < border || x >= w - border || y >= h - border;
      ++looked;
      borders += atBorder;
      const float saturation = (high - std::min({r, g, b})) / std::max(high, 1e-4f);
      if (saturation <= leastSaturation || high <= leastLight) continue;
      const auto hue = hueAt(x, y);
      const auto right = hueAt(std::min(x + 1, w - 1), y);
      const auto below = hueAt(x, std::min(y + 1, h - 1));
      const float squared = std::min(saturation, 0.6f) * std::min(saturation, 0.6f);
      votes.push_back({i, hue[0], hue[1], squared * (atBorder ? borderVote : 1.0f),
                       std::abs(right[0] - hue[0]) + std::abs(right[1] - hue[1]) +
                           std::abs(below[0] - hue[0]) + std::abs(below[1] - hue[1]),
                       atBorder, r > std::max(g, b) + redLead});
    }
  }
  if (votes.size() < 16) return {};
  std::vector<float> steep;
  steep.reserve(votes.size());
  for (const Vote& vote : votes) steep.push_back(vote.steepness);
  const float steepest = quantile(steep, 0.7);
  for (Vote& vote : votes) vote.weight *= vote.steepness <= steepest ? 1.15f : 0.15f;
  const Crowd crowd = heaviest(votes, redVote);
  const ScreenHue screen = screenOf(crowd, smooth, looked, borders);
  // A subject of one hue may outvote the screen around it.
  std::vector<Vote> others;
  std::copy_if(votes.begin(), votes.end(), std::back_inserter(others), [&](const Vote& vote) {
    return lengthOf(vote.r - crowd.r, vote.g - crowd.g) > 1.5f * reach;
  });
  const auto atBorder = [](const Vote& vote) { return vote.border; };
  if (2 * std::count_if(others.begin(), others.end(), atBorder) >
      static_cast<std::ptrdiff_t>(borders)) {
    const Crowd around = heaviest(others, 1);
    const ScreenHue found = screenOf(around, smooth, looked, borders);
    if (isAround(around, found, crowd, screen, borders)) return found;
  }
  if (screen.confidence < leastConfidence) {
    // A table or a hand that outvotes the tablet upon it.
    return screenOf(heaviest(votes, 0), smooth, looked, borders);
  }
  return screen;
}

}  // namespace orvanite
