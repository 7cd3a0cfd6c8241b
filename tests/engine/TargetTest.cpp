// SPDX-License-Identifier: BSD-3-Clause
//
// Choosing the machine that the kernels are for. The ForcedTarget case reads ORVANITE_TARGET:
// ctest runs it once for each name.
#include "engine/targets/Target.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using orvanite::chooseTarget;
using orvanite::knownTargets;
using orvanite::Target;

const Target* named(const std::string& name) {
  const std::vector<Target>& all = knownTargets();
  const auto at =
      std::find_if(all.begin(), all.end(), [&](const Target& t) { return t.name == name; });
  return at == all.end() ? nullptr : &*at;
}

TEST(Target, TheBestOfTheProcessIsTakenUnlessOneIsNamed) {
  const std::vector<Target>& all = knownTargets();
  const auto best =
      std::find_if(all.begin(), all.end(), [](const Target& t) { return t.supported(); });
  ASSERT_NE(best, all.end());
  for (const char* const unset : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_EQ(chooseTarget(unset).target, &*best);
    EXPECT_EQ(chooseTarget(unset).problem, "");
  }
  for (const Target& target : all) {
    const orvanite::TargetChoice choice = chooseTarget(target.name);
    EXPECT_EQ(choice.target, target.supported() ? &target : nullptr) << target.name;
    EXPECT_EQ(choice.problem.empty(), target.supported()) << target.name;
  }
}

TEST(Target, AnUnknownNameIsAProblemThatListsTheKnownOnes) {
  const orvanite::TargetChoice choice = chooseTarget("AVX2");  // names are lower case
  EXPECT_EQ(choice.target, nullptr);
  EXPECT_EQ(choice.problem.rfind("ORVANITE_TARGET=AVX2: no such target: expected one of ", 0), 0U)
      << choice.problem;
  for (const Target& target : knownTargets()) {
    EXPECT_NE(choice.problem.find(target.name), std::string::npos) << choice.problem;
  }
}

TEST(Target, HasAllOfItsPartsAndTheDefinitionNone) {
  for (const Target& target : knownTargets()) {
    const bool definition = &target == &knownTargets().back();
    EXPECT_EQ(std::strcmp(target.name, "definition") == 0, definition);
    EXPECT_EQ(target.encodings == nullptr, definition);
    EXPECT_EQ(target.floats == nullptr, definition);
    EXPECT_EQ(target.integers == nullptr, definition);
  }
}

TEST(Target, IsNamedInTheHeader) {
  std::ifstream file(ORVANITE_HEADER);
  const std::string header{std::istreambuf_iterator<char>(file), {}};
  const std::size_t start = header.find("ORVANITE_TARGET"), end = header.find("*/", start);
  ASSERT_NE(start, std::string::npos);
  for (const Target& target : knownTargets()) {
    EXPECT_LT(header.find(target.name, start), end) << target.name;
  }
}

// One float pixel, half screen, over black.
int keyOnePixel(float (&pixel)[4]) {
  QMXOrvaniteTable* const engine = orvanite_new();
  orvanite_useRef(engine, 0);
  orvanite_setColourspace(engine, 0);
  orvanite_setView(engine, 4);
  for (auto* const set : {orvanite_setFgMax, orvanite_setBgMax, orvanite_setDstMax}) set(engine, 1);
  EXPECT_EQ(orvanite_makeLuts(engine), 0);
  const OtileImage image = {pixel, pixel + 1, pixel + 2, pixel + 3, 4, 4};
  Otile tile = {image, {}, image, {}, {}, {}};
  const int result = orvanite_render(engine, 4, 1, 1, &tile);
  orvanite_delete(engine);
  return result;
}

TEST(ForcedTarget, IsTheOneThatRuns) {
  const char* const wanted = std::getenv("ORVANITE_TARGET");
  const Target* const target = wanted != nullptr ? named(wanted) : chooseTarget(nullptr).target;
  const bool usable = target != nullptr && target->supported();
  EXPECT_EQ(orvanite::activeTarget(), usable ? target : nullptr);
  EXPECT_EQ(orvanite::targetProblem().empty(), usable) << orvanite::targetProblem();

  // Screen 0, 0, 1 with even balances: the screen amount of 0, 0, 0.5 is 0.5.
  float pixel[4] = {0, 0, 0.5f, 9};
  EXPECT_EQ(keyOnePixel(pixel), usable ? 0 : 1);
  EXPECT_EQ(pixel[3], usable ? 0.5f : 9.0f);
  const bool own = usable && target->floats != nullptr;
  EXPECT_EQ(orvanite::tilesKeyedByTarget(), own ? 1U : 0U);
}

}  // namespace
