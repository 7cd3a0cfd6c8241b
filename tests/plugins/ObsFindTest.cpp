// SPDX-License-Identifier: BSD-3-Clause
//
// How the filter for OBS comes to a key, frame by frame: frames are counted, no time is.
#include <gtest/gtest.h>

#include "tests/plugins/ObsStepped.h"

namespace obsTest {
namespace {

// A plate's frame with another exposure, or with two channels swapped.
void scale(const Plate& plate, double by, const ObsFrame& to, bool blue = false) {
  for (int y = 0; y < height; ++y) {
    std::uint8_t* const row = to->data[0] + static_cast<std::size_t>(y) * to->linesize[0];
    for (int i = 0; i < 4 * width; ++i) {
      row[i] = static_cast<std::uint8_t>(
          std::lround(by * plate.rgba[static_cast<std::size_t>(y * 4 * width + i)]));
    }
    for (int x = 0; blue && x < width; ++x) std::swap(row[4 * x + 1], row[4 * x + 2]);
  }
}

std::vector<std::uint8_t> bytesOf(const ObsFrame& frame) {
  std::vector<std::uint8_t> made;
  for (int y = 0; y < height; ++y) {
    const std::uint8_t* const row =
        frame->data[0] + static_cast<std::size_t>(y) * frame->linesize[0];
    made.insert(made.end(), row, row + 4 * width);
  }
  return made;
}

// How far a frame is at most from being that much of the way from one key to another. Colours weigh
// what their mattes let through.
double farFromMix(const ObsSeen& frame, const std::vector<std::uint8_t>& old,
                  const std::vector<std::uint8_t>& now, double part) {
  double most = 0;
  for (std::size_t i = 0; i < frame.bytes.size(); i += 4) {
    const double weightOld = (1 - part) * old[i + 3], weightNow = part * now[i + 3];
    const double matte = weightOld + weightNow;
    most = std::max(most, std::abs(frame.bytes[i + 3] - matte));
    for (std::size_t c = i; matte > 0 && c < i + 3; ++c) {
      const double colour = (old[c] * weightOld + now[c] * weightNow) / matte;
      most = std::max(most, std::abs(frame.bytes[c] - colour));
    }
  }
  return most;
}

// The key of a look, by the C interface: the screen's middle colour and a range for it, found in
// every so manieth pixel.
std::vector<std::uint8_t> seenKey(const std::vector<std::uint8_t>& rgba, int w, int h, int every) {
  std::vector<std::uint8_t> seen;
  for (int y = 0; y < h; y += every) {
    for (int x = 0; x < w; x += every) {
      const auto at = rgba.begin() + 4 * (y * w + x);
      seen.insert(seen.end(), at, at + 4);
    }
  }
  const Own<OrvaniteKeyer> keyer(orvanite_keyerNew());
  orvanite_keyerSetText(keyer.get(), "output", "unpremultiplied");
  orvanite_keyerSetText(keyer.get(), "colourspace", "video");
  const OrvaniteImage image = imageOf(seen, (w + every - 1) / every, (h + every - 1) / every);
  OrvaniteScreen screen{};
  EXPECT_EQ(orvanite_keyerFindScreen(keyer.get(), &image, &screen), ORVANITE_OK);
  const double colour[] = {screen.colour[0], screen.colour[1], screen.colour[2]};
  orvanite_keyerSetNumbers(keyer.get(), "screen", colour, 3);
  for (const char* each : {"shadowBalance", "midtoneBalance", "highlightBalance", "midTonesAt"}) {
    orvanite_keyerSetText(keyer.get(), each, "0.5");
  }
  for (const char* each : {"shadowGain", "midtoneGain", "highlightGain"}) {
    orvanite_keyerSetText(keyer.get(), each, "0");
  }
  EXPECT_EQ(orvanite_keyerFind(keyer.get(), &image, ORVANITE_CLEAN_PLATE_NEVER), ORVANITE_OK);
  return keyed(keyer.get(), rgba, w, h);
}

TEST_F(SteppedObs, ShowsNothingThenTheKeyOfALookThenGlidesToThatOfASearch) {
  const Plate plate(rgbaForm, width, height);
  start("{}");
  EXPECT_TRUE(isBlank(show(plate.frame)));
  EXPECT_EQ(waiting.size(), 1U);  // in the first frame already
  EXPECT_EQ(state(), "No screen found yet: nothing is shown.");
  EXPECT_EQ(framesAlike(plate.frame, 5), 5);
  EXPECT_TRUE(isBlank(show(plate.frame)));
  EXPECT_EQ(waiting.size(), 1U);

  step();
  const ObsSeen seen = show(plate.frame);  // the next frame has a key
  EXPECT_TRUE(isKeyed(seen));
  EXPECT_EQ(seen.bytes, seenKey(plate.rgba, width, height, 1));
  EXPECT_EQ(waiting.size(), 1U);
  EXPECT_EQ(framesAlike(plate.frame, 5), 5);
  EXPECT_EQ(state(), "A screen is seen; its key is being made better.");
  const std::string early = saved();

  step();
  const auto expected = keyed(foundKeyer(plate.rgba).get(), plate.rgba);
  EXPECT_NE(expected, seen.bytes);
  for (int i = 1; i <= 30; ++i) {
    EXPECT_LE(farFromMix(show(plate.frame), seen.bytes, expected, i / 30.0), 0.5001) << i;
  }
  EXPECT_EQ(show(plate.frame).bytes, expected);

  // Looks see the same screen: then it is settled.
  EXPECT_EQ(work(plate.frame, 1000), 4);
  EXPECT_EQ(show(plate.frame).bytes, expected);
  EXPECT_EQ(state(), "The screen was found.");

  // With the settings that a scene keeps the first frame is keyed: by the search, which is not
  // done again, or by the look, which the search follows.
  const struct {
    std::string settings;
    const std::vector<std::uint8_t>& bytes;
    std::size_t searches;
  } starts[] = {{saved(), expected, 0}, {early, seen.bytes, 1}};
  for (const auto& each : starts) {
    start(each.settings.c_str());
    EXPECT_EQ(show(plate.frame).bytes, each.bytes);
    EXPECT_EQ(waiting.size(), each.searches);
  }
}

// 320 pixels of a longer side: every third of 701.
TEST_F(SteppedObs, LooksAtASmallPictureOfALargeFrame) {
  const Plate plate(rgbaForm, 701, 400);
  start("{}");
  show(plate.frame);
  step();
  const auto expected = seenKey(plate.rgba, 701, 400, 3);
  EXPECT_NE(expected, seenKey(plate.rgba, 701, 400, 1));
  EXPECT_EQ(show(plate.frame).bytes, expected);
}

TEST_F(SteppedObs, FollowsAScreenWhoseLightSettlesAndLeavesOneAloneThatNeverDoes) {
  const Plate plate(rgbaForm, width, height);
  const ObsFrame dark(VIDEO_FORMAT_RGBA, width, height);
  scale(plate, 0.5, dark);
  start("{}");
  // A look, a search and two looks more in the dark; then the camera opens its eyes.
  work(dark, 33);
  EXPECT_EQ(show(dark).bytes, keyed(foundKeyer(bytesOf(dark)).get(), bytesOf(dark)));
  work(dark, 120);
  EXPECT_EQ(work(plate.frame, 1000), 1 + 1 + 4);
  EXPECT_EQ(show(plate.frame).bytes, keyed(foundKeyer(plate.rgba).get(), plate.rgba));

  start("{}");
  int searches = 0;
  for (int i = 0; i < 1000; ++i) searches += work(i / 61 % 2 == 0 ? plate.frame : dark, 1);
  EXPECT_EQ(searches, 2 * 3);  // each search after a look
  EXPECT_EQ(state(), "The screen was found.");
}

TEST_F(SteppedObs, LooksNowAndThenWhileThereIsNoScreenAndShowsTheSourceWhereThatIsWanted) {
  const ObsFrame grey(VIDEO_FORMAT_RGBA, width, height);
  scale(Plate(rgbaForm, width, height), 0, grey);
  start("{}");
  EXPECT_EQ(work(grey, 160), 10);
  EXPECT_TRUE(isBlank(show(grey)));
  set(R"({"unkeyed": "source"})");
  EXPECT_EQ(state(), "No screen found yet: the source is shown as it is.");
  EXPECT_EQ(show(grey).bytes, bytesOf(grey));
}

TEST_F(SteppedObs, KeepsItsKeyWhileTheScreenIsLookedForAgain) {
  const Plate plate(rgbaForm, width, height);
  const ObsFrame blue(VIDEO_FORMAT_RGBA, width, height);
  scale(plate, 1, blue, true);
  start("{}");
  work(plate.frame, 70);
  const ObsSeen before = show(plate.frame);
  ASSERT_TRUE(isKeyed(before));
  press("findAgain");
  EXPECT_EQ(state(), "The screen is looked for again.");
  EXPECT_EQ(show(plate.frame).bytes, before.bytes);
  ASSERT_EQ(waiting.size(), 1U);
  // Pressed once more: what the look finds in the frame of before is not taken.
  press("findAgain");
  step();
  EXPECT_FALSE(isKeyed(show(blue)));
  step();
  EXPECT_TRUE(isKeyed(show(blue)));  // at once, without a glide
  // In another encoding the same colours serve until they are found anew.
  set(R"({"colourspace": "linear"})");
  step();
  EXPECT_FALSE(isBlank(show(blue)));
  // Nothing is looked for once a colour is set; what was under way is dropped.
  set(greenScreen);
  step();
  EXPECT_TRUE(isKeyed(show(plate.frame)));
  EXPECT_TRUE(waiting.empty());
}

}  // namespace
}  // namespace obsTest
