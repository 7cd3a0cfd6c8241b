// SPDX-License-Identifier: BSD-3-Clause
//
// Backgrounds brought over frames, against sums over all pixels of the picture with the filters'
// formulas in double precision.
#include "keyer/Fitter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

namespace orvanite {
namespace {

constexpr double pi = 3.14159265358979323846;

double windowOf(double t) {
  const double x = pi * (t + 1);
  return 0.35875 - 0.48829 * std::cos(x) + 0.14128 * std::cos(2 * x) - 0.01168 * std::cos(3 * x);
}

double lobesOf(double t) {
  const auto sinc = [](double x) { return x == 0 ? 1 : std::sin(pi * x) / (pi * x); };
  return sinc(3 * t) * sinc(t);
}

/// How much pixel j of `from` counts in pixel i of `to`: those beyond the edges are the outermost.
double shareOf(int i, int to, int j, int from, bool enlarges) {
  const double ratio = static_cast<double>(to) / from;
  const double radius = (enlarges ? 1.5 : 3.0) / std::min(1.0, ratio);
  double own = 0, all = 0;
  for (int k = -200; k < from + 200; ++k) {
    const double t = (k + 0.5 - (i + 0.5) / ratio) / radius;
    if (std::abs(t) > 1) continue;
    const double share = enlarges ? windowOf(t) : lobesOf(t);
    all += share;
    if (std::clamp(k, 0, from - 1) == j) own += share;
  }
  return own / all;
}

TEST(Fitter, ResamplesInLightAndCutsWhatReachesBeyondTheFrame) {
  constexpr int width = 23, height = 17;
  std::mt19937 random(5);
  std::uniform_real_distribution<float> code(0, 1);
  std::vector<float> picture(std::size_t{4} * width * height);
  for (float& v : picture) v = code(random);
  struct Case {
    int frameWidth, frameHeight;
    double aspect;
    Fit fit;
    Box place;  // worked out by hand
  };
  // 40 / 23 is more than 20 / 17: 17 x 40 / 23 is 29.6, of which 30 - 20 rows are cut, 5 at the
  // top.
  for (const Case& one :
       {Case{40, 20, 1, Fit::fill, {0, -5, 40, 30}},
        Case{9, 11, 1, Fit::fill, {-3, 0, 15, 11}},   // 23 x 11 / 17 is 14.9
        Case{9, 11, 1, Fit::fit, {0, 2, 9, 7}},       // 17 x 9 / 23 is 6.7
        Case{30, 8, 1, Fit::stretch, {0, 0, 30, 8}},  // wider and lower
        Case{30, 30, 2, Fit::fit, {0, 9, 30, 11}},    // 46 wide: 17 x 30 / 46 is 11.1
        Case{30, 9, 1, Fit::none, {3, -4, 23, 17}}}) {
    const Box place = placeOf(width, height, one.aspect, one.frameWidth, one.frameHeight, one.fit);
    const std::string what = std::to_string(one.frameWidth) + "x" +
                             std::to_string(one.frameHeight) + ", " +
                             std::to_string(static_cast<int>(one.fit));
    EXPECT_EQ((std::vector{place.x, place.y, place.width, place.height}),
              (std::vector{one.place.x, one.place.y, one.place.width, one.place.height}))
        << what;
    const bool scales = place.width != width || place.height != height;
    const bool enlarges = place.width > width || place.height > height;
    Fitter fitter(width, height, place, one.frameWidth, one.frameHeight, "video", "video");
    std::vector<int> reads(height);
    std::vector<float> row(std::size_t{4} * static_cast<std::size_t>(one.frameWidth));
    for (int y = 0; y < one.frameHeight; ++y) {
      fitter.row(
          y,
          [&](int from, float* to) {
            ++reads[static_cast<std::size_t>(from)];
            std::copy_n(picture.begin() + std::ptrdiff_t{4} * width * from, 4 * width, to);
          },
          row.data());
      for (int x = 0; x < one.frameWidth; ++x) {
        const int u = x - place.x, v = y - place.y;
        const bool inside = u >= 0 && v >= 0 && u < place.width && v < place.height;
        for (int c = 0; c < 4; ++c) {
          double sum = 0;
          for (int j = 0; j < height && inside; ++j) {
            const double down = scales ? shareOf(v, place.height, j, height, enlarges) : v == j;
            if (down == 0) continue;
            for (int i = 0; i < width; ++i) {
              const double across = scales ? shareOf(u, place.width, i, width, enlarges) : u == i;
              const float value = picture[static_cast<std::size_t>(4 * (j * width + i) + c)];
              sum += down * across * static_cast<double>(c == 3 ? value : toLight(value, "video"));
            }
          }
          const double expected =
              c == 3 ? sum : static_cast<double>(fromLight(static_cast<float>(sum), "video"));
          ASSERT_NEAR(row[static_cast<std::size_t>(4 * x + c)], expected, 3e-6)
              << what << ": " << x << ", " << y << ", " << c;
        }
      }
    }
    for (const int count : reads) EXPECT_LE(count, 1) << what;
  }
}

}  // namespace
}  // namespace orvanite
