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
#include "keyer/simd/RowTable.h"

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

// A plate and its matte in double precision. Beyond the frame the outermost pixels go on.
struct Model {
  std::vector<float> plate;  // four samples a pixel, held to what leads
  std::vector<double> matte;

  static std::size_t held(int x, int y) {
    return at(std::clamp(x, 0, width - 1), std::clamp(y, 0, height - 1));
  }
  double colour(int x, int y, std::size_t c) const {
    return static_cast<double>(plate[4 * held(x, y) + c]);
  }

  // A matte beside the subject within eight pixels: with F its mean colour, V the sum of its
  // colours' variances, B the screen's colour and D = F - B, a colour C lies (C - B).D / D.D of the
  // way from B to F, and by E = C - B less that much of D beside it. Taken are 0.2 D.D / (D.D + 4 V
  // + 64 E.E) of that. With H the part of C - B across B, the matte is at least 0.6 |H| / |D|, or
  // 0.9.
  double mixed(int x, int y) const {
    const double own = matte[held(x, y)];
    if (own * 255 <= 1 || own * 255 >= 254) return own;
    double count = 0, squares = 0, contrast = 0, dot = 0;
    std::array<double, 3> sum{};
    for (int v = y - 8; v <= y + 8; ++v) {
      for (int u = x - 8; u <= x + 8; ++u) {
        if (matte[held(u, v)] < 0.8) continue;
        ++count;
        for (std::size_t c = 0; c < 3; ++c) {
          sum[c] += colour(u, v, c);
          squares += colour(u, v, c) * colour(u, v, c);
        }
      }
    }
    if (count < 4) return own;
    double spread = squares / count;
    for (std::size_t c = 0; c < 3; ++c) {
      const double mean = sum[c] / count, behind = static_cast<double>(screen[c]);
      spread -= mean * mean;
      contrast += (mean - behind) * (mean - behind);
      dot += (mean - behind) * (colour(x, y, c) - behind);
    }
    double beside = 0, along = 0, light = 0, hued = 0;
    for (std::size_t c = 0; c < 3; ++c) {
      const double behind = static_cast<double>(screen[c]), mean = sum[c] / count;
      const double off = colour(x, y, c) - behind - dot / contrast * (mean - behind);
      beside += off * off;
      along += (colour(x, y, c) - behind) * behind;
      light += behind * behind;
    }
    for (std::size_t c = 0; c < 3; ++c) {
      const double behind = static_cast<double>(screen[c]);
      const double across = colour(x, y, c) - behind - along / light * behind;
      hued += across * across;
    }
    const double way = std::clamp(dot / contrast, 0.0, 1.0);
    const double mix = own + 0.2 * contrast / (contrast + 4 * spread + 64 * beside) * (way - own);
    return std::max(mix, std::min(0.6 * std::sqrt(hued / contrast), 0.9));
  }

  // Slopes and start of the mixed matte over the colours within two pixels: the normal equations of
  // least squares, `flat` times 25 held against the slopes, by elimination.
  std::array<double, 4> line(double flat, int x, int y) const {
    std::array<std::array<double, 5>, 4> a{};
    for (int v = y - 2; v <= y + 2; ++v) {
      for (int u = x - 2; u <= x + 2; ++u) {
        const double terms[5] = {colour(u, v, 0), colour(u, v, 1), colour(u, v, 2), 1, mixed(u, v)};
        for (std::size_t r = 0; r < 4; ++r) {
          for (std::size_t c = 0; c < 5; ++c) a[r][c] += terms[r] * terms[c];
        }
      }
    }
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

  // What the lines within two pixels say of a pixel.
  double refined(double flat, int x, int y) const {
    double sum = 0;
    for (int v = y - 2; v <= y + 2; ++v) {
      for (int u = x - 2; u <= x + 2; ++u) {
        const std::array<double, 4> l = line(flat, u, v);
        sum += l[3];
        for (std::size_t c = 0; c < 3; ++c) sum += l[c] * colour(x, y, c);
      }
    }
    return std::clamp(sum / 25, 0.0, 1.0);
  }
};

// On the left colours and mattes of any kind, on the right a subject of one colour with grain,
// whose mattes are not what its mixes are.
TEST(Refine, TakesTheMatteThatColoursHaveAround) {
  std::mt19937 chance(5);
  const std::array<float, 3> subject = {0.7f, 0.3f, 0.5f};
  std::vector<float> plate(4 * at(0, height));
  std::vector<std::uint16_t> matte(at(0, height));
  std::vector<double> shares(matte.size());
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const std::size_t i = at(x, y);
      const auto kind = chance() % 4;
      matte[i] = static_cast<std::uint16_t>(kind == 0 ? 0 : kind == 1 ? solid : chance());
      shares[i] = static_cast<double>(matte[i]) / solid;
      for (std::size_t c = 0; c < 3; ++c) {
        const float grain = static_cast<float>(chance() % 1000) / 1000.0f;
        const auto share = static_cast<float>(shares[i] * shares[i]);
        plate[4 * i + c] =
            x < width / 2 ? grain : share * subject[c] + (1 - share) * screen[c] + 0.05f * grain;
      }
    }
  }
  // What is far too bright leads as 4.0 does, no number as 0: the rest is unhurt.
  plate[4 * at(3, 2)] = 1e30f;
  plate[4 * at(3, 20) + 1] = -1;
  Model model{plate, shares};
  model.plate[4 * at(3, 2)] = 4;
  model.plate[4 * at(3, 20) + 1] = 0;
  std::vector<float> clean;
  for (std::size_t i = 0; i < matte.size(); ++i) {
    clean.insert(clean.end(), {screen[0], screen[1], screen[2], 0});
  }
  const auto image = [](std::vector<float>& pixels) {
    return Pixels<float>({pixels.data(), &pixels[1], &pixels[2], &pixels[3], 4, 4 * width}, width,
                         height);
  };
  const Pixels<float> behind = image(clean);
  for (const bool reference : {false, true}) {
    std::vector<std::uint16_t> refined(matte.size(), 77);
    RefineScratch scratch;
    // In parts of any size.
    for (const FrameArea area : {FrameArea{0, 0, 17, height}, FrameArea{17, 0, 1, height},
                                 FrameArea{18, 0, 23, 9}, FrameArea{18, 9, 23, 14}}) {
      refineMatte(refining(), image(plate), reference ? &behind : nullptr,
                  {matte.data(), width, height}, static_cast<const Pixels<float>*>(nullptr), area,
                  scratch, refined.data());
    }
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const std::size_t i = at(x, y);
        // What is within a 255th of clear or solid stays.
        if (matte[i] <= solid / 255 || matte[i] >= solid - solid / 255) {
          EXPECT_EQ(refined[i], matte[i]) << x << ' ' << y;
        } else {
          EXPECT_NEAR(static_cast<double>(refined[i]) / solid,
                      model.refined(0.002 * 0.8 * 0.8, x, y), 2e-4)
              << x << ' ' << y << ' ' << reference;
        }
      }
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
    rowTable().colours<Sample>().recolour(
        {was, is, reference ? channels : nullptr, 3, own.screen, own.primary, pixels.data(), 4});
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
        const double now = column(refined, x, channel).first;
        const double key = column(plain, x, channel).first, truth = (x - 34) / 12.0;
        // The key makes pixels more solid than they are: further off only where that is mended.
        const bool mends = channel == 3 && std::abs(now - truth) < std::abs(key - truth);
        EXPECT_NEAR(now, key, mends ? 0.035 : 0.03) << x << ' ' << channel;
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
