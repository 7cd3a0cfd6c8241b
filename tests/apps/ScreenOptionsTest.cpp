// SPDX-License-Identifier: BSD-3-Clause
//
// `orvanite key` looking at its plate: what it prints gives the same key again, and what it takes
// from a box or another frame is what lies there.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <sstream>

#include "tests/apps/Images.h"
#include "tests/apps/Program.h"

namespace orvanite::test {
namespace {

constexpr int width = 96, height = 64;

// A green or blue screen, darker towards the left, with a grey disc before it; 16 bits.
Image shot(bool blue, float darkest) {
  Image image{OIIO::ImageSpec(width, height, 3, OIIO::TypeDesc::UINT16), {}};
  const float screen[3] = {0.2f, blue ? 0.3f : 0.7f, blue ? 0.7f : 0.25f};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const float light = darkest + (1 - darkest) * static_cast<float>(x) / (width - 1);
      const bool subject = std::hypot(x - 60.0, y - 32.0) < 15;
      for (const float channel : screen) {
        image.samples.push_back(std::round(65535 * (subject ? 0.5f : light * channel)));
      }
    }
  }
  return image;
}

/// The options in the line "chosen: ..." of what was said.
std::vector<std::string> chosenIn(const std::string& said) {
  const std::string mark = "chosen: ";
  const auto at = said.find(mark);
  if (at == std::string::npos) return {};
  std::istringstream line(said.substr(at + mark.size(), said.find('\n', at) - at - mark.size()));
  std::vector<std::string> words;
  for (std::string word; line >> word;) words.push_back(word);
  return words;
}

TEST(ScreenOptions, GiveTheSameKeyAgainWhenWhatTheyChoseIsPasted) {
  const Folder folder;
  for (const bool blue : {false, true}) {
    for (const float darkest : {1.0f, 0.6f}) {
      write(shot(blue, darkest), folder / "plate.png");
      const Outcome first =
          orvanite(folder, "key @plate.png --auto -o @first.png --output unpremultiplied");
      ASSERT_EQ(first.code, 0) << first.err;
      const std::vector<std::string> chosen = chosenIn(first.err);
      ASSERT_GT(chosen.size(), 10U) << first.err;
      EXPECT_NE(std::find(chosen.begin(), chosen.end(), "--estimate"), chosen.end()) << first.err;
      std::vector<std::string> pasted{"key",      folder / "plate.png", "-o", folder / "again.png",
                                      "--output", "unpremultiplied"};
      pasted.insert(pasted.end(), chosen.begin(), chosen.end());
      const Outcome again = orvanite(pasted);
      ASSERT_EQ(again.code, 0) << again.err;
      const Image key = read(folder / "first.png");
      EXPECT_EQ(key.samples, read(folder / "again.png").samples);
      // The subject is grey and hard-edged, so the matte is 1 on it and 0 beside it.
      for (const auto& [x, y, matte] : {std::tuple{60, 32, 1}, {5, 5, 0}, {90, 60, 0}}) {
        const float alpha = key.samples[static_cast<std::size_t>(4 * (y * width + x) + 3)];
        EXPECT_NEAR(alpha / 65535, matte, 0.02) << x << ',' << y;
      }
    }
  }
}

TEST(ScreenOptions, EstimatesAloneChooseNoParametersButTheScreenThatNobodyNamed) {
  const Folder folder;
  write(shot(false, 0.6f), folder / "plate.png");
  for (const std::string screen : {"", " --screen 0.1,0.6,0.2"}) {
    const Outcome key =
        orvanite(folder, "key @plate.png -o @key.png --estimate light --screen-range 0.1" + screen);
    ASSERT_EQ(key.code, 0) << key.err;
    const std::vector<std::string> chosen = chosenIn(key.err);
    EXPECT_EQ(chosen.size(), screen.empty() ? 2U : 0U) << key.err;
    if (screen.empty()) {
      EXPECT_EQ(chosen.front(), "--screen");
    }
  }
}

TEST(ScreenOptions, EstimatesThatAreSavedGiveTheSameKeyToOneThatEstimatesNothing) {
  const Folder folder;
  const Image plate = shot(false, 0.6f);
  write(plate, folder / "plate.png");
  const Outcome first =
      orvanite(folder,
               "key @plate.png --auto --estimate codes -o @first.png --output unpremultiplied "
               "--save-reference @clean.png --save-hold-out @hold.png --save-garbage @garbage.png");
  ASSERT_EQ(first.code, 0) << first.err;
  std::vector<std::string> pasted = words(
      folder,
      "key @plate.png --estimate off --colourspace linear -o @again.png --output unpremultiplied "
      "--reference @clean.png --hold-out @hold.png --garbage @garbage.png");
  const std::vector<std::string> chosen = chosenIn(first.err);
  pasted.insert(pasted.end(), chosen.begin(), chosen.end());
  ASSERT_EQ(orvanite(pasted).code, 0);
  EXPECT_EQ(read(folder / "again.png").samples, read(folder / "first.png").samples);

  const Image clean = read(folder / "clean.png"), hold = read(folder / "hold.png"),
              garbage = read(folder / "garbage.png");
  ASSERT_EQ(clean.samples.size(), plate.samples.size());
  int held = 0, cut = 0;
  for (std::size_t i = 0; i < plate.samples.size(); i += 3) {
    const auto x = static_cast<int>(i / 3) % width, y = static_cast<int>(i / 3) / width;
    const double radius = std::hypot(x - 60.0, y - 32.0);
    const float green = 65535 * 0.7f * (0.6f + 0.4f * static_cast<float>(x) / (width - 1));
    ASSERT_NEAR(clean.samples[i + 1], green, 0.02 * 65535) << x << ' ' << y;
    held += hold.samples[i] > 0 ? 1 : 0;
    cut += garbage.samples[i] > 0 ? 1 : 0;
    // Mattes lie between pixels of a smaller picture: two pixels of room.
    ASSERT_TRUE(hold.samples[i] == 0 || radius < 17) << x << ' ' << y;
    ASSERT_TRUE(garbage.samples[i] == 0 || radius > 13) << x << ' ' << y;
  }
  EXPECT_GT(held, 100);  // of 707 pixels of the disc
  EXPECT_GT(cut, 2000);  // of 5,437 of the screen

  const Outcome none =
      orvanite(folder, "key @plate.png --screen green -o @no.png --save-garbage @no-garbage.png");
  EXPECT_EQ(none.code, 2);
  EXPECT_NE(none.err.find("no-garbage.png: there is no estimate to write"), std::string::npos)
      << none.err;
  EXPECT_FALSE(std::filesystem::exists(folder / "no.png"));
}

TEST(ScreenOptions, TakeTheColourFromABoxOrAnotherFrame) {
  const Folder folder;
  write(shot(false, 0.6f), folder / "plate.0007.png");
  write(shot(true, 1), folder / "plate.0012.png");
  const auto chosen = [&](const std::string& more) {
    const Outcome outcome =
        orvanite(folder, "key @plate.0007.png --output matte -o @out.png " + more);
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    const auto words = chosenIn(outcome.err);
    return words.size() == 2 && words[0] == "--screen" ? words[1] : outcome.err;
  };
  // Light 1 at the right edge: the screen's own colour, to the nearest of 65535 codes.
  EXPECT_EQ(chosen("--screen-at 95,0"), "0.2,0.7,0.25");
  // Columns 91 to 95: the middle one has light 1 - 0.4 x 2 / 95 = 0.99158.
  EXPECT_EQ(chosen("--screen-at 91,3,5,4"), "0.1983,0.6941,0.2479");
  // Columns 45 and 46 at row 32 lie on either side of the disc's edge (60 - 15): light there is
  // 0.6 + 0.4 x 45 / 95 = 0.78947, so green is 0.55263; half of it and half of 0.5 is 0.5263.
  // Red is (10348 + 32768) / 2 / 65535 = 0.328954 in codes.
  EXPECT_EQ(chosen("--screen-at 45,32,2,1 --screen-average mean"), "0.329,0.5263,0.3487");
  EXPECT_EQ(chosen("--screen-frame 12 --screen auto"), "0.2,0.3,0.7");
  EXPECT_EQ(chosen("--screen-frame 12 --screen-at 1,1"), "0.2,0.3,0.7");
}

TEST(ScreenOptions, SayWhatIsWrongAndLeaveNothing) {
  const Folder folder;
  write(shot(false, 1), folder / "plate.png");
  Image grey = shot(false, 1);
  for (float& sample : grey.samples) sample = 30000;
  write(grey, folder / "grey.png");
  struct Case {
    std::string words;
    int code;
    const char* message;
  };
  for (const Case& wrong : {
           Case{"@plate.png --screen-at 1", 2, "--screen-at: expected X,Y or"},
           Case{"@plate.png --screen-at 1,2,", 2, "found '1,2,'"},
           Case{"@plate.png --screen-at 90,2,7,1", 2, "a box within 96x64 pixels"},
           Case{"@plate.png --screen-at 1,2 --screen 0,1,0", 2, "no --screen"},
           Case{"@plate.png --screen-average mean", 2, "expected --screen-at with it"},
           Case{"@plate.png --screen 0,1,0 --screen-frame 3", 2, "--screen-frame: expected --auto"},
           Case{"@plate.png --auto --screen-frame 3", 2, "a frame number in its name"},
           Case{"@grey.png --auto", 1, "--auto: expected a screen of one colour"},
           Case{"@grey.png --screen auto", 1, "--screen auto: expected a screen of one"},
           Case{"@grey.png", 1, "--screen: none was given, and the plate shows none"},
           Case{"@grey.png --screen 0,1,0 --reference auto", 1,
                "--reference auto: expected a screen"},
       }) {
    const Outcome outcome = orvanite(folder, "key -o @out.png " + wrong.words);
    EXPECT_EQ(outcome.code, wrong.code) << wrong.message;
    EXPECT_NE(outcome.err.find(wrong.message), std::string::npos) << outcome.err;
  }
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"grey.png", "plate.png"}));
}

}  // namespace
}  // namespace orvanite::test
