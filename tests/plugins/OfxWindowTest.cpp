// SPDX-License-Identifier: BSD-3-Clause
//
// Windows, scales and fields that hosts seldom ask for and some day do: each against the flat
// interface, and with a finish against the whole frame keyed at that scale.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <random>
#include <utility>
#include <vector>

#include "keyer/Keyer.h"
#include "tests/plugins/OfxScene.h"

namespace ofxTest {
namespace {

using orvanite::Settings;

Settings settingsOf(bool finished) {
  Settings settings;
  settings.setText("screen", "0.14,0.6,0.2");
  settings.setText("output", "unpremultiplied");
  settings.setNumber("screenRange", 0.05);
  if (!finished) return settings;
  for (const auto& [name, value] :
       std::initializer_list<std::pair<const char*, double>>{{"matteBlack", 0.1},
                                                             {"shrink", 1.5},
                                                             {"soften", 3},
                                                             {"edgeColour", 0.5},
                                                             {"edgeReach", 5},
                                                             {"spill", 0.7}}) {
    settings.setNumber(name, value);
  }
  return settings;
}

struct Row {
  const char* what;
  ofx::RectI bounds;  // of plate and output, in pixels
  ofx::RectI asked;
  double scale = 1, aspect = 1;
  bool upsideDown = false;
  int padBytes = 0, shiftBytes = 0;
  const char* field = "OfxFieldNone";
};
const Row rows[] = {
    {"the first pixel", {0, 0, 9, 7}, {0, 0, 1, 1}},
    {"the last pixel", {0, 0, 9, 7}, {8, 6, 9, 7}},
    {"a pixel amid odd offsets", {-7, -3, 12, 10}, {1, 5, 2, 6}},
    {"a picture of one pixel", {3, 5, 4, 6}, {3, 5, 4, 6}},
    {"a picture of one column", {-1, 0, 0, 17}, {-1, 0, 0, 17}},
    {"a picture of one line", {-5, 11, 28, 12}, {-5, 11, 28, 12}},
    {"a column", {-7, -3, 12, 10}, {-7, -3, -6, 10}},
    {"a line", {-7, -3, 12, 10}, {-7, 9, 12, 10}},
    {"beyond the picture", {-7, -3, 12, 10}, {5, -30, 90, 4}},
    {"rows downwards", {-7, -3, 12, 10}, {-5, -3, 11, 10}, 1, 1, true},
    {"rows downwards, apart, off by a byte", {-7, -3, 12, 10}, {-5, -2, 11, 9}, 1, 1, true, 7, 1},
    {"half size", {-7, -3, 12, 10}, {-5, -3, 11, 10}, 0.5},
    {"a pixel at a quarter of the size", {-7, -3, 12, 10}, {1, 5, 2, 6}, 0.25},
    {"pixels twice as wide", {-7, -3, 12, 10}, {-5, -3, 11, 10}, 1, 2},
    {"half size of pixels twice as wide", {-7, -3, 12, 10}, {0, 0, 12, 3}, 0.5, 2, true},
    {"the lower field", {-7, -3, 12, 10}, {-5, -3, 11, 10}, 1, 1, false, 0, 0, "OfxFieldLower"},
    {"the upper field", {-7, -3, 12, 10}, {-5, -2, 11, 9}, 1, 1, true, 4, 0, "OfxFieldUpper"},
    {"a line of the other field",
     {-7, -3, 12, 10},
     {-7, 4, 12, 5},
     1,
     1,
     false,
     0,
     0,
     "OfxFieldUpper"},
    {"a line of its field, half size",
     {-7, -3, 12, 10},
     {-7, 4, 12, 5},
     0.5,
     1,
     false,
     0,
     0,
     "OfxFieldLower"},
    {"no width", {-7, -3, 12, 10}, {3, 2, 3, 9}},
    {"no height", {-7, -3, 12, 10}, {3, 2, 9, 2}},
    {"turned around", {-7, -3, 12, 10}, {9, 9, 3, 2}},
    {"elsewhere", {-7, -3, 12, 10}, {40, 2, 50, 9}},
};

// The whole frame as the keyer keys it, its first row on top.
HostImage keyedWhole(const Settings& settings, HostImage& plate, double scale) {
  const ofx::RectI b = plate.layout().bounds;
  const int depth = plate.layout().depth, width = b.x2 - b.x1, height = b.y2 - b.y1;
  HostImage from({b, 4, depth}), to({b, 4, depth});
  for (int y = b.y1; y < b.y2; ++y) {
    for (int x = b.x1; x < b.x2; ++x) {
      for (int c = 0; c < 4; ++c) from.setCode(x, y, c, plate.code(x, y, c));
    }
  }
  const auto topDown = [&](HostImage& image) {
    std::byte* const at = image.pixel(b.x1, b.y2 - 1);
    return OtileImage{at, at + depth, at + 2 * depth, at + 3 * depth, 4, -4 * width};
  };
  orvanite::Keyer keyer;
  keyer.prepare(settings, static_cast<orvanite::Depth>(depth), {}, static_cast<float>(scale));
  orvanite::Frame frame{{}, width, height, static_cast<orvanite::Depth>(depth)};
  frame.pictures.fg = topDown(from);
  frame.pictures.dst = topDown(to);
  keyer.render(frame, orvanite::bandAfterBand);
  return to;
}

}  // namespace

TEST(OfxWindow, OfAnyShapeScaleAndFieldHasTheWholeFramesBytesAndTouchesNothingElse) {
  for (const bool finished : {false, true}) {
    const Settings settings = settingsOf(finished);
    for (const int depth : {1, 2, 4}) {
      for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.what) + ", depth " + std::to_string(depth) +
                     (finished ? ", finished" : ""));
        std::mt19937 random(31);
        const Layout layout{row.bounds,     4,    depth, row.padBytes, row.shiftBytes,
                            row.upsideDown, false};
        Pictures in;
        in.source = randomImage(random, layout);
        auto dst = randomImage(random, layout);
        const HostImage before = *dst;
        const auto wanted =
            finished ? std::make_unique<HostImage>(keyedWhole(settings, *in.source, row.scale))
                     : flatKey(settings, in, row.bounds, depth);
        ASSERT_TRUE(wanted);
        Loaded loaded;
        give(*loaded.effect, settings);
        connect(*loaded.effect, "Source", in.source);
        connect(*loaded.effect, "Output", dst);
        for (const auto& image : {in.source, dst}) {
          image->props.set("OfxImagePropPixelAspectRatio", row.aspect)
              .setDoubles("OfxImageEffectPropRenderScale", {row.scale, row.scale});
        }
        for (const char* clip : {"Source", "Output"}) {
          ofx::RectD& region = loaded.effect->clips.at(clip).region;
          region = {region.x1 * row.aspect / row.scale, region.y1 / row.scale,
                    region.x2 * row.aspect / row.scale, region.y2 / row.scale};
          loaded.effect->clips.at(clip).props.set("OfxImagePropPixelAspectRatio", row.aspect);
        }
        loaded.create();
        ASSERT_EQ(loaded.host.render(*loaded.effect, row.asked, 0, row.field, row.scale), ofx::ok);

        const ofx::RectI window{
            std::max(row.asked.x1, row.bounds.x1), std::max(row.asked.y1, row.bounds.y1),
            std::min(row.asked.x2, row.bounds.x2), std::min(row.asked.y2, row.bounds.y2)};
        if (window.x1 >= window.x2 || window.y1 >= window.y2) {
          EXPECT_TRUE(dst->guardsHold({0, 0, 0, 0}, before));
          continue;
        }
        EXPECT_TRUE(dst->guardsHold(window, before));
        HostImage old = before;
        const std::string field = row.field;
        for (int y = window.y1; y < window.y2; ++y) {
          const bool odd = (y & 1) != 0;
          const bool other =
              (field == "OfxFieldLower" && odd) || (field == "OfxFieldUpper" && !odd);
          HostImage& from = other ? old : *wanted;
          ASSERT_EQ(std::memcmp(dst->pixel(window.x1, y), from.pixel(window.x1, y),
                                static_cast<std::size_t>((window.x2 - window.x1) * 4 * depth)),
                    0)
              << "line " << y;
        }
      }
    }
  }
}

// A finish looks so many pixels around it; regions are canonical, where a pixel is aspect over
// scale wide and one over scale high.
TEST(OfxWindow, AsksForWhatTheFinishSeesAtThatScaleAndForNothingWhereNothingIsAsked) {
  const Settings settings = settingsOf(true);
  const struct {
    double scale, aspect;
    ofx::RectD asked;
  } cases[] = {{1, 1, {0, 10, 5, 20}},    {0.5, 1, {0, 10, 5, 20}}, {0.25, 1, {0, 10, 5, 20}},
               {1, 2, {0, 10, 5, 20}},    {0.5, 2, {0, 10, 5, 20}}, {1, 0.5, {0, 10, 5, 20}},
               {1, 1, {4, 10, 4, 20}},    {1, 1, {4, 10, 9, 10}},   {0.5, 2, {7, 7, 7, 7}},
               {1, 1, {-3.5, -2, -3, -1}}};
  for (const auto& each : cases) {
    SCOPED_TRACE(std::to_string(each.scale) + " " + std::to_string(each.aspect));
    std::mt19937 random(2);
    Loaded loaded;
    give(*loaded.effect, settings);
    connect(*loaded.effect, "Source", randomImage(random, {{0, 0, 40, 40}, 4, 1}));
    loaded.effect->clips.at("Source").props.set("OfxImagePropPixelAspectRatio", each.aspect);
    loaded.create();
    orvanite::Keyer keyer;
    keyer.prepare(settings, orvanite::Depth::bytes, {}, static_cast<float>(each.scale));
    ASSERT_GT(keyer.border(), 0);
    const bool none = each.asked.x1 == each.asked.x2 || each.asked.y1 == each.asked.y2;
    const double up = none ? 0 : keyer.border() / each.scale;
    const double across = up * std::max(1.0, each.aspect);
    Props in, out;
    in.set("OfxPropTime", 0.0)
        .setDoubles("OfxImageEffectPropRenderScale", {each.scale, each.scale})
        .setDoubles("OfxImageEffectPropRegionOfInterest",
                    {each.asked.x1, each.asked.y1, each.asked.x2, each.asked.y2});
    ASSERT_EQ(loaded.host.call("OfxImageEffectActionGetRegionsOfInterest", loaded.effect.get(), &in,
                               &out),
              ofx::ok);
    const double wanted[] = {each.asked.x1 - across, each.asked.y1 - up, each.asked.x2 + across,
                             each.asked.y2 + up};
    for (std::size_t i = 0; i < 4; ++i) {
      EXPECT_DOUBLE_EQ(out.real("OfxImageClipPropRoI_Source", i), wanted[i]) << i;
    }
  }
}

}  // namespace ofxTest
