// SPDX-License-Identifier: BSD-3-Clause
//
// Parameters that move, by options, presets and saved scripts: each frame has the bytes of a still
// keyed with the values of that frame, whatever was rendered before it.
#include <gtest/gtest.h>

#include "tests/apps/Images.h"
#include "tests/apps/Program.h"

namespace orvanite::test {
namespace {

using Lines = std::vector<std::string>;

Outcome key(Lines arguments, const Lines& more) {
  arguments.insert(arguments.end(), more.begin(), more.end());
  return orvanite(arguments);
}

// Takes the five frames away, and returns their bytes.
Lines taken(const Folder& folder) {
  Lines all;
  for (int frame = 1; frame <= 5; ++frame) {
    const std::string file = folder / frameFile("k", frame);
    all.push_back(contents(file));
    EXPECT_FALSE(all.back().empty()) << frame;
    std::filesystem::remove(file);
  }
  return all;
}

TEST(Curves, AFrameIsKeyedWithItsOwnValuesByOptionsPresetsAndScripts) {
  struct Case {
    const char* name;
    Lines moving;
    Lines stills[5];
  };
  const Case cases[] = {
      // 0 until frame 2, half of the way at 3.
      {"straight",
       {"--screen", "0.1,0.2,0.8", "--screen-range", "linear(time, 2@0, 4@0.2)"},
       {{"--screen", "0.1,0.2,0.8", "--screen-range", "0"},
        {"--screen", "0.1,0.2,0.8", "--screen-range", "0"},
        {"--screen", "0.1,0.2,0.8", "--screen-range", "0.1"},
        {"--screen", "0.1,0.2,0.8", "--screen-range", "0.2"},
        {"--screen", "0.1,0.2,0.8", "--screen-range", "0.2"}}},
      // Level at all three keys, which makes half of the rise at half of the way; a screen that
      // turns from blue to green takes its balances along.
      {"smooth",
       {"--screen", "0.1,linear(t, 2@0.2, 4@0.8),linear(t, 2@0.8, 4@0.2)", "--exposure",
        "smooth(time, 1@1, 3@1.2, 5@1),1,1"},
       {{"--screen", "0.1,0.2,0.8", "--exposure", "1,1,1"},
        {"--screen", "0.1,0.2,0.8", "--exposure", "1.1,1,1"},
        {"--screen", "0.1,0.5,0.5", "--exposure", "1.2,1,1"},
        {"--screen", "0.1,0.8,0.2", "--exposure", "1.1,1,1"},
        {"--screen", "0.1,0.8,0.2", "--exposure", "1,1,1"}}},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    const Folder folder;
    writeShot(folder, "p", 1, 5);
    const Lines base{"key", "-q", "--output", "compOnReplace"};
    Lines expected;
    for (int frame = 1; frame <= 5; ++frame) {
      Lines still = base;
      still.insert(still.end(), {folder / frameFile("p", frame), "-o", folder / "e.png"});
      ASSERT_EQ(key(still, one.stills[frame - 1]).code, 0);
      expected.push_back(contents(folder / "e.png"));
    }
    EXPECT_NE(expected[1], expected[3]);
    Lines shot = base;
    shot.insert(shot.end(), {folder / "p.####.png", "-o", folder / "k.####.png"});
    Lines moving = one.moving;
    moving.insert(moving.end(), {"--save-preset", folder / "moves.json", "--save-script",
                                 folder / "moves.orv", "--threads", "3"});
    const Outcome keyed = key(shot, moving);
    ASSERT_EQ(keyed.code, 0) << keyed.err;
    EXPECT_EQ(taken(folder), expected) << "by options";

    for (const char* const frames : {"4,1", "5,3", "2"}) {
      Lines some = shot;
      some.insert(some.end(), {"--frames", frames, "--preset", folder / "moves.json",
                               "--save-preset", folder / "again.json", "--threads", "1"});
      ASSERT_EQ(orvanite(some).code, 0);
    }
    EXPECT_EQ(taken(folder), expected) << "by a preset, in parts";
    EXPECT_EQ(contents(folder / "again.json"), contents(folder / "moves.json"));

#ifdef ORVANITE_WITH_NODE
    for (const char* const frames : {"3,5,1", "2,4"}) {
      ASSERT_EQ(orvanite({"run", "-q", folder / "moves.orv", "--frames", frames}).code, 0);
    }
    EXPECT_EQ(taken(folder), expected) << "by a script, in parts";
#endif
  }
}

TEST(Curves, WhatIsNoCurveIsRefused) {
  const Folder folder;
  writeShot(folder, "p", 1, 2);
  const std::pair<Lines, const char*> cases[] = {
      {{"--screen-range", "linear(time, 5@0, 2@1)"},
       "--screen-range: expected keys whose frames ascend, found 'linear(time, 5@0, 2@1)'"},
      {{"--screen-range", "linear(time)"},
       "--screen-range: expected keys such as linear(time, 1@0.02, 24@0.08), found"},
      {{"--screen-range", "linear(time, 1@0, 2@1.5)"},
       "--screen-range: expected a number from 0 to 1, found '1.5'"},
      {{"--output", "linear(time, 1@0)"}, "--output: expected composite"},
      {{"--screen", "0.1,linear(time, 1@0.2),0.8,0.9"}, "--screen: expected one number or R,G,B"}};
  for (const auto& [options, message] : cases) {
    Lines shot{"key", "-q", folder / "p.####.png", "-o", folder / "k.####.png"};
    const Outcome outcome = key(shot, options);
    EXPECT_EQ(outcome.code, 2);
    EXPECT_NE(outcome.err.find(message), std::string::npos) << outcome.err;
  }
}

}  // namespace
}  // namespace orvanite::test
