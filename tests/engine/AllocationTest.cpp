// SPDX-License-Identifier: BSD-3-Clause
//
// Memory that runs out, at every allocation in turn.
#include <gtest/gtest.h>

#include <limits>

#include "engine/QMXOrvaniteTable.h"
#include "tests/engine/FailingNew.h"
#include "tests/engine/Scene.h"

namespace {

/// Runs `action` with its k-th allocation failing, and the ones after it as well.
template <class Action>
auto starved(int k, Action action) {
  failingNew::refusals = 0;
  failingNew::allocationsLeft = k;
  const auto result = action();
  failingNew::allocationsLeft = failingNew::unlimited;
  return result;
}

template <class T>
::testing::AssertionResult rendersLikeTheDefinition(const Engine& engine, const Parameters& p) {
  Random random(51);
  return rendersLikeTheDefinition<T>(random, engine, p);
}

bool holdsNoHeapTable(const QMXOrvaniteTable& e) {
  bool none = e.holdTable == nullptr && e.garbageTable == nullptr;
  for (int c = 0; c < 3; ++c)
    none = none && e.fgLinear[c] == nullptr && e.bgTable[c] == nullptr &&
           e.keyTable[c] == nullptr && e.refTable[c] == nullptr && e.refKeyTable[c] == nullptr &&
           e.floatTable[c] == nullptr;
  return none;
}

/// Fails every allocation of a first build and of a rebuild in turn. `tables` is how many of the
/// allocations are tables; the curve buffer that may follow is none. `spare` allocations after
/// those only save time: a build does without them.
template <class T>
void failEach(Parameters p, int tables, int all, int spare = 0) {
  SCOPED_TRACE(::testing::Message() << "depth " << depthCode<T> << " ref " << p.ref);
  for (int k = 0; k <= all + spare; ++k) {
    SCOPED_TRACE(k);
    const Engine engine = makeEngine(p);
    int calls = 0;
    orvanite_installCallback(
        engine.get(), [](void* count) { ++*static_cast<int*>(count); }, &calls);
    const int result = starved(k, [&] { return orvanite_makeLuts(engine.get()); });
    ASSERT_EQ(result, k < all ? 3 : 0);
    EXPECT_EQ(failingNew::refusals > 0, k < all + spare)
        << "the build allocates " << all + spare << " times";
    EXPECT_EQ(engine->tablesDirty != 0, k < all);
    EXPECT_EQ(holdsNoHeapTable(*engine), k < tables) << "tables go when one of them is missing";
    EXPECT_EQ(calls, k < tables ? 1 : 0);
    if (result != 0) {
      Otile tile = {};
      EXPECT_EQ(orvanite_render(engine.get(), depthCode<T>, 1, 1, &tile), 0);
    }
    ASSERT_EQ(orvanite_makeLuts(engine.get()), 0) << "with memory again";
    EXPECT_TRUE(rendersLikeTheDefinition<T>(engine, p));
    orvanite_installCallback(engine.get(), nullptr, nullptr);
  }
}

}  // namespace

TEST(Memory, ThatRunsOutInANewEngineGivesNone) {
  EXPECT_EQ(starved(0, [] { return orvanite_new(); }), nullptr);
  EXPECT_EQ(failingNew::refusals, 1);
  Engine engine(starved(1, [] { return orvanite_new(); }));
  EXPECT_NE(engine, nullptr) << "one allocation is all that it needs";
}

TEST(Memory, ThatRunsOutInABuildLeavesTheEngineUsable) {
  Parameters p;
  p.screen[1] = 0.3f;
  failEach<unsigned char>(p, 11, 12, 2);  // 3 x (foreground, background, key), 2 mattes; curve
  p.hold = p.garbage = false;
  failEach<unsigned char>(p, 9, 10, 2);
  p.ref = true;
  failEach<unsigned short>(p, 15, 16, 2);  // and 3 x (clean plate, its key)
  p.setAllMaxima(65535);
  // Packed tables of plate and clean plate, two each: the weaker channels share a balance, hence a
  // table. The background's codes: one for all channels.
  failEach<unsigned short>(p, 15, 16, 2 + 2 + 2 + 1);
  p = {};
  p.setAllMaxima(1);
  failEach<float>(p, 3, 3, 1);  // and what is kept by half pattern
}

TEST(Memory, ThatRunsOutForTheCurveAloneChangesNoFlagAndNoTable) {
  Parameters p;
  const Engine engine = makeEngine(p);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  orvanite_setGain(engine.get(), 1, 0.2f);
  p.gain[1] = 0.2f;
  EXPECT_EQ(starved(0, [&] { return orvanite_makeLuts(engine.get()); }), 3);
  EXPECT_NE(engine->matteDirty, 0);
  EXPECT_NE(engine->keyTable[0], nullptr);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  EXPECT_TRUE(rendersLikeTheDefinition<unsigned char>(engine, p));
}

TEST(Memory, ThatRunsOutBetweenFloatBuildsLeavesNoStaleFloatTable) {
  // The integer build clamps the midpoint before it fails, and raises no flag for it.
  Parameters p;
  p.setAllMaxima(255);
  p.dstMax = 1;
  p.colourspace = 0;
  p.gain[1] = 0.3f;
  for (float& mp : p.mp) mp = 1.5f;
  const Engine engine = makeEngine(p);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  orvanite_setDstMax(engine.get(), 255);
  // Of its 12 allocations the tables succeed and the curve does not.
  EXPECT_EQ(starved(11, [&] { return orvanite_makeLuts(engine.get()); }), 3);
  ASSERT_EQ(engine->mp[0], 1.0f);
  orvanite_setDstMax(engine.get(), 1);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  for (float& mp : p.mp) mp = 1;
  EXPECT_TRUE(rendersLikeTheDefinition<float>(engine, p));
}

TEST(Memory, IsNotAskedForWhereAMaximumIsPastTheCodesThatAFloatHoldsExactly) {
  for (auto* setMax : {orvanite_setFgMax, orvanite_setBgMax, orvanite_setRefMax,
                       orvanite_setGMatteMax, orvanite_setHMatteMax}) {
    for (const int max : {(1 << 24) + 1, std::numeric_limits<int>::max()}) {
      Parameters p;
      p.ref = true;
      const Engine engine = makeEngine(p);
      setMax(engine.get(), max);
      failingNew::refusals = 0;
      EXPECT_EQ(orvanite_makeLuts(engine.get()), 3) << max;
      EXPECT_EQ(failingNew::refusals, 0) << max;
      setMax(engine.get(), 255);
      ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
      EXPECT_TRUE(rendersLikeTheDefinition<unsigned char>(engine, p));
    }
  }
}
