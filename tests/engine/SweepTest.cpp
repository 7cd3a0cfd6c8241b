// SPDX-License-Identifier: BSD-3-Clause
//
// Random parameters and maxima, every kernel, every view, whatever a tile can lack: each pixel must
// be the definition's, through orvanite_render and through the definition's own kernels.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <set>
#include <string>

#include "engine/targets/Target.h"
#include "tests/engine/Scene.h"

namespace {

/// A target that is asked for and that the machine lacks cannot be compared.
class MachineHasTarget : public ::testing::Environment {
 public:
  void SetUp() override {
    const char* wanted = std::getenv("ORVANITE_TARGET");
    if (wanted == nullptr) return;
    for (const orvanite::Target& target : orvanite::knownTargets())
      if (std::string(wanted) == target.name && !target.supported())
        GTEST_SKIP() << "this machine has no " << wanted;
  }
};
const auto* const machine =
    ::testing::AddGlobalTestEnvironment(new MachineHasTarget);  // gtest deletes it

constexpr int views[] = {0, 1, 2, 3, 4, 5, 9, -1, std::numeric_limits<int>::min()};

/// Keys scenes with whatever a tile can lack. Notes the kernels that ran.
template <class T>
void sweepOne(Random& random, const Parameters& p, std::set<std::size_t>& kernels) {
  constexpr orvanite::Depth depth = orvanite::depthOfSample<T>;
  SCOPED_TRACE(::testing::PrintToString(p));
  Definition<T> definition(p);
  EXPECT_EQ(definition.message.empty(), definition.result != 2);
  const Engine engine = makeEngine(p);
  ::testing::internal::CaptureStderr();
  const int result = orvanite_makeLuts(engine.get());
  ::testing::internal::GetCapturedStderr();
  ASSERT_EQ(result, definition.result);
  if (result != 0) return;

  for (int view : views) {
    orvanite_setView(engine.get(), view);
    definition.p.view = view;
    ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
    for (int lacking = 0; lacking < 16; ++lacking) {
      Present present;
      present.hold = (lacking & 1) == 0;
      present.garbage = (lacking & 2) == 0;
      present.bgAlpha = (lacking & 4) == 0;
      present.fg = (lacking & 8) == 0 || random.oneIn(2);
      present.ref = p.ref || random.oneIn(2);
      present.bg = view == 0 || !present.fg || random.oneIn(2);
      const auto placement = present.bg && random.oneIn(3)   ? Placement::onBackground
                             : present.fg && random.oneIn(2) ? Placement::onForeground
                                                             : Placement::own;
      Scene<T> scene(random, random.oneIn(8) ? 150 : 23, 2, present, placement);
      fillInputs(random, scene, p);
      const orvanite::Choices choices = chosen(definition.p, present);
      scene.dummyAlpha = !choices.alpha && random.oneIn(2);
      auto copy = scene;
      kernels.insert(orvanite::kernelNumber(depth, choices));
      ASSERT_TRUE(keysLikeTheDefinition(scene, definition, choices, [&](Otile* tile) {
        return orvanite_render(engine.get(), depthCode<T>, scene.width, scene.height, tile);
      }));

      // The definition's kernel over the whole tile, and with the destination's alpha left alone.
      orvanite::Choices direct = choices;
      direct.alpha = choices.alpha && !random.oneIn(3);
      const auto kernel = orvanite::definitionKernel(depth, direct);
      ASSERT_TRUE(keysLikeTheDefinition(copy, definition, direct, [&](Otile* tile) {
        return kernel(engine.get(), copy.width, copy.height, tile);
      })) << "the definition's kernel";
    }
  }
}

template <class T>
void drawMaxima(Random& random, Parameters& p, int round) {
  if (sizeof(T) == 4) {
    p.setAllMaxima(1);
    return;
  }
  p.setAllMaxima(sizeof(T) == 1 ? 255 : random.pick({1023, 4095, 255}));
  if (sizeof(T) == 2 && round % 16 == 0) p.setAllMaxima(65535);
  if (random.oneIn(4))
    for (int* max : {&p.fgMax, &p.bgMax, &p.refMax, &p.dstMax, &p.gMatteMax, &p.hMatteMax})
      if (random.oneIn(3)) *max = random.pick({2, 3, 100, 255, 256, 1000});
}

template <class T>
void sweep(int rounds, std::uint64_t seed) {
  Random random(seed);
  std::set<std::size_t> kernels;
  for (int round = 0; round < rounds && !::testing::Test::HasFailure(); ++round) {
    Parameters p = randomParameters(random);
    drawMaxima<T>(random, p, round);
    p.ref = sizeof(T) < 4 && random.oneIn(3);
    sweepOne<T>(random, p, kernels);
  }
  EXPECT_EQ(kernels.size(), orvanite::kernelCount(orvanite::depthOfSample<T>))
      << "not every kernel was drawn";
}

}  // namespace

TEST(Sweep, EightBitPixelsAreTheDefinitions) { sweep<unsigned char>(200, 1); }
TEST(Sweep, SixteenBitPixelsAreTheDefinitions) { sweep<unsigned short>(120, 2); }
TEST(Sweep, FloatPixelsAreTheDefinitions) { sweep<float>(120, 3); }
