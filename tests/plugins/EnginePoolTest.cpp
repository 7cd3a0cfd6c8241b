// SPDX-License-Identifier: BSD-3-Clause
//
// Engines are built when settings change and not otherwise, and never under a render's hands.
#include "plugins/EnginePool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace orvanite {
namespace {

Recipe recipeWith(double screenRange) {
  Recipe recipe;
  recipe.settings.setNumber("screenRange", screenRange);
  recipe.settings.setText("output", "matte");
  return recipe;
}

}  // namespace

TEST(EnginePool, BuildsOneEngineOnceForAsLongAsNothingChanges) {
  EnginePool pool;
  for (int i = 0; i < 5; ++i) EXPECT_EQ(pool.lease(recipeWith(0.1)).result(), 0);
  EXPECT_EQ(pool.builds(), 1);
  { const auto lease = pool.lease(recipeWith(0.2)); }
  EXPECT_EQ(pool.builds(), 2);
  EXPECT_EQ(pool.engines(), 1) << "an idle engine is rebuilt, not doubled";
}

TEST(EnginePool, LeavesALentEngineAloneAndDropsWhatIsTooMuch) {
  EnginePool pool;
  {
    const auto first = pool.lease(recipeWith(0.1));
    const auto second = pool.lease(recipeWith(0.2));
    const auto third = pool.lease(recipeWith(0.3));
    const auto again = pool.lease(recipeWith(0.1));
    EXPECT_EQ(first.engine(), again.engine());
    EXPECT_NE(first.engine(), second.engine());
    EXPECT_EQ(pool.engines(), 3);
    pool.purge();
    EXPECT_EQ(pool.engines(), 3) << "all are lent";
  }
  EXPECT_EQ(pool.engines(), 2);
  pool.purge();
  EXPECT_EQ(pool.engines(), 0);
}

// Under TSan this fails as soon as a build touches an engine that a render still reads.
TEST(EnginePool, LetsThreadsRenderWhileOthersChangeSettings) {
  EnginePool pool;
  std::atomic<int> wrong = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 60; ++i) {
        const auto lease = pool.lease(recipeWith(0.05 * ((i + t) % 3)));
        // A pure blue screen pixel and a white one: matte 0 and 255 at every range.
        unsigned char in[8] = {0, 0, 230, 9, 255, 255, 255, 9}, out[8] = {};
        Otile tile{};
        tile.fg = {in, in + 1, in + 2, in + 3, 4, 8};
        tile.dst = {out, out + 1, out + 2, out + 3, 4, 8};
        if (orvanite_render(lease.engine(), 1, 2, 1, &tile) != 0 || out[3] != 0 || out[7] != 255)
          ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace orvanite
