// SPDX-License-Identifier: BSD-3-Clause
//
// Whatever happened to an engine before, what it renders follows from its parameters alone:
// tables are rebuilt when, and not unless, they are out of date.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "engine/QMXOrvaniteTable.h"
#include "tests/engine/Scene.h"

namespace {

/// The engine's parameters as they stand.
Parameters stored(const QMXOrvaniteTable& e) {
  Parameters p;
  p.colourspace = e.colourspace;
  p.view = e.view;
  std::copy_n(e.screen, 3, p.screen);
  std::copy_n(e.neutral, 3, p.neutral);
  std::copy_n(e.replace, 3, p.replace);
  std::copy_n(e.background, 3, p.background);
  std::copy_n(e.mp, 3, p.mp);
  std::copy_n(e.balance, 3, p.balance);
  std::copy_n(e.gain, 3, p.gain);
  p.screenRange = e.screenRange;
  std::copy_n(&e.exposure[0][0], 6, &p.exposure[0][0]);
  std::copy_n(&e.gamma[0][0], 6, &p.gamma[0][0]);
  std::copy_n(&e.offset[0][0], 6, &p.offset[0][0]);
  std::copy_n(e.saturation, 2, p.saturation);
  p.fgMax = e.fgMax;
  p.bgMax = e.bgMax;
  p.refMax = e.refMax;
  p.dstMax = e.dstMax;
  p.gMatteMax = e.gMatteMax;
  p.hMatteMax = e.hMatteMax;
  p.hold = e.holdEnabled != 0;
  p.garbage = e.garbageEnabled != 0;
  p.ref = e.refEnabled != 0;
  return p;
}

bool asksForFloats(const Parameters& p) {
  return std::min({p.fgMax, p.bgMax, p.refMax, p.dstMax, p.gMatteMax, p.hMatteMax}) == 1;
}

/// Changes one thing; the destination's maximum, which discards nothing, most often.
std::string changeSomething(Random& random, QMXOrvaniteTable* e) {
  const Parameters other = randomParameters(random);
  Parameters p = stored(*e);
  const auto take = [](float(&to)[3], const float(&from)[3]) { std::copy_n(from, 3, to); };
  std::string what;
  const auto choose = [&](const char* name) { what = name; };
  switch (random.between(0, 21)) {
    case 0:
      choose("screen"), take(p.screen, other.screen);
      break;
    case 1:
      choose("neutral"), take(p.neutral, other.neutral);
      break;
    case 2:
      choose("replace"), take(p.replace, other.replace);
      break;
    case 3:
      choose("mp"), take(p.mp, other.mp);
      break;
    case 4:
      choose("balance"), take(p.balance, other.balance);
      break;
    case 5:
      choose("gain"), take(p.gain, other.gain);
      break;
    case 6:
      choose("grade 0"), take(p.exposure[0], other.exposure[0]);
      break;
    case 7:
      choose("grade 1"), take(p.gamma[1], other.gamma[1]);
      break;
    case 8:
      choose("saturation"), p.saturation[1] = other.saturation[1];
      break;
    case 9:
      choose("space"), p.colourspace = other.colourspace;
      break;
    case 10:
      choose("range"), p.screenRange = other.screenRange;
      break;
    case 11:
      choose("hold"), p.hold = !p.hold;
      break;
    case 12:
      choose("garbage"), p.garbage = !p.garbage;
      break;
    case 13:
      choose("ref"), p.ref = !p.ref;
      break;
    case 14:
      choose("fgMax"), p.fgMax = random.pick({255, 1, 100});
      break;
    case 15:
      choose("bgMax"), p.bgMax = random.pick({255, 255, 100});
      break;
    case 16:
      choose("no screen"), std::fill_n(p.screen, 3, random.pick({0.0f, 0.5f}));
      break;
    case 17:
      choose("background"), take(p.background, other.background);
      break;
    default:
      choose("dstMax"), p.dstMax = random.pick({255, 1, 200});
      break;
  }
  apply(p, e);
  return what;
}

template <class T>
::testing::AssertionResult rendersLikeItsParameters(Random& random, const Engine& engine) {
  typename ModelOf<T>::Model reference(stored(*engine));
  model::Present present;
  present.ref = reference.p.ref;
  Scene<T> scene(random, 24, 2, present, Placement::own);
  fillInputs(random, scene, reference.p);
  return keysLikeTheModel(
      scene, reference, model::chosenInstance(reference.p, present), [&](Otile* tile) {
        return orvanite_render(engine.get(), ModelOf<T>::depth, scene.width, scene.height, tile);
      });
}

}  // namespace

TEST(Rebuild, GivesWhatTheParametersSayWhateverWasBuiltBefore) {
  Random random(41);
  int built[2] = {}, failed = 0;
  for (int history = 0; history < 90; ++history) {
    Parameters p = randomParameters(random);
    const Engine engine = makeEngine(p);
    std::string story;
    for (int step = 0; step < 25; ++step) {
      story += changeSomething(random, engine.get()) + ", ";
      if (random.oneIn(3)) continue;
      ::testing::internal::CaptureStderr();
      const int result = orvanite_makeLuts(engine.get());
      ::testing::internal::GetCapturedStderr();
      story += "build " + std::to_string(result) + ", ";
      const bool floats = asksForFloats(stored(*engine));
      if (result != 0) {
        ++failed;
        continue;
      }
      ++built[floats];
      ASSERT_TRUE(floats ? rendersLikeItsParameters<float>(random, engine)
                         : rendersLikeItsParameters<unsigned char>(random, engine))
          << story;
    }
  }
  EXPECT_GT(built[0], 200);
  EXPECT_GT(built[1], 150);
  EXPECT_GT(failed, 50);
}

TEST(Rebuild, FillsTheOtherKindsTablesWhenOnlyTheDestinationChanged) {
  Random random(42);
  Parameters p;
  p.screen[1] = 0.3f;
  const Engine engine = makeEngine(p);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  orvanite_setDstMax(engine.get(), 1);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  EXPECT_TRUE(rendersLikeItsParameters<float>(random, engine)) << "new float tables";
  orvanite_setScreen(engine.get(), 0.1f, 0.9f, 0.2f);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  orvanite_setDstMax(engine.get(), 255);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  EXPECT_TRUE(rendersLikeItsParameters<unsigned char>(random, engine)) << "stale integer tables";
  orvanite_setGain(engine.get(), 1, 0.2f);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  orvanite_setDstMax(engine.get(), 1);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  EXPECT_TRUE(rendersLikeItsParameters<float>(random, engine)) << "stale float tables";
}

TEST(Rebuild, LeavesTablesAloneWhoseParametersDidNotChange) {
  // A mark in a table shows whether it was written again.
  Parameters p;
  const Engine engine = makeEngine(p);
  QMXOrvaniteTable& e = *engine;
  ASSERT_EQ(orvanite_makeLuts(&e), 0);
  const auto mark = [&e] {
    e.keyTable[0][3] = e.fgLinear[0][3] = e.bgTable[0][3] = 12345;
    e.screenTable[3] = e.holdTable[3] = e.garbageTable[3] = 12345;
    e.fgGradeTable[0][3] = e.outputTable[0][3] = 12345;
  };
  const auto rewritten = [&e] {
    std::string names;
    const std::pair<const char*, int> tables[] = {
        {"key", e.keyTable[0][3]},         {"fgLinear", e.fgLinear[0][3]},
        {"bg", e.bgTable[0][3]},           {"screen", e.screenTable[3]},
        {"hold", e.holdTable[3]},          {"garbage", e.garbageTable[3]},
        {"fgGrade", e.fgGradeTable[0][3]}, {"output", e.outputTable[0][3]}};
    for (const auto& [name, entry] : tables)
      if (entry != 12345) names += std::string(names.empty() ? "" : " ") + name;
    return names;
  };
  const auto after = [&](void (*change)(QMXOrvaniteTable*)) {
    mark();
    change(&e);
    EXPECT_EQ(orvanite_makeLuts(&e), 0);
    return rewritten();
  };
  using Table = QMXOrvaniteTable;
  EXPECT_EQ(after([](Table*) {}), "");
  EXPECT_EQ(after([](Table* t) { orvanite_setGain(t, 0, 0.1f); }), "key");
  EXPECT_EQ(after([](Table* t) { orvanite_setScreen(t, 0, 0.1f, 1); }), "key screen");
  EXPECT_EQ(after([](Table* t) { orvanite_setReplace(t, 0, 0.1f, 1); }), "");
  EXPECT_EQ(after([](Table* t) { orvanite_setOffset(t, 0, 0.1f, 0, 0); }), "fgGrade");
  EXPECT_EQ(after([](Table* t) { orvanite_setOffset(t, 0, 0.1f, 0, 1); }), "bg");
  EXPECT_EQ(after([](Table* t) { orvanite_setDstMax(t, 200); }), "output");
  EXPECT_EQ(after([](Table* t) { orvanite_setColourspace(t, 0); }),
            "key fgLinear bg screen fgGrade output");
  EXPECT_EQ(after([](Table* t) { orvanite_setHMatteMax(t, 200); }),
            "key fgLinear bg screen hold garbage output");
}
