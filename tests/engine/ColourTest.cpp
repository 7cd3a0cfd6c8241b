// SPDX-License-Identifier: BSD-3-Clause
//
// Encodings, grading and the neutral scale, by numbers that a person can work out.
#include <gtest/gtest.h>

#include <cmath>

#include "engine/QMXOrvaniteTable.h"
#include "tests/engine/ContinuousModel.h"
#include "tests/engine/Scene.h"

TEST(Colour, IsEncodedAndDecodedAsItsFormulasSay) {
  const Engine engine(orvanite_new());
  QMXOrvaniteTable& e = *engine;
  for (const int space : {0, 3, -1}) {
    e.colourspace = space;
    for (const float v : {-2.0f, 0.0f, 0.3f, 1.0f, 7.0f})
      EXPECT_TRUE(e.toLinear(v) == v && e.fromLinear(v) == v);
  }
  e.colourspace = 1;
  EXPECT_EQ(e.toLinear(1.0f), 1.0f);
  EXPECT_NEAR(e.toLinear(0.0f), 0.0091201084, 1e-8);  // 10^-2.04
  EXPECT_EQ(e.fromLinear(1.0f), 1.0f);
  EXPECT_EQ(e.fromLinear(0.0f), 0.0f);
  EXPECT_EQ(e.fromLinear(-1.0f), 0.0f);
  e.colourspace = 2;
  EXPECT_NEAR(e.toLinear(0.081f), std::pow(0.018, 0.6), 1e-6);
  EXPECT_EQ(e.toLinear(-0.2f), 0.0f);
  EXPECT_FLOAT_EQ(e.fromLinear(1.0f), 1.0f);  // 1.099 - 0.099
  EXPECT_EQ(e.fromLinear(-0.5f), 0.0f);
  for (const int space : {1, 2}) {
    e.colourspace = space;
    EXPECT_TRUE(std::isnan(e.toLinear(NAN)));
    EXPECT_TRUE(std::isnan(e.fromLinear(NAN)));
    for (int i = 1; i <= 2000; ++i) {
      // Off the video knee: the formulas jump there by 2.5e-4, which no rounding may decide.
      const float v = (static_cast<float>(i) + 0.3f) / 1000;
      EXPECT_NEAR(e.fromLinear(e.toLinear(v)), v, 4e-7) << space;
      EXPECT_NEAR(e.toLinear(v), continuous::toLinear(v, space), 4e-6 * e.toLinear(v)) << v;
      EXPECT_NEAR(e.fromLinear(v), continuous::fromLinear(v, space), 4e-6) << v;
    }
  }
}

TEST(Colour, IsGradedByGammaThenExposureThenOffset) {
  const Engine engine(orvanite_new());
  QMXOrvaniteTable& e = *engine;
  e.colourspace = 0;
  for (const float v : {-0.5f, 0.0f, 0.3f, 4.0f}) EXPECT_EQ(e.regrade(v, 0, 0), v);
  e.setGamma(2, 2, 2, 1);
  e.setExposure(3, 3, 3, 1);
  e.setOffset(0.5f, 0.5f, 0.5f, 1);
  EXPECT_FLOAT_EQ(e.regrade(0.25f, 1, 1), 2.0f);  // 3 sqrt(0.25) + 0.5
  EXPECT_TRUE(std::isnan(e.regrade(-0.25f, 1, 1)));
  e.neutralScale[1] = 0.25f;
  EXPECT_FLOAT_EQ(e.bgLinearRegrade(0.25f, 1), 0.5f);
  EXPECT_FLOAT_EQ(e.origSpace(0.25f, 1), 1.0f);
  // 3 x 0.1 + 0.5 in one rounding is 0.8; a product rounded by itself (0.3 + 2^-26) would not be.
  e.setGamma(1, 1, 1, 1);
  e.setExposure(3, 3, 3, 1);
  const double exact = 3.0 * static_cast<double>(0.1f) + 0.5;
  EXPECT_EQ(e.regrade(0.1f, 2, 1), static_cast<float>(exact));
}

TEST(Colour, ParametersAreClampedForIntegersOnlyAndNeutralBecomesGrey) {
  Parameters p;
  p.colourspace = 0;
  const float neutral[] = {0.25f, 0.5f, 0.5f};
  std::copy_n(neutral, 3, p.neutral);
  const Engine engine = makeEngine(p);
  QMXOrvaniteTable& e = *engine;
  ASSERT_EQ(orvanite_makeLuts(&e), 0);
  EXPECT_TRUE(e.neutralScale[0] == 1 && e.neutralScale[1] == 0.5f && e.neutralScale[2] == 0.5f);

  int calls = 0;
  orvanite_setScreen(&e, -0.1f, 0.2f, 1.3f);
  orvanite_setNeutral(&e, 0, 0.5f, 2);
  orvanite_setScreenRange(&e, 4);
  orvanite_installCallback(
      &e, [](void* count) { ++*static_cast<int*>(count); }, &calls);
  ASSERT_EQ(orvanite_makeLuts(&e), 0);
  EXPECT_EQ(calls, 0) << "clamping is no change";
  EXPECT_TRUE(e.screen[0] == 0 && e.screen[1] == 0.2f && e.screen[2] == 1);
  EXPECT_TRUE(e.neutral[0] == 0.001f && e.neutral[1] == 0.5f && e.neutral[2] == 1);
  EXPECT_EQ(e.screenRange, 1);
  orvanite_setScreen(&e, -0.1f, 0.2f, 1.3f);
  EXPECT_EQ(calls, 1) << "the value before clamping is another value";

  p = {};
  p.setAllMaxima(1);
  p.screen[2] = 1.5f;
  p.screen[0] = -0.1f;
  p.colourspace = 0;
  const Engine floats = makeEngine(p);
  ASSERT_EQ(orvanite_makeLuts(floats.get()), 0);
  EXPECT_TRUE(floats->screen[2] == 1.5f && floats->screen[0] == -0.1f);
  orvanite_installCallback(&e, nullptr, nullptr);
}
