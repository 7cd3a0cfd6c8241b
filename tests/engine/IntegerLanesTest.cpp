// SPDX-License-Identifier: BSD-3-Clause
//
// Every quotient and every product that the integer kernels of a target can meet.
#include "tests/engine/LaneChecks.h"

#include <gtest/gtest.h>

#include <iterator>
#include <vector>

#include "engine/targets/Target.h"

namespace orvanite {

#define ORVANITE_TARGET(target)       \
  namespace target {                  \
  extern const LaneChecks laneChecks; \
  }
#include "targets.inc"
#undef ORVANITE_TARGET

namespace {

// In the order of knownTargets().
const LaneChecks* const laneChecks[] = {
#define ORVANITE_TARGET(target) &target::laneChecks,
#include "targets.inc"
#undef ORVANITE_TARGET
    nullptr};

/// Runs one check on every target that the machine has.
void expectSame(LaneDifference (*LaneChecks::*check)()) {
  const std::vector<Target>& targets = knownTargets();
  ASSERT_EQ(std::size(laneChecks), targets.size());
  for (std::size_t i = 0; i + 1 < targets.size(); ++i) {
    if (!targets[i].supported()) continue;
    const LaneDifference d = (laneChecks[i]->*check)();
    EXPECT_EQ(d.count, 0) << targets[i].name << ": the first at (" << d.a << ", " << d.b << ") is "
                          << d.got << ", not " << d.wanted;
  }
}

}  // namespace

}  // namespace orvanite

using orvanite::expectSame;
using orvanite::LaneChecks;

TEST(IntegerLanes, DivideByTheLargestColourExactly) { expectSame(&LaneChecks::raised); }
TEST(IntegerLanes, DivideByTheMatteExactly) { expectSame(&LaneChecks::unpremultiply); }
TEST(IntegerLanes, DivideByTheCleanPlateExactly) { expectSame(&LaneChecks::cleanPlate); }
TEST(IntegerLanes, RemoveAnyShareOfAnyScreen) { expectSame(&LaneChecks::removeScreen); }
TEST(IntegerLanes, MixOverBlackGreyAndWhite) { expectSame(&LaneChecks::mix); }
TEST(IntegerLanes, MultiplyKeyQuantities) { expectSame(&LaneChecks::keyProduct); }
TEST(IntegerLanes, MergeEveryAlphaOf8Bits) { expectSame(&LaneChecks::mergeAlpha8); }
TEST(IntegerLanes, MergeEveryAlphaOf16Bits) { expectSame(&LaneChecks::mergeAlpha16); }
TEST(IntegerLanes, ScaleEveryMatteAndStatus) { expectSame(&LaneChecks::mattes); }
TEST(IntegerLanes, ComputeEveryEntryOfLinearTables) { expectSame(&LaneChecks::lines); }
