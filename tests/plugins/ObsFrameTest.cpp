// SPDX-License-Identifier: BSD-3-Clause
//
// Frames of strange sizes, layouts and kinds, one after another through one filter for OBS, against
// the keyer's C interface.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "tests/plugins/ObsStepped.h"

namespace obsTest {
namespace {

// Sizes and formats change with every frame, as a camera's do that is set while it runs.
TEST_F(SteppedObs, KeysFramesOfAnySizeInEveryFormatOneAfterAnother) {
  const struct {
    int w, h, gap;
  } sizes[] = {{1, 1, 0}, {2, 1, 0}, {1, 2, 0}, {3, 1, 0},  {1, 3, 0},  {2, 2, 14},  {3, 3, 0},
               {5, 4, 3}, {4, 5, 0}, {7, 7, 9}, {17, 2, 0}, {2, 17, 0}, {33, 19, 0}, {161, 91, 5}};
  start(greenScreen);
  const auto reference = greenKeyer();
  std::size_t other = 0, all = 0;
  for (const auto& [w, h, gap] : sizes) {
    for (const Form& form : forms) {
      SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h) + " " +
                   get_video_format_name(form.format));
      const Plate plate(form, w, h, gap);
      const ObsSeen seen = show(plate.frame);
      ASSERT_EQ(seen.format, VIDEO_FORMAT_RGBA);
      ASSERT_EQ(seen.width, w);
      ASSERT_EQ(seen.height, h);
      const auto expected = keyed(reference.get(), plate.rgba, w, h);
      ASSERT_EQ(seen.bytes.size(), expected.size());
      int most = 0;
      for (std::size_t i = 0; i < expected.size(); ++i) {
        const int apart = std::abs(seen.bytes[i] - expected[i]);
        most = std::max(most, apart);
        other += apart > 0;
      }
      all += expected.size();
      // Codes come from floats here and from doubles by the book: one in thousands is rounded
      // apart.
      EXPECT_LE(most, format_is_yuv(form.format) ? 3 : 0);
    }
  }
  EXPECT_LT(other, all / 5000);
}

TEST_F(SteppedObs, ShowsNothingOfWhatCannotBeKeyedUnlessThatIsWanted) {
  const struct {
    const char* what;
    video_format format;
    void (*spoil)(obs_source_frame&);
    bool hasSize;
    const char* says;
  } rows[] = {
      {"grey", VIDEO_FORMAT_Y800, [](obs_source_frame&) {}, true, "expected YUV or RGB"},
      {"PQ", VIDEO_FORMAT_I010, [](obs_source_frame& f) { f.trc = VIDEO_TRC_PQ; }, true,
       "high dynamic range"},
      {"HLG", VIDEO_FORMAT_P010, [](obs_source_frame& f) { f.trc = VIDEO_TRC_HLG; }, true,
       "high dynamic range"},
      {"no width", VIDEO_FORMAT_I420, [](obs_source_frame& f) { f.width = 0; }, false,
       "without pixels"},
      {"no height", VIDEO_FORMAT_RGBA, [](obs_source_frame& f) { f.height = 0; }, false,
       "without pixels"},
      {"no format", VIDEO_FORMAT_RGBA, [](obs_source_frame& f) { f.format = VIDEO_FORMAT_NONE; },
       true, "expected YUV or RGB"},
  };
  const Plate plate(rgbaForm, width, height);
  const auto expected = keyed(greenKeyer().get(), plate.rgba);
  for (const char* unkeyed : {"nothing", "source"}) {
    for (const auto& row : rows) {
      SCOPED_TRACE(std::string(row.what) + ", " + unkeyed);
      start(greenScreen);
      set((R"({"unkeyed": ")" + std::string(unkeyed) + R"("})").c_str());
      host->said();
      const bool hidden = unkeyed == std::string("nothing");
      const ObsFrame odd(row.format, 6, 4);
      row.spoil(*odd);
      for (int i = 0; i < 3; ++i) {
        odd->refs = 2;
        odd->timestamp = 1234;
        obs_source_frame* const shown = filter_->filter(&*odd);
        EXPECT_EQ(odd->refs, hidden ? 1 : 2);  // given back, or handed on
        if (!hidden) {
          EXPECT_EQ(shown, &*odd);
          continue;
        }
        ASSERT_EQ(shown != nullptr, row.hasSize);
        if (!shown) continue;
        EXPECT_EQ(shown->format, VIDEO_FORMAT_RGBA);
        EXPECT_EQ(shown->width, 6U);
        EXPECT_EQ(shown->height, 4U);
        EXPECT_EQ(shown->timestamp, 1234U);
        for (std::uint32_t y = 0; y < 4; ++y) {
          const std::uint8_t* const from = shown->data[0] + y * shown->linesize[0];
          EXPECT_EQ(std::count(from, from + 24, 0), 24) << "line " << y;
        }
        obs_source_release_frame(host->source(), shown);
      }
      const auto said = host->said();
      ASSERT_EQ(said.size(), 1U);
      EXPECT_NE(said[0].find(row.says), std::string::npos) << said[0];
      EXPECT_EQ(show(plate.frame).bytes, expected);  // and the next one is keyed as ever
    }
  }
}

TEST_F(SteppedObs, HandsOnWhenAFrameIsAndWhichWayUp) {
  start(greenScreen);
  const Plate plate(rgbaForm, 6, 4);
  for (const bool flip : {true, false}) {
    plate.frame->refs = 2;
    plate.frame->flip = flip;
    plate.frame->timestamp = 99 + flip;
    obs_source_frame* const shown = filter_->filter(&*plate.frame);
    ASSERT_NE(shown, &*plate.frame);
    EXPECT_EQ(shown->flip, flip);
    EXPECT_EQ(shown->timestamp, 99U + flip);
    EXPECT_TRUE(shown->full_range);
    obs_source_release_frame(host->source(), shown);
  }
}

}  // namespace
}  // namespace obsTest
