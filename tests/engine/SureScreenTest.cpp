// SPDX-License-Identifier: BSD-3-Clause
//
// Codes that are told to be screen, keyed by the definition: what lies behind must show.
#include <gtest/gtest.h>

#include "engine/tables/IntegerPlan.h"
#include "tests/engine/Scene.h"

namespace {

constexpr int slotCodes = orvanite::SureScreen::slotCodes, slots = orvanite::SureScreen::slots;

/// Pixels at the corners of what is told and inside of it, of all slots. How many there were.
template <class T>
int keyTold(const Parameters& p, const orvanite::SureScreen& told, Random& random) {
  constexpr int codes = (std::numeric_limits<T>::max() + 1) / 256;
  const Definition<T> definition(p);
  const Present behind = {.fg = false}, both = {};
  const auto code = [&random](int upper) {
    return static_cast<T>(upper * codes +
                          random.pick({0, random.between(0, codes - 1), codes - 1}));
  };
  int pixels = 0;
  for (int slot = 1; slot < slots; ++slot) {
    if (told.below[0][slot] == 0) continue;
    const int first = told.before + slot * slotCodes;
    const int last = slot + 1 == slots ? 255 : std::min(first + slotCodes - 1, 255);
    for (int n = 0; n < 20; ++n, ++pixels) {
      Inputs<T> in;
      in.fg[told.channel] = code(random.pick({first, last, random.between(first, last)}));
      for (int k = 0; k < 2; ++k) {
        const int most = told.below[k][slot] - 1;
        in.fg[told.others[k]] = code(random.pick({most, most, random.between(0, most)}));
      }
      for (T& v : in.bg) v = code(random.between(0, 255));
      const orvanite::Choices choices = {.linear = p.colourspace == 0, .alpha = true};
      const Output<T> expected = definition.key(choices, behind, in);
      const Output<T> found = definition.key(choices, both, in);
      for (int c = 0; c < 3; ++c) {
        EXPECT_EQ(found[c], expected[c]) << "channel " << c << ", slot " << slot << ", of "
                                         << +in.fg[0] << " " << +in.fg[1] << " " << +in.fg[2];
      }
    }
  }
  return pixels;
}

template <class T>
void keyRandom(Random& random) {
  int pixels = 0;
  for (int i = 0; i < 100; ++i) {
    Parameters p = randomParameters(random);
    p.view = 0;
    p.saturation[0] = p.saturation[1] = 1;
    p.screenRange = random.pick({0.0f, 0.02f, 0.1f, 0.3f});
    const int own = random.between(0, 2);
    for (int c = 0; c < 3; ++c) p.screen[c] = random.real(0, c == own ? 1.0f : 0.5f);
    p.setAllMaxima(std::numeric_limits<T>::max());
    const Engine engine = makeEngine(p);
    ::testing::internal::CaptureStderr();
    const int result = orvanite_makeLuts(engine.get());
    ::testing::internal::GetCapturedStderr();
    if (result != 0 || !engine->plan->usable) continue;
    pixels += keyTold<T>(p, engine->plan->screen, random);
  }
  EXPECT_GT(pixels, 2000);
}

}  // namespace

TEST(SureScreen, IsNothingButScreenWhateverTheCurves) {
  Random random(2026);
  keyRandom<unsigned char>(random);
  keyRandom<unsigned short>(random);
}

// Video codes 153, 51 and 51 of 255.
TEST(SureScreen, HasTheScreensOwnColourAndGrainAboutIt) {
  for (const int max : {255, 65535}) {
    Parameters p;
    p.colourspace = 2;
    p.screenRange = 0.1f;
    p.setAllMaxima(max);
    p.screen[0] = p.screen[2] = 0.2f;
    p.screen[1] = 0.6f;
    const Engine engine = makeEngine(p);
    ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
    const orvanite::SureScreen& told = engine->plan->screen;
    ASSERT_TRUE(told.any);
    EXPECT_EQ(told.channel, 1);
    const int slot = (153 - told.before) / slotCodes;
    ASSERT_GT(slot, 0);
    EXPECT_GT(told.below[0][slot], 51 + 6);
    EXPECT_GT(told.below[1][slot], 51 + 6);
  }
}
