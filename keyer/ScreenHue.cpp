// SPDX-License-Identifier: BSD-3-Clause
//
// Pixels vote for their hue. A vote counts by what makes a screen: smoothness, saturation, a place
// at the frame's border. Saturation counts squared and reds count little: else a large subject of
// fire or fur outvotes the screen around it.
#include "keyer/ScreenHue.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
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

struct Vote {
  std::size_t pixel;
  float r, g, weight, steepness;
  bool border;
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

ScreenHue screenHue(const Look& look) {
  ScreenHue screen;
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
      const float weight = squared * (atBorder ? borderVote : 1.0f) *
                           (r > std::max(g, b) + redLead ? redVote : 1.0f);
      votes.push_back({i, hue[0], hue[1], weight,
                       std::abs(right[0] - hue[0]) + std::abs(right[1] - hue[1]) +
                           std::abs(below[0] - hue[0]) + std::abs(below[1] - hue[1]),
                       atBorder});
    }
  }
  if (votes.size() < 16) return screen;
  std::vector<float> steep;
  steep.reserve(votes.size());
  for (const Vote& vote : votes) steep.push_back(vote.steepness);
  const float steepest = quantile(steep, 0.7);
  constexpr int cells = 64;
  Plane crowd(cells, cells);
  for (Vote& vote : votes) {
    vote.weight *= vote.steepness <= steepest ? 1.15f : 0.15f;
    crowd(std::clamp(static_cast<int>(vote.r * cells), 0, cells - 1),
          std::clamp(static_cast<int>(vote.g * cells), 0, cells - 1)) += vote.weight;
  }
  crowd = blurred(crowd, 1);
  const auto fullest = static_cast<std::size_t>(
      std::max_element(crowd.values.begin(), crowd.values.end()) - crowd.values.begin());
  float r = (static_cast<float>(fullest % cells) + 0.5f) / cells;
  float g = (static_cast<float>(fullest / cells) + 0.5f) / cells;
  const Shorter within(reach);
  const auto near = [&](const Vote& vote) { return within(vote.r - r, vote.g - g); };
  for (int round = 0; round < 8; ++round) {
    double sumR = 0, sumG = 0, weight = 0;
    for (const Vote& vote : votes) {
      if (!near(vote)) continue;
      sumR += static_cast<double>(vote.weight * vote.r);
      sumG += static_cast<double>(vote.weight * vote.g);
      weight += static_cast<double>(vote.weight);
    }
    if (weight <= 0) break;
    r = static_cast<float>(sumR / weight);
    g = static_cast<float>(sumG / weight);
  }
  std::array<std::vector<float>, 3> members;
  std::size_t atBorder = 0;
  for (const Vote& vote : votes) {
    if (!near(vote)) continue;
    for (std::size_t c = 0; c < 3; ++c) members[c].push_back(smooth[c][vote.pixel]);
    atBorder += vote.border;
  }
  if (members[0].size() < 16) return screen;
  Rgb median{};
  for (std::size_t c = 0; c < 3; ++c) median[c] = quantile(members[c], 0.5);
  screen = hueOfColour(median);
  screen.hue = {r, g};
  screen.fromGrey = lengthOf(r - 1.0f / 3, g - 1.0f / 3);
  screen.coverage = static_cast<float>(members[0].size()) / static_cast<float>(looked);
  const float high = screen.colour[static_cast<std::size_t>(screen.primary)];
  const float saturation = (high - screen.colour[static_cast<std::size_t>(screen.weakest)]) / high;
  const float contact =
      static_cast<float>(atBorder) / static_cast<float>(std::max<std::size_t>(borders, 1));
  // Half sure at 2 % of the frame, or at a tenth of its border.
  const float area = screen.coverage / (screen.coverage + 0.02f);
  const float frame = contact / (contact + 0.1f);
  const float colour = std::min(1.0f, saturation / 0.3f);
  const bool red = screen.colour[0] > std::max(screen.colour[1], screen.colour[2]) + redLead;
  screen.confidence = area * (0.5f + 0.5f * frame) * colour * colour *
                      (red ? 0.35f * std::min(1.0f, saturation / 0.7f) : 1.0f);
  return screen;
}

}  // namespace orvanite
