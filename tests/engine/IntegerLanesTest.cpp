// SPDX-License-Identifier: BSD-3-Clause
//
// Every quotient and every product that the integer kernels of a target can meet.
#include "tests/engine/LaneChecks.h"

#include <gtest/gtest.h>

#include <string>

#include "engine/kernels/Target.h"

namespace orvanite {
#if defined(__x86_64__)
namespace sse4 {
extern const LaneChecks laneChecks;
}
namespace avx2 {
extern const LaneChecks laneChecks;
}
namespace avx512 {
extern const LaneChecks laneChecks;
}
#else
namespace native {
extern const LaneChecks laneChecks;
}
#endif
}  // namespace orvanite

namespace {

using namespace orvanite;

/// Runs one check on every target that the machine has.
void expectSame(LaneDifference (*LaneChecks::*check)()) {
  int ran = 0;
  for (const Target& target : knownTargets()) {
    const std::string name = target.name;
    const LaneChecks* checks = nullptr;
#if defined(__x86_64__)
    if (name == "sse4") checks = &sse4::laneChecks;
    if (name == "avx2") checks = &avx2::laneChecks;
    if (name == "avx512") checks = &avx512::laneChecks;
#else
    if (name == "native") checks = &native::laneChecks;
#endif
    if (checks == nullptr || !target.supported()) continue;
    ++ran;
    const LaneDifference d = (checks->*check)();
    EXPECT_EQ(d.count, 0) << name << ": the first at (" << d.a << ", " << d.b << ") is " << d.got
                          << ", not " << d.wanted;
  }
  EXPECT_GT(ran, 0);
}

}  // namespace

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
