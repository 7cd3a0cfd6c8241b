// SPDX-License-Identifier: BSD-3-Clause
//
// The refined edge: beside a model that solves each square of pixels in double precision, beside
// the arithmetic of mixes, and on an edge with grain.
#include "keyer/Refine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <utility>
#include <vector>

#include "keyer/Keyer.h"
#include "keyer/MatteFilter.h"

namespace orvanite {
namespace {

constexpr int width = 41, height = 23;
constexpr std::array<float, 3> screen = {0.1f, 0.8f, 0.2f};

Finish refining() {
  Finish finish;
  finish.refine = 1;
  finish.screen = screen;
  return finish;
}

std::size_t at(int x, int y) {
  return static_cast<std::size_t>(y) * width + static_cast<std::size_t>(x);
}

template <class Visit>
void around(int x, int y, const Visit& visit) {
  for (int dy = -2; dy <= 2; ++dy) {
    for (int dx = -2; dx <= 2; ++dx) {
      visit(at(std::clamp(x + dx, 0, width - 1), std::clamp(y + dy, 0, height - 1)));
    }
  }
}

// Slopes and start of the matte over the colours around a pixel: the normal equations of least
// squares, `flat` times 25 held against the slopes, by elimination.
std::array<double, 4> lineAt(const std::vector<float>& plate, const std::vector<double>& matte,
                             double flat, int x, int y) {
  std::array<std::array<double, 5>, 4> a{};
  around(x, y, [&](std::size_t i) {
    const double terms[5] = {static_cast<double>(plate[4 * i]),
                             static_cast<double>(plate[4 * i + 1]),
                             static_cast<double>(plate[4 * i + 2]), 1, matte[i]};
    for (std::size_t r = 0; r < 4; ++r) {
      for (std::size_t c = 0; c < 5; ++c) a[r][c] += terms[r] * terms[c];
    }
  });
  for (std::size_t r = 0; r < 3; ++r) a[r][r] += 25 * flat;
  for (std::size_t p = 0; p < 4; ++p) {
    for (std::size_t r = 0; r < 4; ++r) {
      if (r == p) continue;
      const double part = a[r][p] / a[p][p];
      for (std::size_t c = p; c < 5; ++c) a[r][c] -= part * a[p][c];
    }
  }
  return {a[0][4] / a[0][0], a[1][4] / a[1][1], a[2][4] / a[2][2], a[3][4] / a[3][3]};
}

TEST(Refine, TakesTheMatteThatColoursHaveAround) {
  std::mt19937 chance(5);
  std::vector<float> plate(4 * at(0, height));
  std::vector<std::uint16_t> matte(at(0, height));
  std::vector<double> shares(matte.size());
  for (std::size_t i = 0; i < matte.size(); ++i) {
    for (std::size_t c = 0; c < 4; ++c) {
      plate[4 * i + c] = static_cast<float>(chance() % 1000) / 1000.0f;
    }
    const auto kind = chance() % 4;
    matte[i] = static_cast<std::uint16_t>(kind == 0 ? 0 : kind == 1 ? solid : chance());
    shares[i] = static_cast<double>(matte[i]) / solid;
  }
  // What is far too bright leads as 4.0 does, no number as 0: the rest is unhurt.
  plate[4 * at(3, 2)] = 1e30f;
  plate[4 * at(3, 20) + 1] = -1;
  std::vector<float> led = plate;
  led[4 * at(3, 2)] = 4;
  led[4 * at(3, 20) + 1] = 0;
  const double flat = 0.002 * 0.8 * 0.8;
  std::vector<std::array<double, 4>> lines(matte.size());
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) lines[at(x, y)] = lineAt(led, shares, flat, x, y);
  }
  const OtileImage image{plate.data(), &plate[1], &plate[2], &plate[3], 4, 4 * width};
  std::vector<std::uint16_t> refined(matte.size(), 77);
  RefineScratch scratch;
  // In parts of any size.
  for (const FrameArea area : {FrameArea{0, 0, 17, height}, FrameArea{17, 0, 1, height},
                               FrameArea{18, 0, 23, 9}, FrameArea{18, 9, 23, 14}}) {
    refineMatte(refining(), Pixels<float>(image, width, height), {matte.data(), width, height},
                static_cast<const Pixels<float>*>(nullptr), area, scratch, refined.data());
  }
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const std::size_t i = at(x, y);
      // What is within a 255th of clear or solid stays.
      if (matte[i] <= solid / 255 || matte[i] >= solid - solid / 255) {
        EXPECT_EQ(refined[i], matte[i]) << x << ' ' << y;
        continue;
      }
      // The outermost pixels go on: a line beyond the frame is fitted to what stands there, which
      // is not the line of the outermost pixel.
      if (x < 2 || y < 2 || x >= width - 2 || y >= height - 2) continue;
      double sum = 0;
      around(x, y, [&](std::size_t n) {
        sum += lines[n][3];
        for (std::size_t c = 0; c < 3; ++c) {
          sum += lines[n][c] * static_cast<double>(led[4 * i + c]);
        }
      });
      EXPECT_NEAR(static_cast<double>(refined[i]) / solid, std::clamp(sum / 25, 0.0, 1.0), 2e-4)
          << x << ' ' << y;
    }
  }
}

template <class Sample>
void expectColours(Sample full, double tolerance) {
  const Finish finish = refining();
  const auto share = [](double part) { return static_cast<std::uint16_t>(part * solid); };
  const auto sample = [&](double v) { return static_cast<Sample>(v * static_cast<double>(full)); };
  // A mix of .6 of (.7 .3 .2) and .4 of the screen (.1 .8 .2) is (.46 .5 .2).
  // Taken for .5, (.46 - .05, .5 - .4, .2 - .1) / .5 is left: the refined .6 gives the subject's.
  // Taken for .6 that is left at once, and a refined .8 would add a quarter of the screen less a
  // fifth: (.42 + .02, .18 + .16, .12 + .04) / .8 = (.55 .425 .2), green held at the mean .375.
  // Nothing is changed where the matte is not, or where nothing is left.
  const std::array<double, 3> halved = {0.82, 0.2, 0.2}, subject = {0.7, 0.3, 0.2};
  const std::array<std::array<double, 3>, 4> expected = {
      subject, {0.55, 0.375, 0.2}, halved, halved};
  const std::uint16_t was[4] = {share(0.5), share(0.6), share(0.5), share(0.5)};
  const std::uint16_t is[4] = {share(0.6), share(0.8), share(0.5), 0};
  for (const bool reference : {false, true}) {
    std::vector<Sample> pixels, clean;
    for (const auto& colour : {halved, subject, halved, halved}) {
      for (const double v : colour) pixels.push_back(sample(v));
      pixels.push_back(sample(0.9));
      for (const float v : screen) clean.push_back(sample(static_cast<double>(v)));
    }
    Finish own = finish;
    if (reference) own.screen = {0.5f, 0.9f, 0.5f};  // the clean plate knows better
    const Sample* const channels[3] = {clean.data(), clean.data() + 1, clean.data() + 2};
    recolourRefined(own, reference ? channels : nullptr, 3, was, is, 4, pixels.data());
    for (std::size_t i = 0; i < 4; ++i) {
      for (std::size_t c = 0; c < 3; ++c) {
        EXPECT_NEAR(static_cast<double>(pixels[4 * i + c]) / static_cast<double>(full),
                    expected[i][c], tolerance)
            << i << ' ' << c << ' ' << reference;
      }
      EXPECT_EQ(pixels[4 * i + 3], sample(0.9));
    }
  }
}

TEST(Refine, GivesThePixelsTheColourThatGoesWithTheirMatte) {
  expectColours<std::uint8_t>(255, 2.5 / 255);
  expectColours<std::uint16_t>(65535, 3.0 / 65535);
  expectColours<float>(1, 3e-5);
}

// Eleven pixels from screen to subject, and grain on them: the key of a pixel carries its grain, a
// square of them less. The columns' means stay. Beside a clean plate and without one.
TEST(Refine, CalmsAnEdgeWithGrainAndKeepsItsPlace) {
  constexpr int wide = 80, high = 60, left = 36, right = 45;
  const std::array<float, 3> subject = {0.7f, 0.3f, 0.5f};
  std::mt19937 chance(9);
  std::vector<std::uint16_t> plate(std::size_t{4} * wide * high), clean(plate.size());
  for (int y = 0; y < high; ++y) {
    for (int x = 0; x < wide; ++x) {
      const float share = std::clamp((static_cast<float>(x) - 34.0f) / 12.0f, 0.0f, 1.0f);
      const auto i = static_cast<std::size_t>(4 * (y * wide + x));
      for (std::size_t c = 0; c < 3; ++c) {
        float grain = -2;
        for (int n = 0; n < 4; ++n) grain += static_cast<float>(chance() % 1000) / 999.0f;
        const float mixed = share * subject[c] + (1 - share) * screen[c];
        plate[i + c] = static_cast<std::uint16_t>(65535 * (mixed + 0.035f * grain));
        clean[i + c] = static_cast<std::uint16_t>(65535 * screen[c]);
      }
    }
  }
  const auto image = [](std::vector<std::uint16_t>& pixels) {
    return OtileImage{pixels.data(), &pixels[1], &pixels[2], &pixels[3], 4, 4 * wide};
  };
  for (const bool reference : {false, true}) {
    const auto keyed = [&](const char* refine) {
      Settings settings;
      settings.setText("screen", "0.1,0.8,0.2");
      settings.setText("output", "unpremultiplied");
      settings.setText("refine", refine);
      Inputs inputs{};
      inputs.reference = reference;
      Keyer keyer;
      keyer.prepare(settings, Depth::shorts, inputs);
      std::vector<std::uint16_t> out(plate.size());
      Frame frame{{}, wide, high, Depth::shorts};
      frame.pictures.fg = image(plate);
      frame.pictures.dst = image(out);
      if (reference) frame.pictures.ref = image(clean);
      keyer.render(frame, 1);
      return out;
    };
    // The mean and the variance of a channel of a column.
    const auto column = [&](const std::vector<std::uint16_t>& out, int x, int channel) {
      double sum = 0, square = 0;
      for (int y = 0; y < high; ++y) {
        const double v = out[static_cast<std::size_t>(4 * (y * wide + x) + channel)] / 65535.0;
        sum += v / high;
        square += v * v / high;
      }
      return std::pair{sum, square - sum * sum};
    };
    const auto plain = keyed("0"), refined = keyed("1");
    double before = 0, after = 0;
    for (int x = left; x < right; ++x) {
      for (int channel = 0; channel < 4; ++channel) {
        EXPECT_NEAR(column(refined, x, channel).first, column(plain, x, channel).first, 0.03)
            << x << ' ' << channel;
      }
      before += column(plain, x, 3).second;
      after += column(refined, x, 3).second;
    }
    EXPECT_GT(before, 0);
    EXPECT_LT(after, 0.75 * before) << reference;
  }
}

}  // namespace
}  // namespace orvanite
