// SPDX-License-Identifier: BSD-3-Clause
//
// Builds: their results, their messages, and table entries that a person can work out.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "engine/QMXOrvaniteTable.h"
#include "tests/engine/Scene.h"

namespace {

/// Linear, so that codes and light are the same, with a pure green screen of this brightness.
Parameters linearGreen(float green) {
  Parameters p;
  p.colourspace = 0;
  p.screen[1] = green;
  p.screen[2] = 0;
  return p;
}

int build(const Engine& engine, std::string* message) {
  ::testing::internal::CaptureStderr();
  const int result = orvanite_makeLuts(engine.get());
  *message = ::testing::internal::GetCapturedStderr();
  return result;
}

}  // namespace

TEST(Build, ReportsUnusableColoursByNumberAndMessage) {
  struct Case {
    const char* name;
    int max, space;
    float neutral[3], screen[3];
    bool ref;
    int result;
    const char* message;
  };
  constexpr Case cases[] = {
      {"usable", 255, 0, {.5f, .5f, .5f}, {0, 1, 0}, false, 0, ""},
      {"no screen",
       255,
       0,
       {.5f, .5f, .5f},
       {0, 0, 0},
       false,
       2,
       "Orvanite: Screen colour is zero\n"},
      {"grey screen",
       255,
       0,
       {.5f, .5f, .5f},
       {.5f, .5f, .5f},
       false,
       2,
       "Orvanite: illegal screen colour\n"},
      {"black after clamping",
       255,
       0,
       {.5f, .5f, .5f},
       {-1, -.5f, -2},
       false,
       2,
       "Orvanite: Screen colour is zero\n"},
      {"dark neutral is lifted", 255, 0, {0, .5f, .5f}, {0, 1, 0}, false, 0, ""},
      {"float usable", 1, 0, {.5f, .5f, .5f}, {0, 1, 0}, false, 0, ""},
      {"float without neutral", 1, 0, {0, .5f, .5f}, {0, 1, 0}, false, 1, ""},
      {"float black neutral counts as grey", 1, 0, {0, 0, 0}, {0, 1, 0}, false, 0, ""},
      {"float without screen",
       1,
       0,
       {.5f, .5f, .5f},
       {0, 0, 0},
       false,
       2,
       "Orvanite: Screen colour is zero\n"},
      {"float grey screen",
       1,
       1,
       {.5f, .5f, .5f},
       {2, 2, 2},
       false,
       2,
       "Orvanite: illegal screen colour\n"},
      {"float with clean plate", 1, 0, {.5f, .5f, .5f}, {0, 1, 0}, true, 3, ""},
      {"float bright screen", 1, 0, {.5f, .5f, .5f}, {0, 4, 0}, false, 0, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Parameters p;
    p.setAllMaxima(c.max);
    p.colourspace = c.space;
    p.ref = c.ref;
    std::copy_n(c.neutral, 3, p.neutral);
    std::copy_n(c.screen, 3, p.screen);
    const Engine engine = makeEngine(p);
    std::string message;
    EXPECT_EQ(build(engine, &message), c.result);
    EXPECT_EQ(message, c.message);
    EXPECT_EQ(engine->tablesDirty != 0, c.result != 0);
    EXPECT_EQ(engine->matteDirty != 0, c.result != 0);
    // A failed build stays failed until something is mended, and says so each time.
    EXPECT_EQ(build(engine, &message), c.result);
    EXPECT_EQ(message, c.message);
    orvanite_useRef(engine.get(), 0);
    orvanite_setNeutral(engine.get(), 0.5f, 0.5f, 0.5f);
    orvanite_setScreen(engine.get(), 0, 0.25f, 1);
    EXPECT_EQ(build(engine, &message), 0);
    EXPECT_EQ(message, "");
  }
}

TEST(Build, AnyMaximumOfOneAsksForFloatTables) {
  void (*const setters[])(QMXOrvaniteTable*, int) = {orvanite_setFgMax,     orvanite_setBgMax,
                                                     orvanite_setRefMax,    orvanite_setDstMax,
                                                     orvanite_setGMatteMax, orvanite_setHMatteMax};
  for (auto* setter : setters) {
    const Engine engine = makeEngine({});
    setter(engine.get(), 1);
    EXPECT_EQ(orvanite_makeLuts(engine.get()), 0);
    EXPECT_NE(engine->floatTable[0], nullptr);
    EXPECT_EQ(engine->fgLinear[0], nullptr);
  }
}

TEST(IntegerTables, HoldWhatTheirFormulasGive) {
  Parameters p = linearGreen(0.25f);
  const Engine engine = makeEngine(p);
  QMXOrvaniteTable& e = *engine;
  ASSERT_EQ(orvanite_makeLuts(&e), 0);
  // 1 / 0.25 is 4: an entry is four times its index.
  EXPECT_EQ(e.screenTable[1024], 4096);
  EXPECT_EQ(e.screenTable[4095], 16380);
  for (int c = 0; c < 3; ++c) {
    EXPECT_EQ(e.outputTable[c][0], 0);
    EXPECT_EQ(e.outputTable[c][16383], 255);
    for (int j = 0; j < 16384; ++j) ASSERT_NEAR(e.fgGradeTable[c][j], j, 1);
  }
  // (4096 i + 127) div 255
  const std::pair<int, int> mattes[] = {{0, 0}, {1, 16}, {128, 2056}, {255, 4096}};
  for (const auto& [code, key] : mattes) {
    EXPECT_EQ(e.holdTable[code], key);
    EXPECT_EQ(e.garbageTable[code], 4096 - key);
  }
  // Green leads by S / D = 0.25 / 0.25 = 1; red and blue share -1: the clip is the identity.
  for (int i = 0; i < 256; ++i) {
    EXPECT_EQ(e.keyTable[1][i], static_cast<int>(4096.0f * static_cast<float>(i) / 255.0f + 0.5f));
    EXPECT_EQ(e.keyTable[0][i],
              static_cast<int>(-2048.0f * (static_cast<float>(i) / 255.0f) + 0.5f));
  }
  for (int i = 0; i <= 4096; ++i) EXPECT_NEAR(e.clipTable[i], i, 8);

  orvanite_setScreen(&e, 0, 0.2f, 0);
  orvanite_setHMatteMax(&e, 65535);
  ASSERT_EQ(orvanite_makeLuts(&e), 0);
  EXPECT_EQ(e.screenTable[3276], 16380);
  for (int i = 3277; i < 4096; ++i) ASSERT_EQ(e.screenTable[i], 16384);  // 3277 x 5 > 16384
  EXPECT_EQ(e.holdTable[16], 1);
  EXPECT_EQ(e.holdTable[32768], 2048);
}

TEST(IntegerTables, TieGoesToTheLowerChannel) {
  Parameters p = linearGreen(0.9f);
  p.screen[2] = 0.9f;
  const Engine engine = makeEngine(p);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  // Green leads; D = 0.5 x 0.9 + 0.5 x 0, so its weight is 2 and red and blue have -1 each.
  EXPECT_EQ(engine->keyTable[1][255], 8192);
  EXPECT_EQ(engine->keyTable[0][255], -4095);  // -4096 + 0.5, truncated
  EXPECT_EQ(engine->keyTable[2][255], -4095);
}

TEST(IntegerTables, SaturateInsteadOfWrapping) {
  // The screen stands so little apart from grey that the weights pass 8, which is 32767 key units.
  Parameters p = linearGreen(0.52f);
  p.screen[0] = p.screen[2] = 0.5f;
  p.balance[1] = 0;
  const Engine engine = makeEngine(p);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  EXPECT_EQ(engine->keyTable[1][255], 32767);  // 4096 x 0.52 / 0.02
  EXPECT_EQ(*std::min_element(engine->keyTable[0], engine->keyTable[0] + 256) <= -32768 ||
                *std::min_element(engine->keyTable[2], engine->keyTable[2] + 256) <= -32768,
            true);
}

TEST(IntegerTables, TheCleanPlateLeavesTheScreenTableForLater) {
  Parameters p = linearGreen(0.25f);
  const Engine engine = makeEngine(p);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  orvanite_useRef(engine.get(), 1);
  orvanite_setScreen(engine.get(), 0, 0.5f, 0);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  EXPECT_EQ(engine->screenTable[1024], 4096);
  EXPECT_NE(engine->screenDirty, 0);
  orvanite_useRef(engine.get(), 0);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  EXPECT_EQ(engine->screenTable[1024], 2048);  // 1 / 0.5 is 2
  EXPECT_EQ(engine->screenDirty, 0);
}

TEST(FloatTables, EndInTheHighlightWeightAndClipAtTheirLimit) {
  Parameters p = linearGreen(0.5f);
  p.setAllMaxima(1);
  p.gain[2] = 0.25f;
  const Engine engine = makeEngine(p);
  QMXOrvaniteTable& e = *engine;
  ASSERT_EQ(orvanite_makeLuts(&e), 0);
  // Green: 1 / 0.5 x 65504 x (1 + 0.25) is past the largest half.
  EXPECT_EQ(e.floatTable[1][0x7C00].bits(), 0x7C00);
  // Red: 2 x 65504 x -0.5 = -65504, on every pattern from infinity on.
  EXPECT_EQ(static_cast<float>(e.floatTable[0][0x7C00]), -65504.0f);
  EXPECT_EQ(e.floatTable[0][0x7C00].bits(), e.floatTable[0][0x7FFF].bits());
  EXPECT_EQ(e.floatTable[0][0].bits(), 0) << "no negative zero";
  // At 5 x 0.5 and above the curve is 1 + 11/12 x 0.25: pattern 0x4400 is 4.0.
  EXPECT_NEAR(static_cast<float>(e.floatTable[1][0x4400]), 2 * 4 * (1 + 0.25 * 11 / 12), 0.005);

  orvanite_setGain(&e, 2, 0);
  ASSERT_EQ(orvanite_makeLuts(&e), 0);
  EXPECT_NEAR(e.clipLow, 0, 1e-3);
  EXPECT_NEAR(e.clipScale, 1, 1e-3);
  orvanite_setScreenRange(&e, 0.8f);  // moves the screen beyond grey
  ASSERT_EQ(orvanite_makeLuts(&e), 0);
  EXPECT_EQ(e.clipLow, 0.499f);
  EXPECT_NEAR(e.clipScale, 500, 0.01);
}

TEST(FloatTables, AMidpointAtBlackLeavesTheLowSegmentsEmpty) {
  Parameters p = linearGreen(0.5f);
  p.setAllMaxima(1);
  p.gain[0] = 0.3f;
  p.gain[1] = 0.6f;
  for (float& mp : p.mp) mp = 0;
  const Engine engine = makeEngine(p);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  // The third segment starts at 0: (P2 + 4 P3 + P4) / 6 with P2 = 1.45, P3 = 1.6, P4 = 1.3.
  EXPECT_NEAR(static_cast<float>(engine->floatTable[1][1]) / 0x1p-24f, 2 * 1.525, 1);
  const float nearZero = static_cast<float>(engine->floatTable[1][0x0C00]);  // 2^-12
  EXPECT_NEAR(nearZero / 0x1p-12f, 2 * 1.525, 0.01);
}

TEST(Build, CountsNumbersThatAreNoneAsZeroAndStaysInsideItsTables) {
  // Only that nothing is read or written outside, and that rendering works: sanitizers watch.
  Random random(31);
  for (int round = 0; round < 60; ++round) {
    Parameters p = randomParameters(random);
    p.setAllMaxima(round % 3 == 0 ? 1 : 255);
    const float bad = random.pick({NAN, INFINITY, -INFINITY, 3e38f, -3e38f});
    float* const targets[] = {p.screen + 1,     p.neutral + 1,   p.replace + 1,  p.background + 1,
                              p.mp + 1,         p.balance + 1,   p.gain + 1,     p.exposure[0] + 1,
                              p.gamma[0] + 1,   p.offset[1] + 1, p.gamma[1] + 1, p.saturation,
                              p.exposure[1] + 1};
    for (int i = 0; i < 2; ++i) targets[random.between(0, 12)][random.between(0, 1)] = bad;
    const Engine engine = makeEngine(p);
    std::string message;
    if (build(engine, &message) != 0) continue;
    const auto key = [&](auto sample) {
      using T = decltype(sample);
      Scene<T> scene(random, 33, 2, {}, Placement::own);
      fillInputs(random, scene, p);
      Otile tile = scene.tile();
      EXPECT_EQ(orvanite_render(engine.get(), depthCode<T>, 33, 2, &tile), 0);
    };
    if (p.fgMax == 1)
      key(float{});
    else
      key(static_cast<unsigned char>(0));
  }
}
