// SPDX-License-Identifier: BSD-3-Clause
//
// The keyers against the equations in real numbers: each result lies within the sum of what its
// roundings can do (ContinuousModel.h derives it step by step), and comes near enough to that
// bound somewhere to show that the bound is no wider than it must be.
#include <gtest/gtest.h>

#include "tests/engine/ContinuousModel.h"
#include "tests/engine/Scene.h"

namespace {

/// Parameters inside their ranges: real numbers know no clamps of parameters.
Parameters tameParameters(Random& random, int max) {
  Parameters p;
  p.setAllMaxima(max);
  p.colourspace = random.between(0, 2);
  p.ref = max != 1 && random.oneIn(4);
  for (int c = 0; c < 3; ++c) p.screen[c] = random.real(0.02f, 0.35f);
  p.screen[random.between(0, 2)] = random.real(0.6f, 0.95f);
  const auto three = [&random](float* to, float low, float high) {
    for (int c = 0; c < 3; ++c) to[c] = random.real(low, high);
  };
  if (random.oneIn(2)) three(p.neutral, 0.4f, 0.6f);
  if (random.oneIn(2)) three(p.replace, 0.0f, 0.8f);
  if (random.oneIn(2)) three(p.background, 0.1f, 0.9f);
  if (random.oneIn(2)) three(p.mp, 0.2f, 0.8f);
  if (random.oneIn(2)) three(p.balance, 0.3f, 0.7f);
  if (random.oneIn(3)) three(p.gain, -0.2f, 0.2f);
  if (random.oneIn(2)) p.screenRange = random.real(0.0f, 0.3f);
  for (int set = 0; set < 2; ++set) {
    if (random.oneIn(3)) three(p.exposure[set], 0.5f, 1.5f);
    if (random.oneIn(3)) three(p.gamma[set], 0.7f, 1.4f);
    if (random.oneIn(3)) three(p.offset[set], 0.0f, 0.05f);
    if (random.oneIn(3)) p.saturation[set] = random.real(0.5f, 1.5f);
  }
  return p;
}

struct Measured {
  double worstShare = 0;  // of the bound, on the side where the error lies
  long samples = 0, narrow = 0;
};

constexpr double narrowBound = 1.0 / 64;

template <class T>
void compare(Random& random, const Parameters& base, Measured* measured) {
  const int max = base.fgMax;
  const Engine engine = makeEngine(base);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0) << base;
  for (const int view : {0, 1, 2, 4}) {
    Parameters p = base;
    p.view = view;
    orvanite_setView(engine.get(), view);
    ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
    const continuous::Model ideal(p, sizeof(T) == 4, false);
    const continuous::Model bounded(p, sizeof(T) == 4, true);
    Present present;
    present.hold = random.oneIn(2);
    present.garbage = random.oneIn(2);
    Scene<T> scene(random, 150, 1, present, Placement::own);
    const auto sample = [&](double v) {
      v = std::clamp(v, 0.0, 1.0);
      return sizeof(T) == 4 ? static_cast<T>(v) : static_cast<T>(v * max + 0.5);
    };
    for (int x = 0; x < scene.width; ++x) {
      const double amount = random.unit();  // of screen in this pixel
      for (int c = 0; c < 3; ++c) {
        const double screen = p.screen[c];
        scene.fg.at(c, x, 0) = sample(amount * screen + (1 - amount) * random.unit());
        scene.ref.at(c, x, 0) = sample(screen * random.real(0.8f, 1.1f));
      }
      for (int c = 0; c < 4; ++c) scene.bg.at(c, x, 0) = sample(random.unit());
      scene.hold.at(3, x, 0) = sample(random.real(-0.5f, 1.2f));
      scene.garbage.at(3, x, 0) = sample(random.real(-0.5f, 1.2f));
    }
    Otile tile = scene.tile();
    ASSERT_EQ(orvanite_render(engine.get(), depthCode<T>, scene.width, 1, &tile), 0);
    const orvanite::Choices choices = chosen(p, present);
    for (int x = 0; x < scene.width; ++x) {
      const auto codes = scene.inputs(x, 0);
      Inputs<double> in;
      for (std::size_t c = 0; c < 3; ++c) {
        in.fg[c] = static_cast<double>(codes.fg[c]) / max;
        in.ref[c] = static_cast<double>(codes.ref[c]) / max;
      }
      for (std::size_t c = 0; c < 4; ++c) in.bg[c] = static_cast<double>(codes.bg[c]) / max;
      in.hold = static_cast<double>(codes.hold) / max;
      in.garbage = static_cast<double>(codes.garbage) / max;
      const auto truth = ideal.key(choices, in);
      const auto bound = bounded.key(choices, in);
      for (std::size_t c = 0; c < 4; ++c) {
        const double value = static_cast<double>(scene.dst.at(static_cast<int>(c), x, 0)) / max;
        ASSERT_TRUE(value >= bound[c].low && value <= bound[c].high)
            << "view " << view << " pixel " << x << " channel " << c << ": " << value
            << " is outside " << bound[c].low << ".." << bound[c].high << ", ideally "
            << truth[c].low << "; fg " << in.fg[0] << ' ' << in.fg[1] << ' ' << in.fg[2] << " hold "
            << (choices.hold ? in.hold : -1) << " garbage " << (choices.garbage ? in.garbage : -1)
            << '\n'
            << p;
        ++measured->samples;
        if (bound[c].high - bound[c].low > narrowBound) continue;
        ++measured->narrow;
        const double error = value - truth[c].low;
        const double room = error < 0 ? truth[c].low - bound[c].low : bound[c].high - truth[c].low;
        // Where rounding can hardly move a value, reaching the bound says nothing.
        if (room < 1e-4) continue;
        measured->worstShare = std::max(measured->worstShare, std::fabs(error) / room);
      }
    }
  }
}

template <class T>
void compareMany(int max, std::uint64_t seed, int rounds, double leastNarrow, double leastShare) {
  Random random(seed);
  Measured measured;
  for (int round = 0; round < rounds && !::testing::Test::HasFatalFailure(); ++round)
    compare<T>(random, tameParameters(random, max), &measured);
  const double narrow =
      static_cast<double>(measured.narrow) / static_cast<double>(measured.samples);
  ::testing::Test::RecordProperty("narrowShare", std::to_string(narrow));
  ::testing::Test::RecordProperty("worstShareOfBound", std::to_string(measured.worstShare));
  std::printf("bounds below 1/64: %.3f of the samples; worst error: %.3f of its bound\n", narrow,
              measured.worstShare);
  EXPECT_GE(narrow, leastNarrow) << "bounds too wide to say anything";
  EXPECT_GE(measured.worstShare, leastShare) << "no error comes near its bound";
}

}  // namespace

TEST(Continuous, EightBitKeysLieWithinTheirRoundingsOfTheEquations) {
  compareMany<unsigned char>(255, 21, 200, 0.85, 0.9);
}
TEST(Continuous, SixteenBitKeysLieWithinTheirRoundingsOfTheEquations) {
  compareMany<unsigned short>(65535, 22, 30, 0.95, 0.9);
}
TEST(Continuous, FloatKeysLieWithinTheirRoundingsOfTheEquations) {
  compareMany<float>(1, 23, 200, 0.9, 0.5);
}
