// SPDX-License-Identifier: BSD-3-Clause
//
// `orvanite key --save-script`: `orvanite run` renders the script to the samples of the key.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
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
      {"premultiplied",
       ".exr",
       OIIO::TypeDesc::HALF,
       0,
       {"--output", "unpremultiplied", "--alpha", "premultiplied"}},
      {"opaque view", ".png", OIIO::TypeDesc::UINT8, 4, {"--alpha", "none"}},
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
    Lines key = blueKey({file("plate"), "-o", file("keyed"), "--save-script", folder / "shot.orv"});
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
      EXPECT_EQ(ran.out, "frame 1: " + file("keyed") + "\n");
      const Image found = read(file("keyed"));
      EXPECT_EQ(found.spec.format, expected.spec.format);
      EXPECT_EQ(found.spec.nchannels, expected.spec.nchannels);
      EXPECT_TRUE(found.samples == expected.samples);
    }
  }
}

// What a header says beside the pixels' layout, as "name=value"; the time of writing aside.
Lines metadataOf(const OIIO::ImageSpec& spec) {
  Lines all;
  for (const OIIO::ParamValue& one : spec.extra_attribs) {
    if (one.name() != "DateTime") all.push_back(one.name().string() + "=" + one.get_string());
  }
  std::sort(all.begin(), all.end());
  return all;
}

TEST(SaveScript, BothWaysOfKeyingCarryThePlatesMetadata) {
  const Folder folder;
  Image plate = randomImage(20, 10, 3, OIIO::TypeDesc::HALF, 1);
  const int rate[2] = {24000, 1001};
  const std::uint32_t timeCode[2] = {0x01020304, 0};
  plate.spec.attribute("FramesPerSecond", OIIO::TypeRational, rate);
  plate.spec.attribute("smpte:TimeCode", OIIO::TypeTimeCode, timeCode);
  plate.spec.attribute("PixelAspectRatio", 2.0f);
  plate.spec.attribute("compression", "zips");
  plate.spec.attribute("Artist", "somebody");
  write(plate, folder / "p.exr");
  Image codes = randomImage(20, 10, 3, OIIO::TypeDesc::UINT16, 2);
  codes.spec.attribute("oiio:BitsPerSample", 10);
  write(codes, folder / "p.dpx");
  for (const std::string ending : {".exr", ".dpx"}) {
    SCOPED_TRACE(ending);
    const Outcome keyed = orvanite(
        folder, blueKeyWords + "-q @p" + ending + " -o @k" + ending + " --save-script @s.orv");
    ASSERT_EQ(keyed.code, 0) << keyed.err;
    const Image expected = read(folder / ("k" + ending));
    ASSERT_EQ(orvanite(folder, "run -q @s.orv").code, 0);
    const Image found = read(folder / ("k" + ending));
    EXPECT_EQ(metadataOf(found.spec), metadataOf(expected.spec));
    EXPECT_EQ(found.spec.format, expected.spec.format);
    if (ending == ".dpx") continue;
    for (const char* kept : {"Artist=somebody", "smpte:TimeCode=01:02:03:04", "compression=zips"}) {
      const Lines all = metadataOf(found.spec);
      EXPECT_NE(std::find(all.begin(), all.end(), kept), all.end()) << kept;
    }
  }
}

// Where a picture lies in its frame.
std::vector<int> windowOf(const OIIO::ImageSpec& spec) {
  return {spec.x, spec.y, spec.width, spec.height, spec.full_width, spec.full_height};
}

TEST(SaveScript, BothWaysOfKeyingAgreeOnWindowsAndGreyPictures) {
  // A plate of 20x10 that lies at 5,3 in a frame of 40x24 and another that reaches beyond it,
  // before backgrounds that fill the frame.
  struct Case {
    const char* name;
    int x, y, width, height;
    const char *background, *matte, *ending;
    std::vector<int> window;
  };
  const Case cases[] = {
      {"smaller", 5, 3, 20, 10, "bg.exr", "", ".exr", {0, 0, 40, 24, 40, 24}},
      {"alone", 5, 3, 20, 10, "", "", ".exr", {5, 3, 20, 10, 40, 24}},
      {"alone in a frame", 5, 3, 20, 10, "", "", ".tif", {0, 0, 40, 24, 40, 24}},
      {"larger", -4, -2, 50, 28, "bg.exr", "", ".exr", {-4, -2, 50, 28, 40, 24}},
      {"larger in a frame", -4, -2, 50, 28, "bg.exr", "", ".tif", {0, 0, 40, 24, 40, 24}},
      {"grey background", 0, 0, 40, 24, "grey.png", "", ".exr", {0, 0, 40, 24, 40, 24}},
      {"grey matte", 5, 3, 20, 10, "bg.exr", "grey.png", ".exr", {0, 0, 40, 24, 40, 24}},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    const Folder folder;
    write(randomImage(40, 24, 3, OIIO::TypeDesc::HALF, 2), folder / "bg.exr");
    write(randomImage(40, 24, 1, OIIO::TypeDesc::UINT8, 3), folder / "grey.png");
    // The second frame has another window.
    for (int frame = 1; frame <= 2; ++frame) {
      Image plate =
          randomImage(one.width, one.height, 3, OIIO::TypeDesc::HALF, static_cast<unsigned>(frame));
      plate.spec.x = one.x;
      plate.spec.y = one.y + frame - 1;
      plate.spec.full_x = plate.spec.full_y = 0;
      plate.spec.full_width = 40;
      plate.spec.full_height = 24;
      write(plate, folder / ("p." + std::to_string(frame) + ".exr"));
    }
    const auto out = [&](int frame) {
      return folder / ("o." + std::to_string(frame) + one.ending);
    };
    Lines key = blueKey({"-q", folder / "p.#.exr", "-o", folder / ("o.#" + std::string(one.ending)),
                         "--screen", "0.2,0.7,0.3", "--save-script", folder / "s.orv"});
    if (*one.background) {
      key.insert(key.end(), {"--bg", folder / one.background, "--bg-colourspace", "linear"});
    }
    if (*one.matte) key.insert(key.end(), {"--hold-out", folder / one.matte});
    const Outcome keyed = orvanite(key);
    ASSERT_EQ(keyed.code, 0) << keyed.err;
    const Image expected[] = {read(out(1)), read(out(2))};
    EXPECT_EQ(windowOf(expected[0].spec), one.window);
    const Outcome ran = orvanite(folder, "run -q @s.orv --frames 1-2");
    ASSERT_EQ(ran.code, 0) << ran.err;
    for (int frame = 1; frame <= 2; ++frame) {
      const Image found = read(out(frame));
      EXPECT_EQ(windowOf(found.spec), windowOf(expected[frame - 1].spec)) << frame;
      EXPECT_TRUE(found.samples == expected[frame - 1].samples) << frame;
    }
    if (*one.background == 'b' && one.x == 5 && !*one.matte) {
      // Beside the plate there is the background, as it is.
      const Image background = read(folder / "bg.exr");
      EXPECT_EQ(expected[0].samples[0], background.samples[0]);
    }
    // A grey background is opaque, and the composite with it.
    if (*one.background == 'g') {
      EXPECT_EQ(expected[0].samples[3], 1);
    }
  }
}

TEST(SaveScript, AShorterBackgroundIsShownAsWithKeyAndPathsCountFromTheScript) {
  for (const char* const past : {"hold", "loop"}) {
    SCOPED_TRACE(past);
    const Folder folder;
    std::filesystem::create_directory(folder / "scripts");
    for (int frame = 1; frame <= 5; ++frame) {
      const std::string ending = std::to_string(frame) + ".png";
      const auto picture = [&](int seed) {
        return randomImage(9, 7, 3, OIIO::TypeDesc::UINT8, static_cast<unsigned>(seed));
      };
      write(picture(frame), folder / ("p." + ending));
      if (frame == 2 || frame == 3) write(picture(10 + frame), folder / ("b." + ending));
    }
    const Outcome keyed = orvanite(
        folder, std::string("key -q @p.#.png --bg @b.#.png --bg-frame-offset 1 --bg-time ") + past +
                    " --screen 0.1,0.2,0.8 -o @k.#.png --save-script @scripts/s.orv");
    ASSERT_EQ(keyed.code, 0) << keyed.err;
    std::vector<Image> expected;
    for (int frame = 1; frame <= 5; ++frame) {
      expected.push_back(read(folder / ("k." + std::to_string(frame) + ".png")));
    }
    const Outcome ran = orvanite(folder, "run -q @scripts/s.orv --frames 1-5");
    ASSERT_EQ(ran.code, 0) << ran.err;
    for (int frame = 1; frame <= 5; ++frame) {
      const Image found = read(folder / ("k." + std::to_string(frame) + ".png"));
      EXPECT_TRUE(found.samples == expected[static_cast<std::size_t>(frame) - 1].samples) << frame;
    }
  }
}

TEST(SaveScript, RefusesToSaveWhatAScriptCannotHold) {
  const Folder folder;
  write(randomImage(8, 8, 3, OIIO::TypeDesc::UINT8, 1), folder / "p.png");
  const Lines refused[] = {{"--output", "matte"},
                           {"--offset", "0.1"},
                           {"--reference", folder / "p.png"},
                           {"--matte-output", folder / "m.png"},
                           {"--no-key"}};
  for (const Lines& options : refused) {
    Lines arguments =
        blueKey({folder / "p.png", "-o", folder / "k.png", "--save-script", folder / "s.orv"});
    arguments.insert(arguments.end(), options.begin(), options.end());
    const Outcome outcome = orvanite(arguments);
    EXPECT_EQ(outcome.code, 2) << options[0];
    EXPECT_NE(outcome.err.find("--save-script: a script cannot hold "), std::string::npos);
    EXPECT_NE(outcome.err.find(options[0]), std::string::npos) << outcome.err;
  }
  EXPECT_EQ(folder.names(), Lines{"p.png"});
}

}  // namespace
}  // namespace orvanite::test
