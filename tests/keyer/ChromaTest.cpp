// SPDX-License-Identifier: BSD-3-Clause
//
// Colour led by light: beside a model in double precision, on plates whose colour was stored
// coarsely here, and by what it does to a key's edge.
#include "keyer/Chroma.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "tests/keyer/Composed.h"

namespace orvanite {
namespace {

/// What a picture of half the size in colour, stretched again, leaves of a plate: light stays.
/// smooth  stretched between the middles of its pixels; else each is four alike
void storeCoarsely(Canvas& canvas, bool smooth) {
  const Plate plate = canvas.plate();
  Canvas whole = canvas;
  const Plate from = whole.plate();
  const auto leanAt = [&](int x, int y, std::size_t c) {
    float sum = 0;
    for (int v = y & ~1; v < (y & ~1) + 2; ++v) {
      for (int u = x & ~1; u < (x & ~1) + 2; ++u) {
        const Rgb p = colourAt(from, std::min(u, plate.width - 1), std::min(v, plate.height - 1));
        sum += p[c] - (0.299f * p[0] + 0.587f * p[1] + 0.114f * p[2]);
      }
    }
    return sum / 4;
  };
  canvas.fill([&](int x, int y) {
    const Rgb p = colourAt(from, x, y);
    const float light = 0.299f * p[0] + 0.587f * p[1] + 0.114f * p[2];
    const auto stored = [&](std::size_t c) {
      if (!smooth) return leanAt(x, y, c);
      // A quarter of a pixel away from the middle of its own, three quarters from the next one's.
      const int u = std::clamp(x + (x % 2 == 0 ? -1 : 1), 0, plate.width - 1);
      const int v = std::clamp(y + (y % 2 == 0 ? -1 : 1), 0, plate.height - 1);
      return (9 * leanAt(x, y, c) + 3 * leanAt(u, y, c) + 3 * leanAt(x, v, c) + leanAt(u, v, c)) /
             16;
    };
    const float red = stored(0), blue = stored(2);
    return Rgb{std::clamp(light + red, 0.0f, 1.0f),
               std::clamp(light - (0.299f * red + 0.114f * blue) / 0.587f, 0.0f, 1.0f),
               std::clamp(light + blue, 0.0f, 1.0f)};
  });
}

/// The model: every window anew, in double precision.
struct Model {
  const Plate& plate;

  struct Line {
    double slope, start;
  };
  std::array<double, 3> at(int x, int y) const {
    const Rgb p =
        colourAt(plate, std::clamp(x, 0, plate.width - 1), std::clamp(y, 0, plate.height - 1));
    const double r = static_cast<double>(p[0]), g = static_cast<double>(p[1]);
    const double b = static_cast<double>(p[2]), light = 0.299 * r + 0.587 * g + 0.114 * b;
    return {light, r - light, b - light};
  }
  Line lineAt(int x, int y, std::size_t of) const {
    x = std::clamp(x, 0, plate.width - 1);
    double l = 0, c = 0, ll = 0, lc = 0;
    for (int v = y - 1; v <= y + 1; ++v) {
      for (int u = x - 1; u <= x + 1; ++u) {
        const auto p = at(u, v);
        l += p[0] / 9;
        c += p[of] / 9;
        ll += p[0] * p[0] / 9;
        lc += p[0] * p[of] / 9;
      }
    }
    const double slope = (lc - l * c) / (ll - l * l + 1e-4);
    return {slope, c - slope * l};
  }
  std::array<double, 3> led(int x, int y, double lead) const {
    const auto own = at(x, y);
    std::array<double, 3> lean{};
    for (const std::size_t of : {std::size_t{1}, std::size_t{2}}) {
      for (int v = y - 1; v <= y + 1; ++v) {
        for (int u = x - 1; u <= x + 1; ++u) {
          const Line line = lineAt(u, v, of);
          lean[of] += (line.slope * own[0] + line.start) / 9;
        }
      }
      lean[of] = own[of] + lead * (lean[of] - own[of]);
    }
    return {own[0] + lean[1], own[0] - (0.299 * lean[1] + 0.114 * lean[2]) / 0.587,
            own[0] + lean[2]};
  }
};

TEST(Chroma, IsLedAsTheModelSaysWhereverOneBegins) {
  std::mt19937 random(4);
  for (const int depth : {1, 2, 4}) {
    for (const auto& [w, h] : {std::array{1, 1}, {2, 5}, {67, 9}, {130, 4}}) {
      Canvas canvas(w, h, depth);
      canvas.fill([&](int, int) {
        const auto one = [&] { return static_cast<float>(random() % 1000) / 999; };
        return Rgb{one(), one(), one()};
      });
      const Plate plate = canvas.plate();
      const Model model{plate};
      const float lead = depth == 1 ? 1.0f : 0.4f;
      const auto size = static_cast<std::size_t>(w);
      std::vector<std::uint16_t> row(3 * size);
      const std::array<std::uint16_t*, 3> codes = {row.data(), row.data() + size,
                                                   row.data() + 2 * size};
      std::vector<std::vector<std::uint16_t>> whole;
      LedRows all(plate.image, plate.depth, w, h, 0, lead);
      for (int y = 0; y < h; ++y) {
        all.next(codes);
        whole.push_back(row);
        for (int x = 0; x < w; ++x) {
          const auto expected = model.led(x, y, static_cast<double>(lead));
          for (std::size_t c = 0; c < 3; ++c) {
            ASSERT_NEAR(codes[c][x], 65535 * std::clamp(expected[c], 0.0, 1.0), 9)
                << w << "x" << h << " at " << x << "," << y;
          }
        }
      }
      for (int y = 0; y < h; ++y) {
        LedRows(plate.image, plate.depth, w, h, y, lead).next(codes);
        ASSERT_EQ(row, whole[static_cast<std::size_t>(y)]) << y;
      }
    }
  }
}

/// How far a plate is led.
float leadOf(Canvas& canvas) { return findKey(canvas.plate(), video()).lead; }

TEST(Chroma, IsLedWhereItIsStoredCoarselyOrGrainCoversIt) {
  for (const int depth : {1, 2}) {
    for (const float grain : {0.0f, 0.01f, 0.03f}) {
      Composed plate;
      plate.grain = grain;
      plate.matte = disc(80, 60, 36, 0.7f);
      Canvas canvas = plate.on(depth);
      // A deviation of .03 is steps of light of .03 * sqrt(.299^2 + .587^2 + .114^2) * sqrt(2) *
      // 1.036 = .029 below which 70 percent lie: above .02, led all the way. .01 gives .0098.
      EXPECT_EQ(leadOf(canvas), grain > 0.02f ? 1 : 0) << grain << ", depth " << depth;
      for (const bool smooth : {false, true}) {
        Canvas coarse = canvas;
        storeCoarsely(coarse, smooth);
        EXPECT_EQ(leadOf(coarse), 1) << grain << ", depth " << depth << (smooth ? ", smooth" : "");
      }
    }
  }
}

TEST(Chroma, IsNotLedForABlockWhoseEdgesLieOnEvenColumns) {
  Composed plate;
  plate.grain = 0;
  plate.matte = [](int x, int y) { return x >= 40 && x < 100 && y >= 20 ? 1.0f : 0.0f; };
  Canvas canvas = plate.on(1);
  EXPECT_EQ(leadOf(canvas), 0);
}

/// The mean error of a matte in percent where it is soft.
double softError(const Composed& truth, Canvas& out) {
  double sum = 0;
  int count = 0;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const float t = truth.matte(x, y);
      if (t < 0.02f || t > 0.98f) continue;
      sum += std::abs(static_cast<double>(matteAt(out, x, y) - t));
      ++count;
    }
  }
  return 100 * sum / count;
}

TEST(Chroma, LedMakesEdgesOfCoarseColourBetterAndInPlaceTheSame) {
  for (const int depth : {1, 2}) {
    Composed plate;
    plate.grain = 0.01f;
    // Bars of fair hair, 8 pixels apart.
    plate.subject = [](int, int) { return Rgb{0.85f, 0.72f, 0.6f}; };
    plate.matte = [whole = disc(80, 60, 40, 2)](int x, int y) {
      const float bar = 0.5f + 0.5f * std::sin(0.8f * static_cast<float>(x + y / 3));
      return whole(x, y) * (x > 70 ? bar : 1);
    };
    Canvas canvas = plate.on(depth);
    storeCoarsely(canvas, depth == 1);
    BlindKey key = findKey(canvas.plate(), video());
    ASSERT_EQ(key.lead, 1);
    key.settings.setText("refine", "0");  // it helps either
    Canvas led = keyed(key, canvas, 3);
    EXPECT_EQ(led.bytes(), keyed(key, canvas, 1).bytes());
    const double with = softError(plate, led);
    Canvas own = canvas;
    {
      Settings settings = key.settings;
      settings.setText("output", "unpremultiplied");
      BlindKeyer keyer;
      const Plate in = own.plate();
      keyer.prepare(key, settings, in.depth, {});
      Frame frame{{}, in.width, in.height, in.depth};
      frame.pictures.fg = frame.pictures.dst = in.image;
      keyer.render(key, frame, 2);
    }
    EXPECT_EQ(own.bytes(), led.bytes());
    key.lead = 0;
    Canvas plain = keyed(key, canvas);
    EXPECT_LT(with, 0.9 * softError(plate, plain)) << "depth " << depth;
  }
}

}  // namespace
}  // namespace orvanite
