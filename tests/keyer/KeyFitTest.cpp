// SPDX-License-Identifier: BSD-3-Clause
//
// How edges mix and which numbers suit a key, told from small plates whose truth is known.
#include "keyer/KeyFit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "keyer/BlindKey.h"
#include "tests/keyer/Composed.h"

namespace orvanite {
namespace {

TEST(KeyFit, TellsHowEdgesMix) {
  for (const bool inLight : {false, true}) {
    Composed plate;
    plate.screen = [](int, int) { return Rgb{0.02f, 0.82f, 0.25f}; };
    plate.subject = [](int x, int) {
      return x < 80 ? Rgb{0.85f, 0.2f, 0.6f} : Rgb{0.6f, 0.15f, 0.1f};
    };
    plate.matte = disc(80, 60, 36, 12);
    plate.inLight = inLight;
    Canvas canvas = plate.on(2);
    const BlindKey key = findKey(canvas.plate(), video());
    EXPECT_EQ(key.mixing, inLight ? Mixing::light : Mixing::codes) << "slope " << key.vote.slope;
    Settings log = video();
    log.setText("colourspace", "log");
    EXPECT_EQ(findKey(canvas.plate(), log).mixing, Mixing::log);
  }
}

TEST(KeyFit, TellsHowEdgesMixThoughTheSubjectBrightensThere) {
  const Rgb screen = {0.02f, 0.82f, 0.25f};
  const auto whole = disc(80, 60, 36, 12);
  Composed plate;
  plate.screen = [&](int, int) { return screen; };
  // Spill of half the screen over a rim of 12 pixels: as bright as light would mix it.
  plate.subject = [&](int x, int y) {
    const float d = std::hypot(static_cast<float>(x) - 80, static_cast<float>(y) - 60);
    const float rim = 0.5f * std::clamp((d - 26) / 12, 0.0f, 1.0f);
    return Rgb{0.6f + rim * screen[0], 0.15f + rim * screen[1], 0.1f + rim * screen[2]};
  };
  plate.matte = whole;
  Canvas canvas = plate.on(2);
  const BlindKey key = findKey(canvas.plate(), video());
  EXPECT_EQ(key.mixing, Mixing::codes) << "slope " << key.vote.slope;
}

TEST(KeyFit, KeysBetweenTheTwoWhereEdgesTellNothing) {
  Composed plate;
  plate.screen = [](int, int) { return teal; };
  plate.matte = disc(80, 60, 4, 3);  // a handful of pixels mix at all, under coarse grain
  plate.grain = 0.025f;
  for (const bool inLight : {false, true}) {
    plate.inLight = inLight;
    Canvas canvas = plate.on(2);
    const BlindKey key = findKey(canvas.plate(), video());
    EXPECT_EQ(key.mixing, Mixing::video) << "slope " << key.vote.slope;
  }
}

TEST(KeyFit, KeepsTheColourOfWhatLeansToTheScreen) {
  Composed plate;
  const Rgb cloth = {0.2f, 0.35f, 0.35f};
  plate.subject = [&](int x, int) { return x < 72 ? cloth : Rgb{0.7f, 0.5f, 0.42f}; };
  plate.matte = disc(80, 60, 36, 4);
  Canvas canvas = plate.on(2);
  KeyWishes wishes;
  wishes.holdOut = false;
  Canvas out = keyed(findKey(canvas.plate(), video(), wishes), canvas);
  EXPECT_GT(matteAt(out, 65, 60), 0.99f);
  // Of two keys that make it solid the one that takes no more than a thirtieth of its green: .012;
  // the other takes .025.
  EXPECT_NEAR(colourAt(out.plate(), 65, 60)[1], cloth[1], 0.015f);
}

TEST(KeyFit, LeavesWhatWasGiven) {
  Composed plate;
  plate.matte = disc(80, 60, 36, 8);
  Canvas canvas = plate.on(1);
  Settings given = video();
  given.setNumber("screenRange", 0.07);
  given.setNumber("midtoneBalance", 0.75);
  const BlindKey key = findKey(canvas.plate(), given);
  EXPECT_EQ(key.settings.text("screenRange"), "0.07");
  EXPECT_EQ(key.settings.text("midtoneBalance"), "0.75");
  for (const std::string& name : key.set) {
    EXPECT_NE(name, "screenRange");
    EXPECT_NE(name, "midtoneBalance");
  }
}

}  // namespace
}  // namespace orvanite
