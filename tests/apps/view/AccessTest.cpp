// SPDX-License-Identifier: BSD-3-Clause
//
// The allowance of requests and the order of a page's own, with a clock that the test moves. Who is
// admitted at all is tested over HTTP.
#include "apps/view/Access.h"

#include <gtest/gtest.h>

#include <string>

namespace orvanite::view {
namespace {

using std::chrono::milliseconds;

TEST(RateLimit, AllowsABurstThenAsManyASecondAsItSays) {
  RateLimit rate(10, 3);
  RateLimit::Clock::time_point now{milliseconds(5000)};
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(rate.take(now)) << i;
  EXPECT_FALSE(rate.take(now));
  // A tenth of a second brings one: 10 a second.
  now += milliseconds(100);
  EXPECT_TRUE(rate.take(now));
  EXPECT_FALSE(rate.take(now));
  // However long nobody asks, no more than the burst is saved up.
  now += milliseconds(60000);
  int taken = 0;
  while (rate.take(now)) ++taken;
  EXPECT_EQ(taken, 3);
}

TEST(Newest, DropsWhatANewerRequestOfTheSameNameOvertook) {
  Newest newest;
  EXPECT_TRUE(newest.announce("a", 5));
  EXPECT_FALSE(newest.announce("a", 4));
  EXPECT_TRUE(newest.announce("b", 1));
  EXPECT_TRUE(newest.holds("a", 5));
  EXPECT_TRUE(newest.announce("a", 6));
  EXPECT_FALSE(newest.holds("a", 5));
  EXPECT_TRUE(newest.holds("b", 1));
}

TEST(Newest, ForgetsThePageHeardOfLongestAgoAndKeepsTheOthers) {
  Newest newest;
  EXPECT_TRUE(newest.announce("old", 9));
  EXPECT_TRUE(newest.announce("lasting", 9));
  // 62 more make 64, which is all that is remembered; hearing of "lasting" keeps it.
  for (int i = 0; i < 62; ++i) EXPECT_TRUE(newest.announce("page" + std::to_string(i), 1));
  EXPECT_TRUE(newest.announce("lasting", 10));
  EXPECT_TRUE(newest.announce("another", 1));
  EXPECT_TRUE(newest.announce("old", 1)) << "it starts anew";
  EXPECT_FALSE(newest.announce("lasting", 9));
}

}  // namespace
}  // namespace orvanite::view
