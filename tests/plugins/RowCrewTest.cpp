// SPDX-License-Identifier: BSD-3-Clause
//
// Every row once, on whatever threads, and what is thrown is thrown.
#include "plugins/RowCrew.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <set>
#include <stdexcept>
#include <vector>

namespace orvanite {

TEST(RowCrew, WorksOnEveryRowOnceInBandsOfTheLeastHeight) {
  const struct {
    int threads, height, least;
  } rows[] = {{1, 100, 7}, {2, 100, 7}, {5, 1000, 1},  {8, 16, 16}, {8, 31, 16},
              {3, 1, 1},   {3, 0, 4},   {4, 2160, 32}, {0, 9, 2},   {4, 7, 0x7fffffff}};
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.threads) + ", " + std::to_string(row.height));
    RowCrew crew(row.threads);
    const RowLoop loop = crew.rows();
    for (int round = 0; round < 50; ++round) {
      std::vector<std::atomic<int>> worked(static_cast<std::size_t>(row.height));
      std::atomic<int> low = 0;
      loop(row.height, row.least, [&](int first, int count) {
        // Only the last band of one thread may be lower.
        if (count < row.least && first + count != row.height) ++low;
        for (int y = first; y < first + count; ++y) ++worked[static_cast<std::size_t>(y)];
      });
      EXPECT_EQ(low, 0);
      EXPECT_TRUE(std::all_of(worked.begin(), worked.end(), [](int times) { return times == 1; }));
    }
  }
}

TEST(RowCrew, SpreadsWorkOverItsThreads) {
  RowCrew crew(4);
  std::mutex lock;
  std::condition_variable all;
  std::set<std::thread::id> seen;
  // Each band waits until four threads are at work: that never ends where they are fewer.
  crew.rows()(16, 1, [&](int, int) {
    std::unique_lock held(lock);
    seen.insert(std::this_thread::get_id());
    all.notify_all();
    all.wait(held, [&] { return seen.size() == 4; });
  });
  EXPECT_EQ(seen.size(), 4U);
}

TEST(RowCrew, KeepsLoopsWithinLoopsToTheirThreadAndThrowsWhatWorkThrows) {
  RowCrew crew(3);
  const RowLoop loop = crew.rows();
  std::atomic<int> worked = 0, elsewhere = 0;
  loop(12, 1, [&](int, int count) {
    const auto own = std::this_thread::get_id();
    loop(count * 10, 1, [&](int, int inner) {
      worked += inner;
      elsewhere += std::this_thread::get_id() == own ? 0 : 1;
    });
  });
  EXPECT_EQ(worked, 120);
  EXPECT_EQ(elsewhere, 0);
  EXPECT_THROW(loop(12, 1,
                    [](int first, int) {
                      if (first == 5) throw std::runtime_error("five");
                    }),
               std::runtime_error);
  worked = 0;
  loop(12, 1, [&](int, int count) { worked += count; });
  EXPECT_EQ(worked, 12) << "after a throw";
}

}  // namespace orvanite
