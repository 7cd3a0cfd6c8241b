// SPDX-License-Identifier: BSD-3-Clause
//
// What is found in a plate is what was put there: plates made here whose screen is known, and the
// drawn plate, whose matte is.
#include "keyer/Screen.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "base/Error.h"
#include "examples/plate/Scene.h"
#include "keyer/AutoKey.h"
#include "keyer/CleanPlate.h"
#include "keyer/Keyer.h"
#include "tests/keyer/Canvas.h"

namespace orvanite {
namespace {

constexpr int width = 240, height = 160;
constexpr Rgb green = {0.2f, 0.7f, 0.25f};
constexpr Rgb blue = {0.15f, 0.3f, 0.75f};
constexpr Rgb olive = {0.4f, 0.45f, 0.18f};
constexpr Rgb teal = {0.08f, 0.52f, 0.5f};
constexpr Rgb skin = {0.8f, 0.6f, 0.5f};
constexpr Rgb darkRed = {0.35f, 0.1f, 0.1f};

Rgb lit(const Rgb& c, float light) { return {c[0] * light, c[1] * light, c[2] * light}; }

struct Scene {
  const char* name;
  int subjectFrom;       // columns from here to the right edge show the subject
  float darkest;         // light at the left edge; it rises evenly to 1 at the last screen column
  float grain;           // standard deviation, of every channel of its own
  float coverage, even;  // what must be found
};

// Screen columns over all columns; light at 5 percent over light at 95 percent of the way from
// `darkest` to 1: with darkest 0.5, (0.5 + 0.05 x 0.5) / (0.5 + 0.95 x 0.5) = 0.538.
constexpr Scene scenes[] = {
    {"even", 120, 1, 0, 0.5f, 1},
    {"falling off to half", 120, 0.5f, 0, 0.5f, 0.538f},
    {"grainy", 120, 1, 0.02f, 0.5f, 1},
    {"behind a subject that fills 19 twentieths", 12, 1, 0, 0.05f, 1},
    {"without a subject", 240, 0.7f, 0.01f, 1, 0.725f},  // (0.7 + 0.015) / (0.7 + 0.285)
};

TEST(FindScreen, FindsHueColourShareAndEvennessOfAScreenThatIsThere) {
  for (const Scene& scene : scenes) {
    for (const Rgb& colour : {green, blue, olive, teal}) {
      for (const int depth : {1, 2, 4}) {
        SCOPED_TRACE(std::string(scene.name) + ", depth " + std::to_string(depth));
        Canvas canvas(width, height, depth);
        std::mt19937 random(3);
        std::normal_distribution<float> grain(0, std::max(scene.grain, 1e-6f));
        const int from = scene.subjectFrom;
        canvas.fill([&](int x, int y) {
          const bool subject = x >= from;
          const float light = scene.darkest + (1 - scene.darkest) * static_cast<float>(x) /
                                                  static_cast<float>(from);
          Rgb c = subject ? (y % 8 < 4 ? skin : darkRed) : lit(colour, light);
          for (float& v : c) v = std::max(0.0f, v + grain(random));
          return c;
        });
        const Screen screen = findScreen(canvas.plate());
        ASSERT_TRUE(screen.found);
        EXPECT_TRUE(screen.sure());
        EXPECT_EQ(screen.primary, colour == blue ? 2 : 1);
        EXPECT_NEAR(screen.coverage, scene.coverage, 0.01f);
        // Grain of a deviation g is 1.645 g to either side for nine tenths of an even screen.
        const float level = colour[static_cast<std::size_t>(screen.primary)];
        const float grainy = 1.645f * scene.grain / level;
        EXPECT_NEAR(screen.evenness, scene.darkest == 1 ? (1 - grainy) / (1 + grainy) : scene.even,
                    0.025f);
        const Rgb median = lit(colour, (scene.darkest + 1) / 2);
        for (std::size_t c = 0; c < 3; ++c) EXPECT_NEAR(screen.colour[c], median[c], 0.006f) << c;
        EXPECT_NEAR(coverageOf(canvas.plate(), median), scene.coverage, 0.01f);
        EXPECT_LT(coverageOf(canvas.plate(), {0.3f, 0.3f, 0.3f}), 0.01f) << "a grey has no hue";
        EXPECT_NEAR(static_cast<float>(screen.foregroundPixels.size()) /
                        static_cast<float>(sampleGrid(canvas.plate()).size()),
                    1 - scene.coverage, 0.01f);
      }
    }
  }
}

TEST(FindScreen, SaysThatThereIsNoneAndSoDoesTheKey) {
  struct Case {
    const char* name;
    Rgb colour;
    float grain;
  };
  for (const Case& none : {Case{"black", {0, 0, 0}, 0}, Case{"noise in the dark", {0, 0, 0}, 0.01f},
                           Case{"white", {1, 1, 1}, 0}, Case{"skin", skin, 0.02f},
                           Case{"grainy grey", {0.4f, 0.4f, 0.4f}, 0.02f}}) {
    Canvas canvas(width, height, 2);
    std::mt19937 random(5);
    std::normal_distribution<float> grain(0, std::max(none.grain, 1e-6f));
    canvas.fill([&](int, int) {
      Rgb c = none.colour;
      for (float& v : c) v = std::max(0.0f, v + grain(random));
      return c;
    });
    EXPECT_FALSE(findScreen(canvas.plate()).found) << none.name;
    Settings settings;
    const Settings before = settings;
    try {
      autoKey(canvas.plate(), settings);
      ADD_FAILURE() << none.name << ": a key was found";
    } catch (const Error& error) {
      EXPECT_EQ(error.fault(), Fault::failure);
      EXPECT_STREQ(error.what(), "auto: expected a screen of one colour in the plate, found none");
    }
    EXPECT_EQ(settings, before) << none.name;
  }
  Plate empty;
  EXPECT_FALSE(findScreen(empty).found);
}

TEST(FindScreen, IsNotSureOfAMeadowOrOfAFewFruits) {
  const struct {
    const char* name;
    Rgb colour;
    float darkest;
    int from, to;  // its columns, beside a grey
  } cases[] = {{"meadow", {0.55f, 0.62f, 0.35f}, 0.05f, 0, 150},
               {"fruits", {0.5f, 0.6f, 0.3f}, 0.5f, 100, 106}};
  for (const auto& c : cases) {
    Canvas canvas(width, height, 1);
    std::mt19937 random(3);
    std::uniform_real_distribution<float> light(c.darkest, 1);
    canvas.fill([&](int x, int) {
      return lit(x >= c.from && x < c.to ? c.colour : Rgb{0.5f, 0.5f, 0.5f}, light(random));
    });
    const Screen screen = findScreen(canvas.plate());
    EXPECT_TRUE(screen.found) << c.name;
    EXPECT_FALSE(screen.sure()) << c.name;
  }
}

TEST(ColourOf, AveragesABoxAndRefusesOneThatLeavesThePlate) {
  Canvas canvas(8, 4, 4);
  // Red 1, 2, 3, 4, 10 along five pixels: mean 4, median 3.
  canvas.fill([](int x, int) {
    const std::array<float, 8> red = {9, 1, 2, 3, 4, 10, 9, 9};
    return Rgb{red[static_cast<std::size_t>(x)], 0.5f, 0.25f};
  });
  EXPECT_EQ(colourOf(canvas.plate(), {1, 2, 5, 1}, Average::mean), (Rgb{4, 0.5f, 0.25f}));
  EXPECT_EQ(colourOf(canvas.plate(), {1, 2, 5, 1}, Average::median), (Rgb{3, 0.5f, 0.25f}));
  EXPECT_EQ(colourOf(canvas.plate(), {7, 3, 1, 1}), (Rgb{9, 0.5f, 0.25f}));
  for (const Box& box : {Box{-1, 0, 2, 2}, Box{0, 0, 0, 1}, Box{7, 0, 2, 1}, Box{0, 3, 1, 2},
                         Box{0, 0, 9, 1}, Box{2147483647, 0, 2147483647, 1}}) {
    EXPECT_THROW(colourOf(canvas.plate(), box), Error) << box.x << "," << box.y;
  }
}

TEST(CleanPlate, ShowsTheLocalScreenAndLeadsItBehindTheSubject) {
  for (const int depth : {1, 2}) {
    Canvas canvas(width, height, depth);
    const auto light = [](int x, int y) {
      return 0.6f + 0.3f * static_cast<float>(x) / width + 0.1f * static_cast<float>(y) / height;
    };
    const auto covered = [](int x, int y) { return std::hypot(x - 120.0, y - 80.0) < 40; };
    canvas.fill([&](int x, int y) { return covered(x, y) ? skin : lit(green, light(x, y)); });
    const Plate plate = canvas.plate();
    const CleanPlate clean(plate, findScreen(plate));
    Canvas written(width, height, depth);
    const Plate estimate = written.plate();
    clean.write(estimate.image, Depth{depth});
    float worst = 0, worstBehind = 0;
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const float found = colourAt(estimate, x, y)[1];
        const float error = std::abs(found - 0.7f * light(x, y));
        float& most = covered(x, y) ? worstBehind : worst;
        most = std::max(most, error);
        ASSERT_NEAR(found, clean.at(x, y)[1], 1.0f / (depth == 1 ? 255 : 65535));
      }
    }
    // Beside the border, where a cell's middle is as far away as it can be, half a cell (2 pixels)
    // of a slope of 0.3 x 0.7 / 240 and 0.1 x 0.7 / 160 a pixel is 0.003; the rest is rounding and
    // the cells that the subject cuts.
    EXPECT_LT(worst, 0.012f);
    EXPECT_LT(worstBehind, 0.035f);  // of 0.49 to 0.7: the subject is a third of the frame wide
  }
}

TEST(CleanPlate, FollowsAHueThatDrifts) {
  Canvas canvas(width, height, 2);
  // From the middle to the right edge green turns into a paler one, whose chromaticity is further
  // away (0.13) than what is screen at once (0.07). At column 230 the drift is 110 / 119 = 0.924 of
  // (0.16, 0.1, 0.17): (0.348, 0.792, 0.407).
  canvas.fill([](int x, int) {
    const float drift = std::max(0.0f, static_cast<float>(x - 120) / 119);
    return Rgb{green[0] + 0.16f * drift, green[1] + 0.1f * drift, green[2] + 0.17f * drift};
  });
  const Plate plate = canvas.plate();
  const Screen screen = findScreen(plate);
  const Rgb found = CleanPlate(plate, screen).at(230, 80);
  EXPECT_NEAR(found[0], 0.348f, 0.005f);
  EXPECT_NEAR(found[1], 0.792f, 0.005f);
  EXPECT_NEAR(found[2], 0.407f, 0.005f);
}

TEST(CleanPlate, FollowsAScreenIntoTheDark) {
  Canvas canvas(width, height, 1);
  // From column 140 to the right edge the light falls to two fifths and the lesser channels go with
  // it faster, as codes do in shadow. At column 215 the drift is 75 / 99 = 0.758: green is
  // 0.7 (1 - 0.6 x 0.758) = 0.382, red 0.2 x 0.242 = 0.048, blue 0.25 x 0.242 = 0.061; its share of
  // green, 0.777, is far from the screen's 0.609. The subject fills 48 x 96 of 240 x 160 pixels.
  canvas.fill([](int x, int y) {
    if (x >= 20 && x < 68 && y >= 64) return skin;
    const float drift = std::max(0.0f, static_cast<float>(x - 140) / 99);
    return Rgb{green[0] * (1 - drift), green[1] * (1 - 0.6f * drift), green[2] * (1 - drift)};
  });
  const Plate plate = canvas.plate();
  const Screen screen = findScreen(plate);
  EXPECT_NEAR(screen.coverage, 1 - 48 * 96 / (240.0f * 160), 0.01f);
  // The estimate lags a little.
  const Rgb found = CleanPlate(plate, screen).at(215, 80);
  EXPECT_NEAR(found[0], 0.048f, 0.01f);
  EXPECT_NEAR(found[1], 0.382f, 0.01f);
  EXPECT_NEAR(found[2], 0.061f, 0.01f);
}

/// Mean absolute error of a key's matte where the garbage matte keeps the plate, in percent.
double errorOf(const plate::Pictures& truth, Canvas& canvas, Settings settings,
               const AutoKey* key) {
  settings.setText("output", "matte");
  const Plate plate = canvas.plate();
  Canvas keyed = canvas, clean = canvas;
  Inputs inputs;
  Frame frame{{}, plate.width, plate.height, plate.depth};
  frame.pictures.fg = plate.image;
  frame.pictures.dst = keyed.plate().image;
  if (key != nullptr && key->cleanPlate) {
    inputs.reference = true;
    frame.pictures.ref = clean.plate().image;
    CleanPlate(plate, key->screen).write(frame.pictures.ref, plate.depth);
  }
  Keyer keyer;
  keyer.prepare(settings, plate.depth, inputs);
  keyer.render(frame, 1);
  double sum = 0;
  int count = 0;
  for (int y = 0; y < plate.height; ++y) {
    for (int x = 0; x < plate.width; ++x) {
      if (truth.garbage.at(x, y)[0] != 0) continue;
      sum += std::abs(static_cast<double>(colourAt(keyed.plate(), x, y)[0]) -
                      static_cast<double>(truth.matte.at(x, y)[0]));
      ++count;
    }
  }
  return 100 * sum / count;
}

TEST(AutoKey, ComesCloseToTheTrueMatteAndCloserThanDefaultsWhereTheScreenIsUneven) {
  struct Case {
    plate::ScreenColour screen;
    plate::Difficulty difficulty;
    double most[2];  // error in percent, 16-bit and float: measured, and a twelfth more
  };
  using plate::Difficulty;
  using plate::ScreenColour;
  for (const Case& c : {Case{ScreenColour::green, Difficulty::clean, {1.70, 1.72}},
                        Case{ScreenColour::green, Difficulty::normal, {2.32, 2.64}},
                        Case{ScreenColour::green, Difficulty::hard, {3.75, 4.55}},
                        Case{ScreenColour::blue, Difficulty::clean, {2.46, 2.57}},
                        Case{ScreenColour::blue, Difficulty::normal, {2.97, 3.36}},
                        Case{ScreenColour::blue, Difficulty::hard, {4.76, 5.23}}}) {
    plate::Options options;
    options.screen = c.screen;
    options.difficulty = c.difficulty;
    options.width = 192;
    options.height = 108;
    options.frame = 7;
    const plate::Pictures pictures = plate::draw(options);
    for (const int depth : {2, 4}) {
      SCOPED_TRACE("screen " + std::to_string(static_cast<int>(c.screen)) + ", difficulty " +
                   std::to_string(static_cast<int>(c.difficulty)) + ", depth " +
                   std::to_string(depth));
      Canvas canvas(options.width, options.height, depth);
      canvas.fill([&](int x, int y) {
        const float* p = pictures.plate.at(x, y);
        return Rgb{p[0], p[1], p[2]};
      });
      Settings settings;
      const plate::Colour colour = plate::screenColour(c.screen, false);
      settings.setNumbers("screen", static_cast<double>(colour.r), static_cast<double>(colour.g),
                          static_cast<double>(colour.b));
      const double byHand = errorOf(pictures, canvas, settings, nullptr);
      settings = Settings();
      const AutoKey key = autoKey(canvas.plate(), settings);
      const double byItself = errorOf(pictures, canvas, settings, &key);
      EXPECT_EQ(key.cleanPlate, depth == 2 && c.difficulty != Difficulty::clean);
      // An even screen's own colour is all that a key by hand needs.
      if (c.difficulty != Difficulty::clean) {
        EXPECT_LT(byItself, byHand);
      }
      EXPECT_LT(byItself, c.most[depth == 4]);
      if (depth == 4) continue;  // its search takes longest
      Settings again;
      autoKey(canvas.plate(), again);
      EXPECT_EQ(again, settings);
    }
  }
}

TEST(AutoKey, LeavesAloneWhatWasGivenAndNamesWhatItSet) {
  Canvas canvas(width, height, 1);
  canvas.fill([](int x, int) {
    return x < 120 ? lit(blue, 0.8f + 0.2f * static_cast<float>(x) / 120) : skin;
  });
  Settings settings;
  settings.setNumbers("screen", 0.1, 0.2, 0.7);
  settings.setNumber("midtoneBalance", 0.75);
  settings.setNumber("screenRange", 0.07);
  const AutoKey key = autoKey(canvas.plate(), settings);
  EXPECT_TRUE(key.cleanPlate);
  EXPECT_EQ(settings.text("screen"), "0.1,0.2,0.7");
  EXPECT_EQ(settings.text("midtoneBalance"), "0.75");
  EXPECT_EQ(settings.text("screenRange"), "0.07");
  EXPECT_EQ(settings.text("shadowBalance"), "1");
  EXPECT_EQ(settings.text("replace"), "0.8,0.6,0.502");  // the subject's codes 204, 153, 128
  EXPECT_EQ(key.set,
            (std::vector<std::string>{"fgBias", "shadowBalance", "highlightBalance", "replace"}));
}

// What the key has to come close to stands beside local colours, which a switch for clean plates of
// the user's says nothing about.
TEST(AutoKey, OfOneColourIsTheSameWhetherOrNotACleanPlateWouldBeUsed) {
  Canvas canvas(width, height, 1);
  canvas.fill([](int x, int y) {
    const float light = 0.7f + 0.3f * static_cast<float>(x) / static_cast<float>(width);
    return x > 100 && x < 180 && y > 40 ? skin : lit(green, light);
  });
  Settings wanted, unwanted;
  unwanted.setText("useReference", "off");
  const AutoKey key = autoKey(canvas.plate(), wanted, CleanPlateUse::never);
  autoKey(canvas.plate(), unwanted, CleanPlateUse::never);
  EXPECT_GT(wanted.number("screenRange"), 0);
  for (const std::string& name : key.set) EXPECT_EQ(unwanted.text(name), wanted.text(name)) << name;
}

}  // namespace
}  // namespace orvanite
