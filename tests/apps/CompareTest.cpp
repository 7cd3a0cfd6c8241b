// SPDX-License-Identifier: BSD-3-Clause
//
// `orvanite compare` and `orvanite info`: figures worked out by hand, and what they refuse.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "tests/apps/Images.h"
#include "tests/apps/Program.h"

namespace orvanite::test {
namespace {

TEST(Compare, GivesTheFiguresOfAKnownDifference) {
  const Folder folder;
  Image image = randomImage(4, 1, 3, OIIO::TypeDesc::UINT8, 1);
  image.samples.assign(12, 100);
  write(image, folder / "a.png");
  // Red differs by 51/255 = 0.2 at one of four pixels: mean 0.05, root mean square 0.1.
  image.samples[3] = 151;
  write(image, folder / "b.png");
  EXPECT_EQ(orvanite(folder, "compare @a.png @a.png").code, 0);
  const Outcome outcome = orvanite(folder, "compare @a.png @b.png --difference @d.png");
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.err, "");
  // The second of four pixels.
  EXPECT_NE(
      outcome.out.find("R        0.050000     0.100000     0.200000     1  (largest at 1,0)\n"),
      std::string::npos)
      << outcome.out;
  EXPECT_EQ(outcome.out.find("\nA "), std::string::npos) << "neither has alpha";
  EXPECT_NE(outcome.out.find("G        0.000000     0.000000     0.000000     0\n"),
            std::string::npos);
  const Image difference = read(folder / "d.png");
  EXPECT_EQ(difference.samples[4], 51);
  EXPECT_EQ(difference.samples[0], 0);
  EXPECT_EQ(difference.samples[3], 255);

  ASSERT_EQ(orvanite(folder, "compare @a.png @b.png --difference @d.png --difference-gain 4").code,
            1);
  EXPECT_EQ(read(folder / "d.png").samples[4], 204);

  write(randomImage(4, 2, 3, OIIO::TypeDesc::UINT8, 1), folder / "c.png");
  const Outcome sizes = orvanite(folder, "compare @a.png @c.png");
  EXPECT_EQ(sizes.code, 2);
  EXPECT_NE(sizes.err.find("expected a picture of the size 4x1, found 4x2"), std::string::npos);
  EXPECT_EQ(orvanite(folder, "compare @a.png").code, 2);
}

TEST(Compare, LinesShotsUpByFrameAndPicturesByTheirFrames) {
  const Folder folder;
  Image image = randomImage(4, 2, 3, OIIO::TypeDesc::UINT8, 1);
  image.samples.assign(24, 100);
  for (const int frame : {1, 2, 3, 5})
    write(image, folder / ("a." + std::to_string(frame) + ".png"));
  for (const int frame : {2, 3, 4, 5}) {
    // Frame 3 is 51 codes off in green, at 2,1: the sixth pixel of eight, of 24 in three frames.
    image.samples[6 * 3 + 1] = frame == 3 ? 151 : 100;
    write(image, folder / ("b." + std::to_string(frame) + ".png"));
  }
  const Outcome outcome =
      orvanite(folder, "compare @a.#.png @b.#.png --json --difference @d.#.png");
  EXPECT_EQ(outcome.code, 1) << outcome.err;
  const auto found = nlohmann::json::parse(outcome.out);
  EXPECT_EQ(found["frames"], (std::vector<int>{2, 3, 5}));
  EXPECT_EQ(found["missingFrames"], (std::vector<int>{1, 4}));
  const auto& g = found["channels"]["G"];
  EXPECT_NEAR(g["mean"].get<double>(), 0.2 / 24, 1e-6);
  EXPECT_NEAR(g["rms"].get<double>(), 0.2 / std::sqrt(24), 1e-6);
  EXPECT_EQ(g["largestInFrame"], 3);
  EXPECT_EQ(g["largestAt"], (std::vector<int>{2, 1}));
  EXPECT_EQ(found["channels"]["R"]["differentPixels"], 0);
  EXPECT_EQ(read(folder / "d.3.png").samples[6 * 4 + 1], 51);  // with alpha
  EXPECT_EQ(orvanite(folder, "compare @a.#.png @b.#.png --difference @d.png").code, 2);
  EXPECT_EQ(orvanite(folder, "compare @a.#.png @b.4.png --frames 9").code, 2);

  // One half of the frame against all of it: the rest is nothing.
  Image half = randomImage(2, 2, 3, OIIO::TypeDesc::HALF, 1);
  half.samples.assign(12, 0.5f);
  half.spec.x = 2;
  half.spec.full_x = 0;
  half.spec.full_width = 4;
  write(half, folder / "half.exr");
  Image whole = randomImage(4, 2, 3, OIIO::TypeDesc::HALF, 1);
  whole.samples.assign(24, 0.5f);
  write(whole, folder / "whole.exr");
  const auto windows =
      nlohmann::json::parse(orvanite(folder, "compare --json @half.exr @whole.exr").out);
  EXPECT_EQ(windows["channels"]["R"]["differentPixels"], 4);
  EXPECT_EQ(windows["channels"]["R"]["mean"], 0.25);
}

// A green screen, 24 columns of 100, 200, 60 and 8 of 80, 160, 48, over a grey subject.
Image screenImage() {
  Image image = randomImage(40, 20, 3, OIIO::TypeDesc::UINT8, 1);
  for (std::size_t i = 0; i < 800; ++i) {
    const std::size_t x = i % 40;
    const float light = x < 24 ? 1 : 0.8f;
    const float colour[] = {100 * light, 200 * light, 60 * light};
    for (std::size_t c = 0; c < 3; ++c) image.samples[3 * i + c] = x < 32 ? colour[c] : 120;
  }
  return image;
}

TEST(Info, SaysWhatAPlateIsAndWhatScreenItHas) {
  const Folder folder;
  for (const char* name : {"a.0001.png", "a.0002.png", "a.0004.png"}) {
    write(screenImage(), folder / name);
  }
  const std::string shot = folder / "a.####.png";
  const Outcome outcome = orvanite({"info", shot});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  // 32 of 40 columns, and 160 of 200.
  for (const char* part :
       {"40x20", "8-bit, png", "R, G, B", "video (8-bit png)", "1-2,4 (3 frames, missing 3)",
        "green, 80 % of the frame, uneven (its darkest part at 80 % of its brightest) (frame 1)",
        "0.3922,0.7843,0.2353"}) {
    EXPECT_NE(outcome.out.find(part), std::string::npos) << part << "\n" << outcome.out;
  }

  // What is recommended is what --auto does.
  const Outcome json = orvanite({"info", "--json", shot, "--screen-frame", "2"});
  const auto object = nlohmann::json::parse(json.out);
  EXPECT_EQ(object["missingFrames"], std::vector<int>{3});
  EXPECT_EQ(object["screenFrame"], 2);
  EXPECT_NEAR(object["screen"]["coverage"].get<double>(), 0.8, 1e-6);
  std::vector<std::string> key{"key", "-q", folder / "a.0002.png", "-o", folder / "own.png"};
  for (const auto& word : object["recommended"]) key.push_back(word);
  EXPECT_EQ(orvanite(key).code, 0);
  EXPECT_EQ(orvanite(folder, "key -q @a.0002.png --auto -o @auto.png").code, 0);
  EXPECT_EQ(read(folder / "own.png").samples, read(folder / "auto.png").samples);

  // One that is no picture does not keep the others back; a grey one has no screen.
  Image grey = screenImage();
  std::fill(grey.samples.begin(), grey.samples.end(), 90.0f);
  write(grey, folder / "grey.png");
  const Outcome several =
      orvanite({"info", "--json", folder / "none.png", folder / "grey.png", "--header", shot});
  EXPECT_EQ(several.code, 1);
  EXPECT_NE(several.err.find("none.png: "), std::string::npos);
  EXPECT_EQ(std::count(several.out.begin(), several.out.end(), '\n'), 2);
  EXPECT_NE(orvanite(folder, "info @grey.png").out.find("none found"), std::string::npos);
  EXPECT_EQ(orvanite({"info"}).code, 2);
}

// A report that nobody gets is a failure, and lands in no file that was opened meanwhile.
TEST(Streams, LostOutputIsAFailure) {
  const Folder folder;
  write(randomImage(40, 30, 3, OIIO::TypeDesc::UINT8, 1), folder / "a.png");
  for (const std::string to : {"> /dev/full", ">&-"}) {
    for (const std::string& command :
         {"info " + folder / "a.png", "compare " + folder / "a.png" + " " + folder / "a.png",
          "key --screen 0,1,0 " + folder / "a.png" + " -o " + folder / "k.png"}) {
      const Outcome outcome =
          run("/bin/sh", {"-c", std::string(ORVANITE_PROGRAM) + " " + command + " " + to});
      EXPECT_EQ(outcome.code, 1) << command << to << ": " << outcome.err;
      EXPECT_NE(outcome.err.find("standard output: cannot be written"), std::string::npos)
          << command << to << ": " << outcome.err;
    }
  }
  EXPECT_EQ(read(folder / "k.png").spec.width, 40) << "the picture itself is whole";
}

}  // namespace
}  // namespace orvanite::test
