// SPDX-License-Identifier: BSD-3-Clause
//
// What looks at more than a pixel: keys beside estimates of the whole plate, and the finish. The
// wanted bytes are those of the keyer that the command uses, handed the whole frame with its first
// row on top; the host asks for tiles.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "keyer/BlindKeyer.h"
#include "keyer/Keyer.h"
#include "tests/plugins/OfxScene.h"

namespace ofxTest {

namespace {

using orvanite::Settings;

constexpr ofx::RectI frame{-5, 4, 91, 60};
constexpr int width = frame.x2 - frame.x1, height = frame.y2 - frame.y1;

// A green screen that loses a quarter of its light to the right, a subject in skin with a soft
// edge.
std::shared_ptr<HostImage> unevenPlate(Layout layout) {
  layout.bounds = frame;
  auto plate = std::make_shared<HostImage>(layout);
  std::mt19937 random(5);
  const double top = layout.depth == 4 ? 1 : layout.depth == 1 ? 255 : 65535;
  for (int y = frame.y1; y < frame.y2; ++y) {
    for (int x = frame.x1; x < frame.x2; ++x) {
      const double light = 1 - 0.25 * (x - frame.x1) / width;
      const double into = (x - 50 + (y > 40 ? 8 : 0)) / 6.0;
      const double part = into < 0 ? 0 : into > 1 ? 1 : into;
      const double screen[] = {0.15 * light, 0.65 * light, 0.22 * light};
      const double skin[] = {0.7, 0.5, 0.42};
      const double grain = (static_cast<double>(random() % 5) - 2) / 255;
      for (int c = 0; c < layout.channels; ++c) {
        const double value = c == 3 ? 1 : part * skin[c] + (1 - part) * screen[c] + grain;
        plate->setCode(x, y, c, layout.depth == 4 ? value : std::floor(value * top + 0.5));
      }
    }
  }
  return plate;
}

// The pixels of a picture with its first row on top, four channels without gaps.
struct Rows {
  explicit Rows(HostImage& image)
      : depth(image.layout().depth), bytes(static_cast<std::size_t>(width * height * 4 * depth)) {
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        std::memcpy(at(x, y), image.pixel(frame.x1 + x, frame.y2 - 1 - y),
                    static_cast<std::size_t>(4 * depth));
      }
    }
  }
  std::byte* at(int x, int y) {
    return bytes.data() + static_cast<std::size_t>((y * width + x) * 4 * depth);
  }
  OtileImage image() {
    std::byte* p = bytes.data();
    return {p, p + depth, p + 2 * depth, p + 3 * depth, 4, 4 * width};
  }
  int depth;
  std::vector<std::byte> bytes;
};

// Asks for the frame in tiles of all sizes, all at once, and compares.
void expectTiles(Loaded& loaded, const std::shared_ptr<HostImage>& dst, Rows& wanted) {
  const ofx::RectI tiles[] = {{frame.x1, frame.y1, 20, 31},
                              {20, frame.y1, frame.x2, 31},
                              {frame.x1, 31, frame.x2, 32},
                              {frame.x1, 32, frame.x2, frame.y2}};
  std::atomic<int> failures = 0;
  std::vector<std::thread> threads;
  for (const ofx::RectI& tile : tiles) {
    threads.emplace_back([&] { failures += loaded.host.render(*loaded.effect, tile) != ofx::ok; });
  }
  for (std::thread& thread : threads) thread.join();
  ASSERT_EQ(failures, 0);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      ASSERT_EQ(std::memcmp(dst->pixel(frame.x1 + x, frame.y2 - 1 - y), wanted.at(x, y),
                            static_cast<std::size_t>(4 * wanted.depth)),
                0)
          << x << ',' << y << " of depth " << wanted.depth;
    }
  }
}

std::vector<double> regionOf(Loaded& loaded, const char* clip, const ofx::RectD& asked) {
  Props in, out;
  in.set("OfxPropTime", 0.0)
      .setDoubles("OfxImageEffectPropRenderScale", {1.0, 1.0})
      .setDoubles("OfxImageEffectPropRegionOfInterest", {asked.x1, asked.y1, asked.x2, asked.y2});
  EXPECT_EQ(
      loaded.host.call("OfxImageEffectActionGetRegionsOfInterest", loaded.effect.get(), &in, &out),
      ofx::ok);
  const std::string name = std::string("OfxImageClipPropRoI_") + clip;
  return {out.real(name, 0), out.real(name, 1), out.real(name, 2), out.real(name, 3)};
}

}  // namespace

TEST(OfxEstimates, OfAPressedAutoKeyEveryTileAsTheWholeFrameIs) {
  for (const int depth : {1, 2, 4}) {
    Layout layout;
    layout.depth = depth;
    layout.upsideDown = depth == 2;
    auto plate = unevenPlate(layout);
    layout.bounds = frame;
    auto dst = std::make_shared<HostImage>(layout);
    Loaded loaded({}, filter);
    connect(*loaded.effect, "Source", plate);
    connect(*loaded.effect, "Output", dst);
    Settings given;
    given.setText("colourspace", depth == 4 ? "linear" : "video");
    give(*loaded.effect, given);
    loaded.effect->params.at("output").value = {4};  // the foreground, straight
    loaded.create();
    ASSERT_EQ(loaded.host.changed(*loaded.effect, "autoKey"), ofx::ok);
    EXPECT_EQ(loaded.effect->edits, 1);
    EXPECT_GT(std::get<int>(loaded.effect->params.at("estimate").value[0]), 0);

    Rows rows(*plate), wanted(*plate);
    const orvanite::Plate whole{rows.image(), width, height, static_cast<orvanite::Depth>(depth)};
    const orvanite::BlindKey key = orvanite::findKey(whole, given);
    Settings settings = key.settings;
    settings.setText("output", "unpremultiplied");
    orvanite::BlindKeyer keyer;
    keyer.prepare(key, settings, static_cast<orvanite::Depth>(depth), {});
    orvanite::Frame keyed{{}, width, height, static_cast<orvanite::Depth>(depth)};
    keyed.pictures.fg = rows.image();
    keyed.pictures.dst = wanted.image();
    // As the command carries it from frame to frame.
    keyer.render(key.carriedTo(whole), keyed, orvanite::bandAfterBand);
    expectTiles(loaded, dst, wanted);

    // Estimates look at the whole plate, refined edges twelve pixels around the tile.
    const std::vector<double> all{0.0 - 12, 10.0 - 12, frame.x2, frame.y2};
    EXPECT_EQ(regionOf(loaded, "Source", {0, 10, 5, 20}), all);
  }
}

// An instance whose screen colour has changed keys like one that never had another.
TEST(OfxEstimates, FollowTheOrderOfTheScreensChannels) {
  Layout layout;
  layout.depth = 1;
  auto plate = unevenPlate(layout);
  layout.bounds = frame;
  const auto keyedBy = [&](const std::vector<const char*>& screens) {
    auto dst = std::make_shared<HostImage>(layout);
    Loaded loaded({}, filter);
    connect(*loaded.effect, "Source", plate);
    connect(*loaded.effect, "Output", dst);
    Settings settings;
    settings.setText("estimate", "codes");
    settings.setText("output", "matte");
    for (const char* screen : screens) {
      settings.setText("screen", screen);
      give(*loaded.effect, settings);
      if (screen == screens.front()) loaded.create();
      EXPECT_EQ(loaded.host.render(*loaded.effect, frame), ofx::ok);
    }
    return Rows(*dst).bytes;
  };
  const char* const green = "0.15,0.65,0.22";
  const char* const red = "0.65,0.15,0.22";
  const auto byGreen = keyedBy({green}), byRed = keyedBy({red});
  EXPECT_NE(byGreen, byRed);
  EXPECT_EQ(keyedBy({red, green}), byGreen);
  EXPECT_EQ(keyedBy({green, red}), byRed);
}

// A frame that shows no screen, a fade for instance, is keyed by its numbers alone.
TEST(OfxEstimates, AreLeftOutOfAFrameWithoutAScreen) {
  std::mt19937 random(8);
  Pictures in;
  in.source = randomImage(random, {{0, 0, 12, 12}, 4, 1});
  auto dst = std::make_shared<HostImage>(Layout{{0, 0, 12, 12}, 4, 1});
  Loaded loaded;
  connect(*loaded.effect, "Source", in.source);
  connect(*loaded.effect, "Output", dst);
  Settings settings;
  settings.setText("screen", "0.1,0.7,0.2");
  settings.setText("estimate", "light");
  give(*loaded.effect, settings);
  loaded.create();
  ASSERT_EQ(loaded.host.render(*loaded.effect, {0, 0, 12, 12}), ofx::ok);
  const auto wanted = flatKey(settings, in, {0, 0, 12, 12}, 1);
  for (int y = 0; y < 12; ++y) {
    ASSERT_EQ(std::memcmp(dst->pixel(0, y), wanted->pixel(0, y), 48), 0) << y;
  }
}

TEST(OfxFinish, OfEveryTileIsThatOfTheWholeFrame) {
  for (const int depth : {1, 2, 4}) {
    Layout layout;
    layout.depth = depth;
    auto plate = unevenPlate(layout);
    std::mt19937 random(2);
    auto below = randomImage(random, {frame, 4, depth});
    layout.bounds = frame;
    auto dst = std::make_shared<HostImage>(layout);
    Loaded loaded;
    connect(*loaded.effect, "Source", plate);
    connect(*loaded.effect, "Bg", below);
    connect(*loaded.effect, "Output", dst);
    Settings settings;
    settings.setText("screen", "0.14,0.6,0.2");
    for (const auto& [name, value] :
         std::initializer_list<std::pair<const char*, double>>{{"matteBlack", 0.1},
                                                               {"islands", 3},
                                                               {"pinholes", 2},
                                                               {"shrink", 0.75},
                                                               {"soften", 2},
                                                               {"edgeColour", 0.5},
                                                               {"edgeReach", 4},
                                                               {"spill", 0.7},
                                                               {"spillReplace", 3},
                                                               {"lightWrap", 0.4},
                                                               {"wrapReach", 5}}) {
      settings.setNumber(name, value);
    }
    give(*loaded.effect, settings);
    loaded.create();

    Rows rows(*plate), behind(*below), wanted(*plate);
    orvanite::Inputs inputs;
    inputs.background = true;
    orvanite::Keyer keyer;
    keyer.prepare(settings, static_cast<orvanite::Depth>(depth), inputs);
    orvanite::Frame keyed{{}, width, height, static_cast<orvanite::Depth>(depth)};
    keyed.pictures.fg = rows.image();
    keyed.pictures.bg = behind.image();
    keyed.pictures.dst = wanted.image();
    keyer.render(keyed, orvanite::bandAfterBand);
    expectTiles(loaded, dst, wanted);

    const double border = keyer.border();
    EXPECT_GE(border, 5);
    for (const char* clip : {"Source", "Bg"}) {
      EXPECT_EQ(regionOf(loaded, clip, {0, 10, 5, 20}),
                (std::vector<double>{-border, 10 - border, 5 + border, 20 + border}))
          << clip;
    }
  }
}

}  // namespace ofxTest
