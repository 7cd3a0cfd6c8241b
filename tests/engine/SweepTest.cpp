// SPDX-License-Identifier: BSD-3-Clause
//
// Random parameters, every kernel, every view: tables and pixels must equal the models' bit for
// bit, both through orvanite_render and through the reference kernels.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <set>
#include <string>

#include "engine/kernels/Target.h"
#include "tests/engine/References.h"
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

template <class Entry>
::testing::AssertionResult sameEntries(const char* name, const Entry* table,
                                       const std::vector<int>& expected) {
  if (table == nullptr) return ::testing::AssertionFailure() << name << " is null";
  for (std::size_t i = 0; i < expected.size(); ++i)
    if (static_cast<int>(table[i]) != expected[i])
      return ::testing::AssertionFailure()
             << name << "[" << i << "] is " << table[i] << ", the model says " << expected[i];
  return ::testing::AssertionSuccess();
}

void expectTables(const QMXOrvaniteTable& engine, const model::IntegerModel& m) {
  for (int c = 0; c < 3; ++c) {
    SCOPED_TRACE(c);
    EXPECT_PRED2(static_cast<bool (*)(float, float)>(same), engine.neutralScale[c],
                 m.neutralScale[c]);
    EXPECT_TRUE(sameEntries("fgLinear", engine.fgLinear[c], m.fgLinear[c]));
    EXPECT_TRUE(sameEntries("keyTable", engine.keyTable[c], m.keyTable[c]));
    EXPECT_TRUE(sameEntries("bgTable", engine.bgTable[c], m.bgTable[c]));
    EXPECT_TRUE(sameEntries("fgGradeTable", engine.fgGradeTable[c], m.fgGradeTable[c]));
    EXPECT_TRUE(sameEntries("outputTable", engine.outputTable[c], m.outputTable[c]));
    EXPECT_EQ(engine.screenWork[c], m.screenWork[c]);
    EXPECT_EQ(engine.replaceWork[c], m.replaceWork[c]);
    EXPECT_EQ(engine.bgColourWork[c], m.bgColourWork[c]);
    if (m.p.ref) {
      EXPECT_TRUE(sameEntries("refTable", engine.refTable[c], m.refTable[c]));
      EXPECT_TRUE(sameEntries("refKeyTable", engine.refKeyTable[c], m.refKeyTable[c]));
      EXPECT_EQ(engine.refScreenWork[c], m.refScreenWork[c]);
    }
    for (int set = 0; set < 2; ++set)
      for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(engine.satMatrix[set][c][k], m.saturation[set][c][k]);
        EXPECT_PRED2(static_cast<bool (*)(float, float)>(same), engine.satMatrix32[set][c][k],
                     m.saturationFloat[set][c][k]);
      }
  }
  if (m.p.ref)
    EXPECT_EQ(engine.refScreenKey, m.refScreenKey);
  else
    EXPECT_TRUE(sameEntries("screenTable", engine.screenTable, m.screenTable));
  if (m.p.hold) {
    EXPECT_TRUE(sameEntries("holdTable", engine.holdTable, m.holdTable));
  }
  if (m.p.garbage) {
    EXPECT_TRUE(sameEntries("garbageTable", engine.garbageTable, m.garbageTable));
  }
  EXPECT_TRUE(sameEntries("clipTable", engine.clipTable, m.clipTable));
}

void expectTables(const QMXOrvaniteTable& engine, const model::FloatModel& m) {
  const auto expectSame = [](const char* name, float value, float expected) {
    EXPECT_TRUE(same(value, expected)) << name << " is " << value << ", not " << expected;
  };
  expectSame("clipLow", engine.clipLow, m.clipLow);
  expectSame("clipScale", engine.clipScale, m.clipScale);
  expectSame("screenScale", engine.screenScale, m.screenScale);
  for (int c = 0; c < 3; ++c) {
    SCOPED_TRACE(c);
    expectSame("neutralScale", engine.neutralScale[c], m.neutralScale[c]);
    expectSame("screenLinear", engine.screenLinear[c], m.screenLinear[c]);
    expectSame("replaceLinear", engine.replaceLinear[c], m.replaceLinear[c]);
    expectSame("bgColourLinear", engine.bgColourLinear[c], m.bgColourLinear[c]);
    for (int set = 0; set < 2; ++set)
      for (int k = 0; k < 3; ++k)
        expectSame("satMatrix32", engine.satMatrix32[set][c][k], m.saturation[set][c][k]);
    ASSERT_NE(engine.floatTable[c], nullptr);
    for (std::size_t i = 0; i < 32768; ++i) {
      const auto bits = engine.floatTable[c][i].bits();
      const bool nan =
          std::isnan(model::fromHalf(bits)) && std::isnan(model::fromHalf(m.floatTable[c][i]));
      ASSERT_TRUE(nan || bits == m.floatTable[c][i])
          << "floatTable[" << i << "] is " << bits << ", the model says " << m.floatTable[c][i];
    }
  }
  for (int set = 0; set < 2; ++set) EXPECT_EQ(engine.gradeActive[set] != 0, m.gradeActive[set]);
}

int number(const model::Instance& i, bool first) {
  return first * 8 + i.hold * 4 + i.garbage * 2 + i.alpha;
}

/// Builds engine and model, compares their tables, then keys scenes with whatever a tile can lack.
/// Notes the instances that ran.
template <class T>
void sweepOne(Random& random, const Parameters& p, std::set<int>& instances) {
  SCOPED_TRACE(::testing::PrintToString(p));
  typename ModelOf<T>::Model reference(p);
  const Engine engine = makeEngine(p);
  ::testing::internal::CaptureStderr();
  const int result = orvanite_makeLuts(engine.get());
  const std::string message = ::testing::internal::GetCapturedStderr();
  ASSERT_EQ(result, reference.result);
  EXPECT_EQ(message.empty(), result != 2);
  if (result != 0) return;
  expectTables(*engine, reference);
  if (::testing::Test::HasFailure()) return;

  const bool linear = p.colourspace == 0;
  for (int view : views) {
    orvanite_setView(engine.get(), view);
    reference.p.view = view;
    ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
    for (int lacking = 0; lacking < 16; ++lacking) {
      model::Present present;
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
      const model::Instance instance = model::chosenInstance(reference.p, present);
      scene.dummyAlpha = !instance.alpha && random.oneIn(2);
      auto copy = scene;
      const bool first = sizeof(T) == 4 ? linear : instance.ref;
      instances.insert(number(instance, first));
      ASSERT_TRUE(keysLikeTheModel(scene, reference, instance, [&](Otile* tile) {
        return orvanite_render(engine.get(), ModelOf<T>::depth, scene.width, scene.height, tile);
      }));

      // The reference kernel of the same choices, and with the destination's alpha left alone.
      model::Instance direct = instance;
      direct.alpha = instance.alpha && !random.oneIn(3);
      const Kernel<T> kernel = referenceKernel<T>(direct, linear);
      ASSERT_TRUE(keysLikeTheModel(copy, reference, direct, [&](Otile* tile) {
        return kernel(engine.get(), copy.width, copy.height, tile);
      })) << "reference kernel";
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
  std::set<int> instances;
  for (int round = 0; round < rounds && !::testing::Test::HasFailure(); ++round) {
    Parameters p = randomParameters(random);
    drawMaxima<T>(random, p, round);
    p.ref = sizeof(T) < 4 && random.oneIn(3);
    sweepOne<T>(random, p, instances);
  }
  EXPECT_EQ(instances.size(), 16u) << "not every instance was drawn";
}

}  // namespace

TEST(Sweep, EightBitTablesAndPixelsEqualTheModels) { sweep<unsigned char>(200, 1); }
TEST(Sweep, SixteenBitTablesAndPixelsEqualTheModels) { sweep<unsigned short>(120, 2); }
TEST(Sweep, FloatTablesAndPixelsEqualTheModels) { sweep<float>(120, 3); }
