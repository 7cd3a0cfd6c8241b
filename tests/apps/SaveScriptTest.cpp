// SPDX-License-Identifier: BSD-3-Clause
//
// `orvanite key --save-script`: `orvanite run` renders the script to the samples of the key.
#include <gtest/gtest.h>

#include <cstdio>

#include "tests/apps/Images.h"
#include "tests/apps/Program.h"

namespace orvanite::test {
namespace {

using Lines = std::vector<std::string>;

TEST(SaveScript, ASavedScriptRendersToTheSamplesOfTheKey) {
  struct Case {
    const char* name;
    const char* ending;
    OIIO::TypeDesc type;
    int backgroundChannels;  // 0 for no background
    Lines options;
  };
  const Case cases[] = {
      {"composite", ".png", OIIO::TypeDesc::UINT8, 4, {"--screen", "0.1,0.2,0.8"}},
      {"opaque",
       ".tif",
       OIIO::TypeDesc::UINT16,
       3,
       {"--screen-range", "0.05", "--replace", "0.4,0.5,0.6"}},
      {"half", ".exr", OIIO::TypeDesc::HALF, 4, {"--gamma", "1,1.2,1", "--saturation", "0.8"}},
      {"float", ".exr", OIIO::TypeDesc::FLOAT, 0, {"--output", "unpremultiplied"}},
      {"black",
       ".png",
       OIIO::TypeDesc::UINT8,
       0,
       {"--output", "compOnBlack", "--colourspace", "log"}},
      {"status", ".png", OIIO::TypeDesc::UINT8, 4, {"--output", "status", "--shadow-gain", "0.1"}},
      {"replace",
       ".tif",
       OIIO::TypeDesc::UINT16,
       4,
       {"--output", "compOnReplace", "--hold-out", "MATTE", "--hold-out-channel", "g", "--garbage",
        "MATTE", "--garbage-channel", "A"}},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    const Folder folder;
    const auto file = [&](const char* name) { return folder / (std::string(name) + one.ending); };
    write(randomImage(41, 23, 3, one.type, 1), file("plate"));
    if (one.backgroundChannels) {
      write(randomImage(41, 23, one.backgroundChannels, one.type, 2), file("background"));
    }
    write(randomImage(41, 23, 4, one.type, 3), file("matte"));
    Lines key{"key", file("plate"), "-o", file("keyed"), "--save-script", folder / "shot.orv"};
    if (one.backgroundChannels) key.insert(key.end(), {"--bg", file("background")});
    for (const std::string& option : one.options) {
      key.push_back(option == "MATTE" ? file("matte") : option);
    }
    const Outcome keyed = orvanite(key);
    ASSERT_EQ(keyed.code, 0) << keyed.err;
    const Image expected = read(file("keyed"));
    ASSERT_EQ(std::rename(file("keyed").c_str(), file("kept").c_str()), 0);
    for (const char* const threads : {"1", "3"}) {
      const Outcome ran = orvanite({"run", folder / "shot.orv", "--threads", threads});
      ASSERT_EQ(ran.code, 0) << ran.err;
      EXPECT_EQ(ran.out, "frame 1: " + file("keyed") + " (1/1)\n");
      const Image found = read(file("keyed"));
      EXPECT_EQ(found.spec.format, expected.spec.format);
      EXPECT_EQ(found.spec.nchannels, expected.spec.nchannels);
      EXPECT_TRUE(found.samples == expected.samples);
    }
  }
}

TEST(SaveScript, RefusesToSaveWhatAScriptCannotHold) {
  const Folder folder;
  write(randomImage(8, 8, 3, OIIO::TypeDesc::UINT8, 1), folder / "p.png");
  const Lines refused[] = {{"--output", "matte"},
                           {"--offset", "0.1"},
                           {"--reference", folder / "p.png"},
                           {"--output", "unpremultiplied", "--premultiply"}};
  for (const Lines& options : refused) {
    Lines arguments{"key",           folder / "p.png", "-o", folder / "k.png",
                    "--save-script", folder / "s.orv"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const Outcome outcome = orvanite(arguments);
    EXPECT_EQ(outcome.code, 2) << options[0];
    EXPECT_NE(outcome.err.find("--save-script"), std::string::npos) << outcome.err;
  }
  EXPECT_EQ(folder.names(), Lines{"p.png"});
}

}  // namespace
}  // namespace orvanite::test
