// SPDX-License-Identifier: BSD-3-Clause
//
// Whatever happened to an engine before, what it renders follows from its parameters alone:
// tables are rebuilt when, and not unless, they are out of date.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
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

struct Change {
  const char* name;
  void (*make)(Random&, Parameters& to, const Parameters& from);
};

template <std::size_t n>
void take(float (&to)[n], const float (&from)[n]) {
  std::copy_n(from, n, to);
}

using P = Parameters;
const Change changes[] = {
    {"screen", [](Random&, P& to, const P& from) { take(to.screen, from.screen); }},
    {"neutral", [](Random&, P& to, const P& from) { take(to.neutral, from.neutral); }},
    {"replace", [](Random&, P& to, const P& from) { take(to.replace, from.replace); }},
    {"background", [](Random&, P& to, const P& from) { take(to.background, from.background); }},
    {"mp", [](Random&, P& to, const P& from) { take(to.mp, from.mp); }},
    {"balance", [](Random&, P& to, const P& from) { take(to.balance, from.balance); }},
    {"gain", [](Random&, P& to, const P& from) { take(to.gain, from.gain); }},
    {"grade 0", [](Random&, P& to, const P& from) { take(to.exposure[0], from.exposure[0]); }},
    {"grade 1", [](Random&, P& to, const P& from) { take(to.gamma[1], from.gamma[1]); }},
    {"saturation", [](Random&, P& to, const P& from) { take(to.saturation, from.saturation); }},
    {"space", [](Random&, P& to, const P& from) { to.colourspace = from.colourspace; }},
    {"range", [](Random&, P& to, const P& from) { to.screenRange = from.screenRange; }},
    {"hold", [](Random&, P& to, const P&) { to.hold = !to.hold; }},
    {"garbage", [](Random&, P& to, const P&) { to.garbage = !to.garbage; }},
    {"ref", [](Random&, P& to, const P&) { to.ref = !to.ref; }},
    {"fgMax",
     [](Random& random, P& to, const P&) {
       to.fgMax = random.pick({255, 1, 100});
     }},
    {"bgMax",
     [](Random& random, P& to, const P&) {
       to.bgMax = random.pick({255, 255, 100});
     }},
    {"no screen",
     [](Random& random, P& to, const P&) {
       std::fill_n(to.screen, 3, random.pick({0.0f, 0.5f}));
     }},
    {"dstMax",
     [](Random& random, P& to, const P&) {
       to.dstMax = random.pick({255, 1, 200});
     }},
};

/// Changes one thing; the destination's maximum, which discards nothing, most often.
std::string changeSomething(Random& random, QMXOrvaniteTable* e) {
  constexpr int last = static_cast<int>(std::size(changes)) - 1;
  const Change& change = changes[std::min(random.between(0, last + 3), last)];
  Parameters p = stored(*e);
  change.make(random, p, randomParameters(random));
  apply(p, e);
  return change.name;
}

template <class T>
::testing::AssertionResult rendersLikeItsParameters(Random& random, const Engine& engine) {
  return rendersLikeTheDefinition<T>(random, engine, stored(*engine));
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

TEST(Rebuild, TakesEveryUnknownEncodingForLinear) {
  // A new engine's own marks of what it has not decoded yet must be none that a client can send.
  Random random(43);
  for (const int code :
       {-1, 3, 255, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
    for (const int max : {1, 255}) {
      Parameters p;
      p.colourspace = code;
      p.setAllMaxima(max);
      const Engine engine = makeEngine(p);
      ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
      p.colourspace = 0;
      EXPECT_TRUE(max == 1 ? rendersLikeTheDefinition<float>(random, engine, p)
                           : rendersLikeTheDefinition<unsigned char>(random, engine, p))
          << code;
    }
  }
}

TEST(Rebuild, FollowsACallbackThatBuildsWhileTablesAreDiscarded) {
  Random random(44);
  Parameters p;
  const Engine engine = makeEngine(p);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  orvanite_installCallback(
      engine.get(), [](void* e) { orvanite_makeLuts(static_cast<QMXOrvaniteTable*>(e)); },
      engine.get());
  p.setAllMaxima(100);
  apply(p, engine.get());  // the last setter discards what the callback of the one before built
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  EXPECT_TRUE(rendersLikeTheDefinition<unsigned char>(random, engine, p));
}
