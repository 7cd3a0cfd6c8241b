// SPDX-License-Identifier: BSD-3-Clause
//
// Which screen a key finds by itself, and its clean plate, in plates whose truth is known.
#include "keyer/BlindKey.h"

#include <gtest/gtest.h>

#include <cmath>

#include "base/Error.h"
#include "tests/keyer/Composed.h"

namespace orvanite {
namespace {

TEST(BlindKey, TakesNoSubjectForTheScreenWhateverTheScreensHue) {
  for (const Rgb& screen : {green, blue, olive, teal, dull}) {
    Composed plate;
    plate.screen = [&](int, int) { return screen; };
    // Fire over half of the frame, as even as the screen and fuller in colour.
    plate.subject = [](int, int) { return Rgb{0.9f, 0.45f, 0.1f}; };
    plate.matte = [](int x, int) { return x < 88 ? 1.0f : 0.0f; };
    Canvas canvas = plate.on(1);
    const BlindKey key = findKey(canvas.plate(), video());
    for (std::size_t c = 0; c < 3; ++c) EXPECT_NEAR(key.screen.colour[c], screen[c], 0.01f);
    EXPECT_GT(key.screen.confidence, 0.5f);
  }
  Composed none;
  none.screen = [](int x, int y) {
    return (x / 8 + y / 8) % 2 == 0 ? Rgb{0.6f, 0.5f, 0.45f} : Rgb{0.2f, 0.2f, 0.22f};
  };
  Canvas canvas = none.on(1);
  EXPECT_THROW(findKey(canvas.plate(), video()), Error);
}

TEST(BlindKey, KeysAYellowScreenByItsGreenUnlessToldOtherwise) {
  Composed plate;
  // Red is ahead by a hair, in the screen as in the skin.
  constexpr Rgb yellow = {0.79f, 0.78f, 0.06f};
  plate.screen = [&](int, int) { return yellow; };
  plate.subject = [](int, int) { return Rgb{0.75f, 0.56f, 0.45f}; };
  plate.matte = disc(80, 60, 30, 2);
  Canvas canvas = plate.on(1);
  const BlindKey key = findKey(canvas.plate(), video());
  EXPECT_EQ(key.screen.primary, 1);
  Canvas out = keyed(key, canvas);
  EXPECT_EQ(matteAt(out, 10, 60), 0);
  // Red would see (0.75 - 0.45) / (0.79 - 0.06) = 0.41 of the screen in it, or more.
  EXPECT_GT(matteAt(out, 80, 60), 0.95f);
  Settings red = video();
  red.setText("screen", "0.79,0.78,0.06");
  EXPECT_EQ(findKey(canvas.plate(), red).screen.primary, 0);
}

TEST(BlindKey, TakesAWallOfStrongRedForTheScreenAndNoTable) {
  constexpr Rgb shirt = {0.01f, 0.22f, 0.51f}, tablet = {0.3f, 0.75f, 0.15f};
  const struct {
    Rgb around, subject, screen;
  } cases[] = {{{0.94f, 0.45f, 0.2f}, shirt, {0.94f, 0.45f, 0.2f}},
               {{0.85f, 0.1f, 0.12f}, tablet, {0.85f, 0.1f, 0.12f}},
               {{0.6f, 0.42f, 0.28f}, tablet, tablet}};  // wood
  for (const auto& c : cases) {
    Composed plate;
    plate.screen = [&](int, int) { return c.around; };
    plate.subject = [&](int, int) { return c.subject; };
    plate.matte = disc(80, 60, 30, 2);
    Canvas canvas = plate.on(1);
    const ScreenHue found = findKey(canvas.plate(), video()).screen;
    for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(found.colour[i], c.screen[i], 0.01f) << i;
  }
}

TEST(BlindKey, TakesNoSubjectThatOutvotesTheScreenAroundIt) {
  Composed plate;
  // Leaves fuller than the dull screen on 100 of 160 columns; the border is the screen's.
  plate.screen = [](int, int) { return dull; };
  plate.subject = [](int x, int y) {
    return (x + y) % 8 < 4 ? Rgb{0.33f, 0.39f, 0.14f} : Rgb{0.29f, 0.34f, 0.12f};
  };
  plate.matte = [](int x, int y) { return x >= 30 && x < 130 && y >= 8 && y < 112 ? 1.0f : 0.0f; };
  Canvas canvas = plate.on(1);
  const ScreenHue found = findKey(canvas.plate(), video()).screen;
  for (std::size_t c = 0; c < 3; ++c) EXPECT_NEAR(found.colour[c], dull[c], 0.01f) << c;
  // In the middle of a grey studio the fuller colour is the screen.
  plate.screen = [](int, int) { return Rgb{0.42f, 0.46f, 0.5f}; };
  plate.subject = [](int, int) { return green; };
  Canvas studio = plate.on(1);
  EXPECT_NEAR(findKey(studio.plate(), video()).screen.colour[1], green[1], 0.01f);
}

TEST(BlindKey, FollowsAScreenWhoseHueDrifts) {
  // Towards the left by 0.16 in shares of the sum, where one screen's hues are within 0.05; or to
  // and fro by 0.05, in waves that no smooth plate follows.
  const auto drifted = [](float t) { return Rgb{0.16f + 0.09f * t, 0.6f - 0.08f * t, 0.24f}; };
  Composed plates[2];
  plates[0].screen = [&](int x, int) {
    const float t = static_cast<float>(width - 1 - x) / (width - 1);
    return drifted(1.3f * t * t * t * t);
  };
  plates[1].screen = [&](int x, int) {
    return drifted(0.2f + 0.2f * std::sin(static_cast<float>(x) * 0.15f));
  };
  for (Composed& plate : plates) {
    plate.matte = disc(100, 60, 25, 2);
    Canvas canvas = plate.on(2);
    const BlindKey key = findKey(canvas.plate(), video());
    Canvas out = keyed(key, canvas);
    EXPECT_GT(matteAt(out, 100, 60), 0.98f);
    for (int y = 2; y < height; y += 4) {
      for (int x = 2; x < width; x += 4) {
        if (std::hypot(x - 100, y - 60) < 29) continue;
        EXPECT_LT(matteAt(out, x, y), 0.02f) << x << ' ' << y;
      }
    }
  }
}

TEST(BlindKey, KnowsTheScreenBehindASubjectAndInItsCreases) {
  Composed plate;
  // Falls off by half and has a crease of a seventh, 30 pixels wide.
  const auto light = [](int x) {
    const float crease = (static_cast<float>(x) - 32) / 9;
    return 1 - 0.5f * static_cast<float>(x) / width - 0.15f * std::exp(-crease * crease);
  };
  plate.screen = [&](int x, int) {
    return Rgb{green[0] * light(x), green[1] * light(x), green[2] * light(x)};
  };
  plate.matte = disc(100, 60, 28, 3);
  Canvas canvas = plate.on(2);
  const BlindKey key = findKey(canvas.plate(), video());
  EXPECT_TRUE(key.plate.local);
  Canvas clean(width, height, 2);
  key.writeCleanPlate(clean.plate().image, Depth::shorts);
  for (int x = 4; x < width - 4; ++x) {
    EXPECT_NEAR(colourAt(clean.plate(), x, 60)[1], green[1] * light(x), 0.02f) << x;
  }
  Canvas out = keyed(key, canvas);
  for (int x = 4; x < 60; ++x) EXPECT_LT(matteAt(out, x, 60), 0.02f) << x;
}

TEST(BlindKey, FollowsAScreenWhoseHueDriftsInLightAndInTheDark) {
  Composed plate;
  // To the right codes lose their lesser channels; to the left light washes the green out.
  plate.screen = [](int x, int) {
    const float dark = std::max(0.0f, static_cast<float>(x - 90) / 70);
    const float pale = std::max(0.0f, static_cast<float>(40 - x) / 40);
    return Rgb{green[0] * (1 - 0.95f * dark) + 0.22f * pale,
               green[1] * (1 - 0.55f * dark) + 0.3f * pale,
               green[2] * (1 - 0.9f * dark) + 0.24f * pale};
  };
  plate.matte = disc(70, 70, 22, 3);
  Canvas canvas = plate.on(2);
  Canvas out = keyed(findKey(canvas.plate(), video()), canvas);
  for (int x = 3; x < width - 3; ++x) EXPECT_LT(matteAt(out, x, 20), 0.02f) << x;
}

TEST(BlindKey, FollowsAScreenIntoTheDarkBeyondACrease) {
  Composed plate;
  // Beyond the crease nothing has the lit screen's hue: codes have lost their red and blue.
  plate.screen = [](int x, int) {
    if (x < 90) return green;
    if (x < 94) return x % 2 == 0 ? Rgb{0.03f, 0.1f, 0.04f} : Rgb{0.25f, 0.8f, 0.36f};
    return Rgb{0.008f, 0.38f - 0.0015f * static_cast<float>(x - 94), 0.015f};
  };
  plate.matte = disc(40, 80, 24, 3);
  plate.grain = 0.002f;
  Canvas canvas = plate.on(2);
  Canvas out = keyed(findKey(canvas.plate(), video()), canvas);
  for (int y = 4; y < height - 4; y += 8) {
    for (int x = 120; x < width - 4; x += 6) {  // a clean plate is smooth where light steps
      EXPECT_LT(matteAt(out, x, y), 0.02f) << x << ',' << y;
    }
  }
  EXPECT_GT(matteAt(out, 40, 80), 0.99f);
}

TEST(BlindKey, TakesNoLeavesOfTheScreensHueForTheScreenWhereItCanTell) {
  Composed plate;
  plate.screen = [](int x, int) {
    const float light = 1 - 0.2f * static_cast<float>(x) / width;
    return Rgb{olive[0] * light, olive[1] * light, olive[2] * light};
  };
  // Leaves over half of the frame, their hue within a screen's reach, light and shade on them.
  plate.subject = [](int x, int y) {
    const float light = 0.78f + 0.14f * std::sin(static_cast<float>(x) / 3.5f) *
                                    std::sin(static_cast<float>(y) / 3);
    return Rgb{0.36f * light, 0.45f * light, 0.2f * light};
  };
  const auto leaves = disc(80, 60, 56, 2);
  plate.matte = leaves;
  Canvas canvas = plate.on(2);
  const BlindKey key = findKey(canvas.plate(), video());
  int solid = 0, taken = 0;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      if (leaves(x, y) < 1) continue;
      ++solid;
      taken += key.plate.sure(x, y);
    }
  }
  EXPECT_LT(taken, solid / 20) << solid;
  // Halfway the screen has .9 of its light.
  Canvas clean(width, height, 2);
  key.writeCleanPlate(clean.plate().image, Depth::shorts);
  for (std::size_t c = 0; c < 3; ++c) {
    EXPECT_NEAR(colourAt(clean.plate(), 80, 60)[c], 0.9f * olive[c], 0.015f);
  }
}

TEST(BlindKey, TakesNoSpecksOfAnotherLightForTheScreen) {
  Composed plate;
  plate.screen = [](int, int) { return olive; };
  // Smooth leaves of the screen's hue, 14 pixels wide, two thirds as bright, among dark ones.
  plate.subject = [](int x, int y) {
    const float light = std::hypot(std::remainder(static_cast<float>(x), 24.0f),
                                   std::remainder(static_cast<float>(y), 24.0f)) < 8
                            ? 0.66f
                            : 0.08f;
    return Rgb{olive[0] * light, olive[1] * light, olive[2] * light};
  };
  plate.matte = disc(80, 60, 50, 2);
  Canvas canvas = plate.on(2);
  const BlindKey key = findKey(canvas.plate(), video());
  EXPECT_EQ(key.plate.sure(72, 48), 0);
  EXPECT_EQ(key.plate.sure(8, 60), 1);
  Canvas clean(width, height, 2);
  key.writeCleanPlate(clean.plate().image, Depth::shorts);
  EXPECT_NEAR(colourAt(clean.plate(), 72, 48)[1], olive[1], 0.01f);
}

}  // namespace
}  // namespace orvanite
