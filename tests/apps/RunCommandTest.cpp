// SPDX-License-Identifier: BSD-3-Clause
//
// `orvanite run`: frames by name, the script printed back, identities, and what is said of scripts
// that cannot be rendered.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/apps/Images.h"
#include "tests/apps/Program.h"

namespace orvanite::test {
namespace {

using Lines = std::vector<std::string>;

void write(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

TEST(RunCommand, RendersFramesAndNamesThem) {
  const Folder folder;
  for (const int frame : {3, 4, 6}) {
    write(randomImage(16, 9, 3, OIIO::TypeDesc::UINT8, 5),
          folder / ("p." + std::to_string(frame) + ".png"));
  }
  write(folder / "s.orv", "p = FileIn(\"" + (folder / "p.#.png") + "\");\nk = Orvanite(p);\n" +
                              "o = FileOut(k, \"" + (folder / "o.%02d.tif") + "\");\n");
  const Outcome all = orvanite(folder, "run @s.orv --frames 3-4,6 --progress alf");
  EXPECT_EQ(all.code, 0) << all.err;
  EXPECT_EQ(all.out, "ALF_PROGRESS 33%\nALF_PROGRESS 66%\nALF_PROGRESS 100%\n");
  std::filesystem::remove(folder / "o.04.tif");
  const Outcome rest = orvanite(folder, "run @s.orv --frames 3-4 --skip-existing --json");
  EXPECT_NE(rest.out.find("\"frame\":3,\"status\":\"skipped\""), std::string::npos) << rest.out;
  EXPECT_NE(rest.out.find("\"frame\":4,\"status\":\"done\",\"output\":\"" + (folder / "o.04.tif")),
            std::string::npos)
      << rest.out;
  EXPECT_NE(rest.out.find("\"frames\":2,\"done\":1,\"skipped\":1"), std::string::npos);
  const Outcome some = orvanite({"run", folder / "s.orv", "--frames", "4-8x2", "-q", "--set",
                                 "o.path=" + (folder / "q.#.tif")});
  EXPECT_EQ(some.code, 4);
  EXPECT_EQ(some.out, "");
  EXPECT_NE(some.err.find("frame 8: " + (folder / "p.8.png") + ": no such file"),
            std::string::npos);
  EXPECT_EQ(folder.names(), (Lines{"o.03.tif", "o.04.tif", "o.06.tif", "p.3.png", "p.4.png",
                                   "p.6.png", "q.4.tif", "q.6.tif", "s.orv"}));
}

TEST(RunCommand, PrintsTheScriptAndIdentities) {
  const Folder folder;
  write(folder / "s.orv",
        "gain = 0.25;\na = Constant(8, 8, 1, gain);\nk = Orvanite_1v3(0, a, 0);\n");
  const Outcome printed = orvanite(
      folder, "run @s.orv --print --set k.shadowBalance=0.7 --set gain=1/8 --set k.output=status");
  EXPECT_EQ(printed.code, 0);
  EXPECT_EQ(printed.out,
            "float gain = 1/8;\na = Constant(8, 8, 1, gain, red, red, 1);\n"
            "k = Orvanite(a, 0, 0, 0, \"\", \"status\", 0, 0, 0.9, 0, 0.5, 0.5, 0.5, 0.7, "
            "shadowBalance,\n    shadowBalance, 0, shadowGain, shadowGain, 0.5, 0.5, 0.5, 0.5, 1, "
            "rExposure, rExposure, 1,\n    rGamma, rGamma, 1, \"linear\", 1, \"A\", 1, \"A\", 0, "
            "0);\n");
  const Outcome identity = orvanite(folder, "run @s.orv --identity k");
  EXPECT_EQ(identity.out,
            "Orvanite(Constant(8,8,1,0.25,0.25,0.25,1),,0,0,0,composite,0,0,0.9,0,0.5,0.5,0.5,0.5,"
            "0.5,0.5,0.5,0,0,0,0.5,0.5,0.5,1,1,1,1,1,1,1,linear,0,A,0,A,0)\n");
}

TEST(RunCommand, SaysWhatIsWrong) {
  const Folder folder;
  write(folder / "bad.orv", "a = Constant(;\nb = Nothing();\n");
  write(folder / "none.orv", "a = Constant();\n");
  write(folder / "loop.orv",
        "a = Constant(8, 8, 1, 0.5);\na.red = green;\na.green = red + 1;\n"
        "o = FileOut(a, \"" +
            (folder / "o.png") + "\");\n");
  std::filesystem::create_symlink("/dev/zero", folder / "zero.orv");
  write(folder / "twice.orv", "a = Constant();\no = FileOut(a, \"" + (folder / "o.png") +
                                  "\");\np = FileOut(a, \"" + (folder / "./o.png") + "\");\n");
  write(folder / "still.orv", "a = Constant();\no = FileOut(a, \"" + (folder / "o.png") + "\");\n");
  struct Case {
    std::string words;
    int code;
    const char* message;
  };
  const Case cases[] = {
      {"@bad.orv", 1, "bad.orv:1:14: expected an expression, found ';'\norvanite: "},
      {"@bad.orv", 1, "bad.orv:2:5: expected the name of a function, found 'Nothing'"},
      {"@none.orv", 2, "expected a FileOut, found none"},
      {"@loop.orv", 1, "depends on itself"},
      {"@twice.orv", 2, "o.png: is written by two FileOuts"},
      {"@still.orv --frames 1-3", 2,
       "expected a name with a frame number or of a movie for several frames"},
      {"@missing.orv", 1, "this script cannot be read"},
      {"@zero.orv", 1, "a script that is too long"},
      {"@none.orv --frames 4-", 2, "expected frames such as"},
      {"@none.orv --frames 1-5x0", 2, "expected frames such as"},
      {"@none.orv --frames 1,", 2, "expected frames such as"},
      {"@none.orv --threads -1", 2, "expected a number from 0 to 256"},
      {"@none.orv --set a", 2, "expected node.plug=value"},
      {"@none.orv --set b.red=1", 2, "the script has no node 'b'"},
      {"@none.orv --set a.rad=1", 2, "width, height, bytes, red"},
      {"@none.orv --set a.red=1/", 1, "--set a.red:1:3: expected a number"},
      {"@none.orv --identity z", 2, "no image 'z'"},
  };
  for (const Case& one : cases) {
    const Outcome outcome = orvanite(folder, "run " + one.words);
    EXPECT_NE(outcome.err.find(one.message), std::string::npos) << outcome.err;
    EXPECT_EQ(outcome.code, one.code) << one.message;
  }
  EXPECT_EQ(folder.names(),
            (Lines{"bad.orv", "loop.orv", "none.orv", "still.orv", "twice.orv", "zero.orv"}));
}

}  // namespace
}  // namespace orvanite::test
