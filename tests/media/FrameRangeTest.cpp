// SPDX-License-Identifier: BSD-3-Clause
//
// Frames as people and farms write them.
#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "base/Error.h"
#include "media/FrameRange.h"

namespace orvanite::test {
namespace {

TEST(FrameRange, ReadsWhatPeopleAndFarmsWrite) {
  const std::pair<const char*, std::vector<int>> good[] = {{"5", {5}},
                                                           {"1001-1003", {1001, 1002, 1003}},
                                                           {"1-10x4", {1, 5, 9}},
                                                           {"1,5,9-11", {1, 5, 9, 10, 11}},
                                                           {"3-5,4-6", {3, 4, 5, 6}},
                                                           {"7-7", {7}},
                                                           {"10,1", {10, 1}},
                                                           {"0008-0010", {8, 9, 10}},
                                                           {"1-10:4", {1, 5, 9}},
                                                           {"5-1", {5, 4, 3, 2, 1}},
                                                           {"9-1x-4,2", {9, 5, 1, 2}},
                                                           {"9-2x4", {9, 5}},
                                                           {"1-7y3", {2, 3, 5, 6}},
                                                           {"-5", {-5}},
                                                           {"-2-1", {-2, -1, 0, 1}},
                                                           {"-1--5x2", {-1, -3, -5}}};
  for (const auto& [text, frames] : good) EXPECT_EQ(media::parseFrames(text, "x"), frames) << text;
  for (const char* text :
       {"", "a", "1-", "--5", "-", "1-5x--2", "1-5y1", "1-5x0", "1-5x", "1,,2", "1,", "1 2",
        "0-1000000", "99999999999", "1-5x-1", "5x-1", "1-5z2", "1.5"}) {
    EXPECT_THROW(media::parseFrames(text, "x"), Error) << text;
  }
  EXPECT_EQ(media::formatFrames({1, 2, 3, 5, 7, 8}), "1-3,5,7-8");
  EXPECT_EQ(media::formatFrames({-3, -2, 0, 1}), "-3--2,0-1");
}

}  // namespace
}  // namespace orvanite::test
