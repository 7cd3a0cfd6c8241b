// SPDX-License-Identifier: BSD-3-Clause
//
// What people get who give nothing but files: the screen found, a cut-out or a composite that looks
// right elsewhere, backgrounds of any size and encoding, colours as they are written.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <sstream>

#include "tests/apps/Images.h"
#include "tests/apps/Program.h"

namespace orvanite::test {
namespace {

// A green screen of 40x40 with a grey square of 16x16 in its middle.
Image plateOf(OIIO::TypeDesc type) {
  Image image = randomImage(40, 40, 3, type, 1);
  const float scale = type == OIIO::TypeDesc::UINT8 ? 255 : 1;
  for (std::size_t i = 0; i < image.samples.size(); ++i) {
    const std::size_t x = i / 3 % 40;
    const std::size_t y = i / 3 / 40;
    const bool subject = x >= 12 && x < 28 && y >= 12 && y < 28;
    const std::array<float, 3> screen{0.2f, 0.8f, 0.2f};
    image.samples[i] = std::round(scale * (subject ? 0.6f : screen[i % 3]) * 255) / 255;
    if (type == OIIO::TypeDesc::UINT8) image.samples[i] = std::round(image.samples[i]);
  }
  return image;
}

std::vector<float> at(const Image& image, int x, int y) {
  const auto first = image.samples.begin() + (y * image.spec.width + x) * image.spec.nchannels;
  return {first, first + image.spec.nchannels};
}

TEST(FirstCommand, GivesACutOutWhereTheFileHoldsAlphaAndAPictureWhereItDoesNot) {
  const Folder folder;
  write(plateOf(OIIO::TypeDesc::UINT8), folder / "p.png");
  struct Case {
    const char* output;
    std::vector<float> screen, subject;
    const char* said;
  };
  // The subject's grey is 153 of 255, 0.6.
  const Case cases[] = {
      {"o.png", {0, 0, 0, 0}, {153, 153, 153, 255}, "a cut-out, straight colours"},
      {"o.tif", {0, 0, 0, 0}, {153, 153, 153, 255}, "a cut-out, straight colours"},
      {"o.jpg", {0, 0, 0}, {153, 153, 153}, "over black"},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.output);
    const Outcome outcome = orvanite({"key", folder / "p.png", "-o", folder / one.output});
    ASSERT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_NE(outcome.err.find(one.said), std::string::npos) << outcome.err;
    EXPECT_NE(outcome.err.find("screen: green, 84 % of the frame"), std::string::npos)
        << outcome.err;
    const Image image = read(folder / one.output);
    const auto expectNear = [](const std::vector<float>& found, const std::vector<float>& wanted) {
      ASSERT_EQ(found.size(), wanted.size());
      for (std::size_t i = 0; i < wanted.size(); ++i) EXPECT_NEAR(found[i], wanted[i], 2) << i;
    };
    // Straight colours where nothing is of the subject are nobody's business.
    if (one.screen.size() == 4) {
      EXPECT_EQ(at(image, 2, 2)[3], 0);
    } else {
      expectNear(at(image, 2, 2), one.screen);
    }
    expectNear(at(image, 20, 20), one.subject);
  }
  // OpenEXR's readers expect colours that are multiplied; views over something are opaque.
  ASSERT_EQ(orvanite(folder, "key -q @p.png -o @o.exr").code, 0);
  const std::vector<float> clear = at(read(folder / "o.exr"), 2, 2);
  EXPECT_EQ(clear, (std::vector<float>{0, 0, 0, 0}));
  for (const std::string more : {"--bg #202830", "--output status", "--output matte"}) {
    ASSERT_EQ(orvanite(folder, "key -q @p.png -o @v.png " + more).code, 0) << more;
    EXPECT_EQ(read(folder / "v.png").spec.nchannels, 3) << more;
    ASSERT_EQ(orvanite(folder, "key -q @p.png -o @v.png --alpha matte " + more).code, 0) << more;
    EXPECT_EQ(at(read(folder / "v.png"), 2, 2)[3], 0) << more;
  }
  // #202830 is 32, 40, 48.
  EXPECT_EQ(orvanite(folder, "key -q @p.png -o @v.png --bg #202830").code, 0);
  EXPECT_EQ(at(read(folder / "v.png"), 2, 2), (std::vector<float>{32, 40, 48}));
}

TEST(FirstCommand, BringsBackgroundsOfAnySizeAndEncodingToThePlate) {
  const Folder folder;
  write(plateOf(OIIO::TypeDesc::UINT8), folder / "p.png");
  write(plateOf(OIIO::TypeDesc::FLOAT), folder / "p.exr");
  // Red left, blue right, twice as wide as high.
  Image halves = randomImage(80, 40, 3, OIIO::TypeDesc::UINT8, 1);
  for (std::size_t i = 0; i < halves.samples.size(); ++i) {
    halves.samples[i] = (i / 3 % 80 < 40 ? i % 3 == 0 : i % 3 == 2) ? 188.0f : 0.0f;
  }
  write(halves, folder / "wide.png");
  const std::vector<float> red{188, 0, 0}, blue{0, 0, 188}, black{0, 0, 0};
  struct Case {
    const char* fit;
    std::vector<float> corner, left, right;  // pixels 1,1 and 4,20 and 35,20
  };
  for (const Case& one : {Case{"fill", red, red, blue}, Case{"stretch", red, red, blue},
                          Case{"none", red, red, blue}, Case{"fit", black, red, blue}}) {
    SCOPED_TRACE(one.fit);
    const Outcome outcome = orvanite({"key", folder / "p.png", "--bg", folder / "wide.png", "-o",
                                      folder / "o.png", "--bg-fit", one.fit});
    ASSERT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_NE(outcome.err.find("background: 80x40, brought to the plate's 40x40"),
              std::string::npos)
        << outcome.err;
    const Image image = read(folder / "o.png");
    EXPECT_EQ(at(image, 1, 1), one.corner);
    EXPECT_EQ(at(image, 4, 20), one.left);
    EXPECT_EQ(at(image, 35, 20), one.right);
  }
  // 188 of 255 is sRGB's code for ((188/255 + 0.055) / 1.055)^2.4 = 0.5029 of white.
  ASSERT_EQ(orvanite(folder, "key -q @p.exr --bg @wide.png -o @o.exr").code, 0);
  EXPECT_NEAR(at(read(folder / "o.exr"), 4, 20)[0], 0.5029, 0.0005);
  // A background that is said to be in the plate's encoding stays as it is: 188 / 255 = 0.7373.
  ASSERT_EQ(orvanite(folder, "key -q @p.exr --bg @wide.png --bg-colourspace linear -o @o.exr").code,
            0);
  EXPECT_NEAR(at(read(folder / "o.exr"), 4, 20)[0], 0.7373, 0.0005);
}

TEST(FirstCommand, KeysSeveralPlatesIntoAFolderEachByItsOwnScreen) {
  const Folder folder;
  write(plateOf(OIIO::TypeDesc::UINT8), folder / "a.png");
  Image blue = plateOf(OIIO::TypeDesc::FLOAT);
  for (std::size_t i = 0; i < blue.samples.size(); i += 3) {
    std::swap(blue.samples[i + 1], blue.samples[i + 2]);
  }
  write(blue, folder / "b.exr");
  Image grey = plateOf(OIIO::TypeDesc::UINT8);
  std::fill(grey.samples.begin(), grey.samples.end(), 90.0f);
  write(grey, folder / "c.png");
  const Outcome outcome = orvanite(folder, "key @a.png @b.exr @c.png @none.png -o @keyed/");
  EXPECT_EQ(outcome.code, 1);  // of c.png, which shows no screen
  EXPECT_NE(outcome.out.find("2 of 4 plates keyed"), std::string::npos) << outcome.out;
  EXPECT_NE(outcome.err.find("orvanite: --screen: none was given"), std::string::npos)
      << outcome.err;
  EXPECT_EQ(at(read(folder / "keyed/a.png"), 20, 20)[3], 255);
  EXPECT_EQ(at(read(folder / "keyed/b.exr"), 20, 20)[3], 1);
  EXPECT_EQ(at(read(folder / "keyed/b.exr"), 2, 2)[3], 0);
  // A mark in a still's name is a letter of it; a range may go to the end.
  ASSERT_EQ(orvanite(folder, "key -q @a.png -o @IMG#2k.png").code, 0);
  EXPECT_TRUE(std::filesystem::exists(folder / "IMG#2k.png"));
  for (int frame = 1; frame <= 4; ++frame) {
    write(plateOf(OIIO::TypeDesc::UINT8), folder / frameFile("s", frame));
  }
  ASSERT_EQ(orvanite(folder, "key -q @s.####.png --frames 3- -o @t.####.png").code, 0);
  EXPECT_FALSE(std::filesystem::exists(folder / "t.0002.png"));
  EXPECT_TRUE(std::filesystem::exists(folder / "t.0004.png"));
}

#ifdef FFMPEG_PROGRAM
TEST(FirstCommand, EveryExampleOfTheHelpRuns) {
  const Folder folder;
  const Image plate = plateOf(OIIO::TypeDesc::UINT8);
  write(plate, folder / "photo.jpg");
  write(randomImage(60, 40, 3, OIIO::TypeDesc::UINT8, 3), folder / "beach.jpg");
  Image clean = plate;
  for (std::size_t i = 0; i < clean.samples.size(); ++i) clean.samples[i] = plate.samples[i % 3];
  write(clean, folder / "clean.tif");
  for (int frame = 1; frame <= 4; ++frame) {
    write(plate, folder / ("plate.000" + std::to_string(frame) + ".tif"));
  }
  for (const char* clip : {"clip.mp4", "clip.mov"}) {
    ASSERT_EQ(run(FFMPEG_PROGRAM, {"-v", "error", "-i", folder / "plate.%04d.tif", "-r", "24",
                                   "-pix_fmt", "yuv420p", folder / clip})
                  .code,
              0);
  }
  const std::string help = orvanite({"key", "--help"}).out;
  const std::string mark = "      orvanite key ";
  int examples = 0;
  for (std::size_t at = 0; (at = help.find(mark, at)) != std::string::npos; at += mark.size()) {
    const std::size_t end = help.find('\n', at);
    std::string line = help.substr(at + 15, end - at - 15);  // "key ..."
    // Files lie in the folder.
    std::string placed;
    std::istringstream words(line);
    for (std::string word; words >> word;) {
      const bool file = word.find('.') != std::string::npos && word[0] != '-';
      placed += (placed.empty() ? "" : " ") + (file ? "@" + word : word);
    }
    const Outcome outcome = orvanite(folder, placed);
    EXPECT_EQ(outcome.code, 0) << line << "\n" << outcome.err;
    ++examples;
  }
  EXPECT_EQ(examples, 6);
  for (const char* made : {"cutout.png", "comp.mp4", "cutout.mov", "key.0004.exr", "task.0003.exr",
                           "look.json", "comp.jpg"}) {
    EXPECT_TRUE(std::filesystem::exists(folder / made)) << made;
  }
  EXPECT_FALSE(std::filesystem::exists(folder / "task.0002.exr"));
  // A still's end, and a failure at the start, in JSON.
  EXPECT_EQ(orvanite(folder, "key -q @photo.jpg --json -o @j.png").out.find("{\"frame\":1,"), 0U);
  EXPECT_EQ(orvanite(folder, "key @none.jpg --json -o @j.png").out.find("{\"status\":\"failed\""),
            0U);
}
#endif

TEST(FirstCommand, CutsRectanglesAndPolygonsBesideAGarbageMatte) {
  const Folder folder;
  write(plateOf(OIIO::TypeDesc::UINT8), folder / "p.png");
  Image matte = randomImage(40, 40, 1, OIIO::TypeDesc::UINT8, 1);
  for (std::size_t i = 0; i < matte.samples.size(); ++i) matte.samples[i] = i / 40 < 14 ? 255 : 0;
  write(matte, folder / "g.png");
  const auto alphaAt = [&](const std::string& options, int x, int y) {
    const Outcome outcome = orvanite(folder, "key -q @p.png -o @o.png " + options);
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    return at(read(folder / "o.png"), x, y)[3];
  };
  // The subject lies in 12..27. A rectangle from x = 20 on cuts its right half; its edge, four
  // pixels wide, holds 1/8, 3/8, 5/8, 7/8 at the centres 18.5, 19.5, 20.5, 21.5.
  const std::string rect = "--garbage-rect 20,0,30,40 ";
  EXPECT_EQ(alphaAt(rect, 19, 20), 255);
  EXPECT_EQ(alphaAt(rect, 20, 20), 0);
  EXPECT_EQ(alphaAt(rect + "--garbage-outside", 19, 20), 0);
  EXPECT_EQ(alphaAt(rect + "--garbage-outside", 20, 20), 255);
  EXPECT_NEAR(alphaAt(rect + "--garbage-soft 4", 18, 20), 255 * 7 / 8.0, 2);
  EXPECT_NEAR(alphaAt(rect + "--garbage-soft 4", 21, 20), 255 * 1 / 8.0, 2);
  // Below the diagonal; and the file's rows above 14 as well.
  const std::string polygon = "--garbage-polygon 0,0,40,40,0,40 --garbage @g.png ";
  EXPECT_EQ(alphaAt(polygon, 14, 26), 0);
  EXPECT_EQ(alphaAt(polygon, 26, 15), 255);
  EXPECT_EQ(alphaAt(polygon, 26, 13), 0);
  EXPECT_EQ(orvanite(folder, "key @p.png -o @o.png --garbage-rect 1,2,3").code, 2);
  EXPECT_EQ(orvanite(folder, "key @p.png -o @o.png --garbage-polygon 1,2,3,4").code, 2);
}

TEST(FirstCommand, TakesColoursAsTheyAreWritten) {
  const Folder folder;
  write(plateOf(OIIO::TypeDesc::UINT8), folder / "p.png");
  write(plateOf(OIIO::TypeDesc::FLOAT), folder / "p.exr");
  std::vector<float> first;
  for (const char* const colour : {"#00b140", "green", "0,177,64", "0,0.6941,0.251"}) {
    const Outcome outcome =
        orvanite({"key", folder / "p.png", "-o", folder / "o.png", "--screen", colour});
    ASSERT_EQ(outcome.code, 0) << colour << outcome.err;
    if (first.empty()) first = read(folder / "o.png").samples;
    EXPECT_EQ(read(folder / "o.png").samples, first) << colour;
  }
  // On a display #00b140 is a light of 0, ((177/255 + 0.055) / 1.055)^2.4 = 0.4397, 0.0513.
  const Outcome light = orvanite(folder, "key @p.exr -o @o.exr --screen #00b140");
  EXPECT_NE(light.err.find("--screen: #00b140 is 0,0.4397,0.0513, 1 being white"),
            std::string::npos)
      << light.err;
}

}  // namespace
}  // namespace orvanite::test
