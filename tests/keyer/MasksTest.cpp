// SPDX-License-Identifier: BSD-3-Clause
//
// Distances, openings and connected parts of random masks, beside models that look at every pixel
// of the mask for each.
#include "keyer/Masks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "keyer/Threads.h"

namespace orvanite {
namespace {

/// Masks of all densities, some with solid blocks, some empty or full.
Mask randomMask(int round, std::mt19937& random) {
  const auto below = [&](int n) {
    return static_cast<int>(random() % static_cast<std::uint32_t>(n));
  };
  Mask mask(1 + below(40), 1 + below(30));
  const int rarity = round % 7 == 0 ? 1 << 20 : 1 + below(round % 3 == 0 ? 200 : 4);
  for (std::uint8_t& v : mask.values) v = below(rarity) == 0;
  const int left = below(mask.width), top = below(mask.height);
  for (int y = top; round % 2 == 0 && y < std::min(mask.height, top + 9); ++y) {
    for (int x = left; x < std::min(mask.width, left + 14); ++x) mask(x, y) = 1;
  }
  return mask;
}

struct Nearest {
  int square = 1 << 30;
  std::size_t pixel = 0;
};

Nearest nearestOf(const Mask& mask, int x, int y) {
  Nearest best;
  for (int v = 0; v < mask.height; ++v) {
    for (int u = 0; u < mask.width; ++u) {
      const int square = (u - x) * (u - x) + (v - y) * (v - y);
      if (mask(u, v) != 0 && square < best.square) best = {square, mask.index(u, v)};
    }
  }
  return best;
}

TEST(Masks, AreAsFarAwayAsTheNearestPixelThatIsSet) {
  std::mt19937 random(1);
  for (int round = 0; round < 120; ++round) {
    const Mask mask = randomMask(round, random);
    const float reach = std::array{0.5f, 3.0f, 3.5f, 5.0f, 12.0f, 200.0f}[random() % 6];
    std::vector<std::uint32_t> nearest;
    const int threads = 1 + round % 3;
    const Plane far = distanceTo(mask, &nearest, rowsOn(threads));
    const Plane near = distanceWithin(mask, reach, rowsOn(threads));
    for (int y = 0; y < mask.height; ++y) {
      for (int x = 0; x < mask.width; ++x) {
        SCOPED_TRACE(std::to_string(round) + ": " + std::to_string(x) + ", " + std::to_string(y));
        const Nearest best = nearestOf(mask, x, y);
        const bool any = best.square < 1 << 30;
        const float distance = any ? std::sqrt(static_cast<float>(best.square)) : 1e6f;
        ASSERT_EQ(far(x, y), distance);
        // One of those that are as near as any.
        if (any) {
          const int u = static_cast<int>(nearest[mask.index(x, y)]) % mask.width;
          const int v = static_cast<int>(nearest[mask.index(x, y)]) / mask.width;
          ASSERT_NE(mask(u, v), 0);
          ASSERT_EQ((u - x) * (u - x) + (v - y) * (v - y), best.square);
        }
        if (distance <= reach) {
          ASSERT_EQ(near(x, y), distance);
        } else {
          ASSERT_GT(near(x, y), reach);
        }
      }
    }
  }
}

// The least index, carried from neighbour to neighbour until nothing changes.
Values<std::uint32_t> spreadLeast(const Mask& mask) {
  Values<std::uint32_t> part(mask.size());
  for (std::uint32_t i = 0; i < part.size(); ++i) part[i] = i;
  for (bool changed = true; changed;) {
    changed = false;
    for (int y = 0; y < mask.height; ++y) {
      for (int x = 0; x < mask.width; ++x) {
        std::uint32_t& own = part[mask.index(x, y)];
        for (int v = std::max(y - 1, 0); v <= std::min(y + 1, mask.height - 1); ++v) {
          for (int u = std::max(x - 1, 0); u <= std::min(x + 1, mask.width - 1); ++u) {
            if (mask(x, y) == 0 || mask(u, v) == 0 || part[mask.index(u, v)] >= own) continue;
            own = part[mask.index(u, v)];
            changed = true;
          }
        }
      }
    }
  }
  return part;
}

TEST(Masks, FallIntoPartsAndLoseWhatIsNarrowerThanThreePixels) {
  std::mt19937 random(2);
  for (int round = 0; round < 120; ++round) {
    SCOPED_TRACE(round);
    const Mask mask = randomMask(round, random);
    ASSERT_EQ(partsOf(mask), spreadLeast(mask));
    // A pixel stays where a square of 3 x 3 around it or a neighbour is set as far as the frame
    // goes.
    Mask expected(mask.width, mask.height);
    const auto around = [&](int x, int y, auto&& visit) {
      for (int v = std::max(y - 1, 0); v <= std::min(y + 1, mask.height - 1); ++v) {
        for (int u = std::max(x - 1, 0); u <= std::min(x + 1, mask.width - 1); ++u) visit(u, v);
      }
    };
    for (int y = 0; y < mask.height; ++y) {
      for (int x = 0; x < mask.width; ++x) {
        bool whole = true;
        around(x, y, [&](int u, int v) { whole = whole && mask(u, v) != 0; });
        if (whole) around(x, y, [&](int u, int v) { expected(u, v) = 1; });
      }
    }
    ASSERT_EQ(opened(mask, rowsOn(1 + round % 3)).values, expected.values);
  }
}

// Beside all of the values put in order: the one that stands at the share's place.
TEST(Masks, GiveTheValueThatAShareLiesBelow) {
  std::mt19937 random(3);
  for (int round = 0; round < 60; ++round) {
    const auto side = [&] { return 1 + static_cast<int>(random() % (round % 4 == 0 ? 300 : 30)); };
    Plane plane(side(), side());
    Mask mask(plane.width, plane.height);
    std::vector<float> inside;
    for (std::size_t i = 0; i < plane.size(); ++i) {
      // Of some rounds all values start alike, of others many are the same.
      const float one = static_cast<float>(random() % 100001) / 100000.0f;
      plane[i] = round % 3 == 0 ? 1 + one / 4096 : round % 3 == 1 ? std::floor(9 * one) - 4 : one;
      mask[i] = round != 7 && random() % 3 != 0;
      if (mask[i] != 0) inside.push_back(plane[i]);
    }
    std::sort(inside.begin(), inside.end());
    const double share = std::array{0.0, 0.1, 0.5, 0.98, 1.0}[random() % 5];
    const auto place = static_cast<std::size_t>(share * static_cast<double>(inside.size()));
    const float expected = inside.empty() ? 0 : inside[std::min(place, inside.size() - 1)];
    ASSERT_EQ(quantile(plane, mask, share, rowsOn(1 + round % 3)), expected) << round;
    std::shuffle(inside.begin(), inside.end(), random);
    ASSERT_EQ(quantile(inside, share), expected) << round;
  }
}

}  // namespace
}  // namespace orvanite
