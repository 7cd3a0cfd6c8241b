// SPDX-License-Identifier: BSD-3-Clause
//
// `orvanite run`: a frame that its node did not key, or keyed from another text than it was given,
// is no frame: it is named with the node and the reason, and nothing is written.
#include <gtest/gtest.h>

#include <fstream>

#include "tests/apps/Images.h"
#include "tests/apps/Program.h"

namespace orvanite::test {
namespace {

using Lines = std::vector<std::string>;

TEST(RunProblems, AFrameThatWasNotKeyedIsNamedAndNotWritten) {
  const Folder folder;
  write(randomImage(8, 8, 3, OIIO::TypeDesc::UINT8, 1), folder / "p.png");
  write(randomImage(8, 8, 4, OIIO::TypeDesc::UINT8, 2), folder / "m.png");
  write(randomImage(8, 8, 3, OIIO::TypeDesc::HALF, 3), folder / "f.exr");
  struct Case {
    const char* call;
    const char* message;  // empty: it is rendered
  };
  const Case cases[] = {
      {"Orvanite(p, bScreen = 0)",
       "'k' cannot key with its screen colour: expected one with a channel above the others"},
      {"Orvanite(p, rScreen = 0.5, gScreen = 0.5, bScreen = 0.5)", "'k' cannot key with its"},
      // Codes are keyed with the least bias that there is; float is not.
      {"Orvanite(FileIn(\"f.exr\"), rFgBias = 0)", "'k' cannot key: expected a foreground bias"},
      {"Orvanite(p, output = \"matte\")",
       "'k' has the output \"matte\": expected one of \"composite\", \"compOnBlack\""},
      {"Orvanite(p, cspace = \"sRGB\")",
       "'k' has the colourspace \"sRGB\": expected one of \"linear\", \"log\", \"video\""},
      {"Orvanite(p, 0, m, holdOutChannel = \"X\")",
       "'k' has the holdOutChannel \"X\": expected R, G, B or A"},
      {"Orvanite(p, 0, 0, m, garbageChannel = \"\")", "'k' has the garbageChannel \"\": expected"},
      {"Orvanite(p, 0, p)",
       "'k' takes its holdOutChannel A from a picture without it: expected one of R, G, B"},
      {"Orvanite(p, 0, 0, p)", "'k' takes its garbageChannel A from a picture without it"},
      // Three channels are enough for what needs no more, and a matte that is off for anything.
      {"Orvanite(p, p, p, p, holdOutChannel = \"blue\", garbageChannel = \"g\")", ""},
      {"Orvanite(p, 0, p, useHoldOutMatte = 0)", ""},
      {"Orvanite(p, p, m, m, output = \"status\")", ""},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.call);
    std::ofstream(folder / "s.orv")
        << "p = FileIn(\"p.png\"); m = FileIn(\"m.png\");\nk = " << one.call
        << ";\nFileOut(k, \"o.png\");\n";
    const Outcome outcome = orvanite({"run", "-q", folder / "s.orv"});
    if (!*one.message) {
      EXPECT_EQ(outcome.code, 0) << outcome.err;
      EXPECT_TRUE(std::filesystem::remove(folder / "o.png"));
      continue;
    }
    EXPECT_EQ(outcome.code, 4);
    EXPECT_NE(outcome.err.find(std::string("orvanite: frame 1: ") + one.message), std::string::npos)
        << outcome.err;
    EXPECT_FALSE(std::filesystem::exists(folder / "o.png"));
  }
}

// The node keeps an encoding that it does not know as it was before: no frame may tell.
TEST(RunProblems, NoFrameDependsOnThoseBeforeIt) {
  const Folder folder;
  write(randomImage(8, 8, 3, OIIO::TypeDesc::UINT8, 1), folder / "p.png");
  std::ofstream(folder / "s.orv")
      << "k = Orvanite(FileIn(\"p.png\"), output = time == 3 ? \"compOnReplace\" : \"compOnBlack\","
         " rSpillReplace = time / 10,\n  bScreen = time == 4 ? 0 : 0.9, cspace = time == 1 ? "
         "\"log\" : "
         "time == 2 ? \"none\" : \"video\");\nFileOut(k, \"o.#.png\");\n";
  std::vector<Lines> all;
  for (const char* const frames : {"1-5", "5,4,3,2,1", "4,5,2,1,3"}) {
    const Outcome outcome = orvanite({"run", "-q", folder / "s.orv", "--frames", frames});
    EXPECT_EQ(outcome.code, 4);
    EXPECT_NE(outcome.err.find("frame 2: 'k' has the colourspace \"none\""), std::string::npos);
    EXPECT_NE(outcome.err.find("frame 4: 'k' cannot key"), std::string::npos) << outcome.err;
    EXPECT_EQ(folder.names(), (Lines{"o.1.png", "o.3.png", "o.5.png", "p.png", "s.orv"}));
    Lines files;
    for (const char* const name : {"o.1.png", "o.3.png", "o.5.png"}) {
      files.push_back(contents(folder / name));
      std::filesystem::remove(folder / name);
    }
    all.push_back(files);
  }
  EXPECT_EQ(all[1], all[0]);
  EXPECT_EQ(all[2], all[0]);
  EXPECT_NE(all[0][0], all[0][2]);
}

TEST(RunProblems, InputsAreThoseOfTheScriptItsIncludesAndTheFramesPictures) {
  const Folder folder;
  std::ofstream(folder / "look.orv") << "float soft = 0.1;\n";
  std::ofstream(folder / "s.orv") << "include \"look.orv\";\np = FileIn(\"p.@@.png\", time + 1);\n"
                                     "FileOut(Orvanite(p, FileIn(\"b.png\")), \"o.%03d.png\");\n";
  const Outcome listed = orvanite({"run", folder / "s.orv", "--inputs", "--frames", "4,9"});
  EXPECT_EQ(listed.code, 0) << listed.err;
  std::string expected;
  for (const char* const name : {"s.orv", "look.orv", "p.05.png", "b.png", "p.10.png"}) {
    expected += (folder / name) + "\n";
  }
  EXPECT_EQ(listed.out, expected);
  // One that cannot be read to its end says what it read so far.
  std::ofstream(folder / "s.orv") << "include \"look.orv\";\np = ;\n";
  const Outcome broken = orvanite({"run", folder / "s.orv", "--inputs"});
  EXPECT_EQ(broken.code, 1);
  EXPECT_EQ(broken.out, (folder / "s.orv") + "\n" + (folder / "look.orv") + "\n");
}

}  // namespace
}  // namespace orvanite::test
