// SPDX-License-Identifier: BSD-3-Clause
//
// What the plug-in's buttons, boxes and files do to the parameters, and what follows by itself.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "tests/plugins/OfxScene.h"

namespace ofxTest {

namespace {

double realOf(const EffectState& effect, const char* name, std::size_t index = 0) {
  return std::get<double>(effect.params.at(name).value[index]);
}

// Two thirds green screen with a grain of two codes, a shadow at the left, a subject in red.
// In 8-bit codes: screen (40, 170, 60), subject (180, 60, 50).
std::shared_ptr<HostImage> greenPlate(Layout layout) {
  layout.bounds = {-7, 3, 113, 63};
  auto plate = std::make_shared<HostImage>(layout);
  std::mt19937 random(11);
  const double top = plate->isReal() ? 1 : layout.depth == 1 ? 255 : 65535;
  for (int y = 3; y < 63; ++y) {
    for (int x = -7; x < 113; ++x) {
      const int grain = x >= 73 ? 0 : static_cast<int>(random() % 5) - 2;
      const int lit[] = {40 + grain, 170 + grain, 60 + grain, 255};
      const int dark[] = {20 + grain, 90 + grain, 25 + grain, 255};
      const int red[] = {180, 60, 50, 255};
      const int* const colour = x >= 73 ? red : x < 8 ? dark : lit;
      for (int c = 0; c < layout.channels; ++c) plate->setCode(x, y, c, colour[c] / 255.0 * top);
    }
  }
  return plate;
}

}  // namespace

// Hosts that set parameters without a word get the balances of the screen that is there; those of
// the user's stay.
TEST(OfxBalances, FollowTheScreenWhetherOrNotTheHostReportsEdits) {
  struct Row {
    const char* what;
    double screen[3];
    double midtone;  // as the host sets it; 0.9 is what a fresh panel shows
    bool reported;
    const char* inForce;  // by the table's rule: 0.5 for green, 0.9 for blue
  };
  for (const Row& row :
       {Row{"green, silently", {0.1, 0.7, 0.2}, 0.9, false, "0.5"},
        Row{"green, reported", {0.1, 0.7, 0.2}, 0.9, true, "0.5"},
        Row{"blue, silently", {0.1, 0.2, 0.7}, 0.9, false, "0.9"},
        Row{"green with a balance of the user's", {0.1, 0.7, 0.2}, 0.3, false, "0.3"},
        Row{"the same, reported", {0.1, 0.7, 0.2}, 0.3, true, "0.3"}}) {
    SCOPED_TRACE(row.what);
    Loaded loaded;
    std::mt19937 random(5);
    const ofx::RectI frame{0, 0, 20, 20};
    Pictures in;
    in.source = randomImage(random, {frame, 4, 1});
    auto dst = std::make_shared<HostImage>(Layout{frame, 4, 1});
    connect(*loaded.effect, "Source", in.source);
    connect(*loaded.effect, "Output", dst);
    loaded.create();
    const auto render = [&](const double* screen, const char* balance) {
      loaded.effect->params.at("screen").value = {screen[0], screen[1], screen[2]};
      if (row.reported) loaded.host.changed(*loaded.effect, "screen");
      ASSERT_EQ(loaded.host.render(*loaded.effect, frame), ofx::ok);
      orvanite::Settings settings;
      settings.setNumbers("screen", screen[0], screen[1], screen[2]);
      settings.setText("midtoneBalance", balance);
      const auto wanted = flatKey(settings, in, frame, 1);
      for (int y = 0; y < 20; ++y) {
        ASSERT_EQ(std::memcmp(dst->pixel(0, y), wanted->pixel(0, y), 80), 0) << "line " << y;
      }
    };
    if (row.midtone != 0.9) loaded.effect->params.at("midtoneBalance").value = {row.midtone};
    render(row.screen, row.inForce);
    // A panel that is told shows what is in force.
    const double shown = row.reported && row.midtone == 0.9 ? 0.5 : row.midtone;
    EXPECT_NEAR(realOf(*loaded.effect, "midtoneBalance"), shown, 1e-6);
    // And another hue later on, silently: what followed follows.
    const double blue[] = {0.1, 0.2, 0.8};
    loaded.effect->params.at("screen").value = {blue[0], blue[1], blue[2]};
    render(blue, row.midtone == 0.9 ? "0.9" : row.inForce);
  }
}

// Without a clean plate of any kind the key is of one colour. OfxEstimates tests the other one.
TEST(OfxAuto, SetsAKeyOfTheFrameAsOneStepThatKeysIt) {
  for (const bool half : {false, true}) {
    Layout layout;
    layout.half = half;
    layout.depth = half ? 2 : 1;
    Loaded loaded({}, filter);
    auto plate = greenPlate(layout);
    layout.bounds = plate->layout().bounds;
    auto dst = std::make_shared<HostImage>(layout);
    connect(*loaded.effect, "Source", plate);
    connect(*loaded.effect, "Output", dst);
    loaded.effect->params.at("exposure").value = {1.5, 1.5, 1.5};  // no part of a key
    loaded.effect->params.at("useReference").value = {0};
    loaded.effect->params.at("estimate").value = {1};
    loaded.create();
    EXPECT_EQ(loaded.host.changed(*loaded.effect, "autoKey"), ofx::ok);
    EXPECT_TRUE(loaded.effect->notes.empty()) << loaded.effect->notes[0];
    EXPECT_EQ(loaded.effect->edits, 1);
    EXPECT_EQ(realOf(*loaded.effect, "exposure"), 1.5);
    EXPECT_EQ(std::get<int>(loaded.effect->params.at("estimate").value[0]), 0);
    EXPECT_GT(realOf(*loaded.effect, "screen", 1), realOf(*loaded.effect, "screen", 2));
    ASSERT_EQ(loaded.host.render(*loaded.effect, layout.bounds), ofx::ok);
    const double top = half ? 1 : 255;
    for (int y = 3; y < 63; ++y) {
      for (int x = -7; x < 113; ++x) {
        const double alpha = dst->code(x, y, 3) / top;
        if (x < 8) continue;  // the shadow
        ASSERT_EQ(alpha, x >= 73 ? 1 : 0) << x << ',' << y;
      }
    }
  }
}

TEST(OfxPresets, AreSavedAndLoadedAndAWrongOneChangesNothing) {
  const std::string path = ::testing::TempDir() + "/orvaniteOfxPreset.json";
  std::filesystem::remove(path);
  std::mt19937 random(3);
  const ofx::RectI frame{0, 0, 12, 12};
  Pictures in;
  in.source = randomImage(random, {frame, 4, 2});
  orvanite::Settings settings = randomSettings(random);
  {
    Loaded loaded;
    give(*loaded.effect, settings);
    loaded.create();
    loaded.host.changed(*loaded.effect, "savePreset");
    EXPECT_EQ(loaded.effect->notes.size(), 1U) << "there is no file's name yet";
    loaded.effect->params.at("presetFile").value = {path};
    loaded.host.changed(*loaded.effect, "savePreset");
    ASSERT_TRUE(std::filesystem::exists(path));
    EXPECT_EQ(loaded.effect->notes.size(), 1U);
  }
  Loaded loaded;
  auto dst = std::make_shared<HostImage>(Layout{frame, 4, 2});
  connect(*loaded.effect, "Source", in.source);
  connect(*loaded.effect, "Output", dst);
  loaded.effect->params.at("presetFile").value = {path};
  loaded.create();
  loaded.host.changed(*loaded.effect, "loadPreset");
  EXPECT_EQ(loaded.effect->edits, 1);
  ASSERT_EQ(loaded.host.render(*loaded.effect, frame), ofx::ok);
  const auto wanted = flatKey(settings, in, frame, 2);
  for (int y = 0; y < 12; ++y) {
    ASSERT_EQ(std::memcmp(dst->pixel(0, y), wanted->pixel(0, y), 96), 0) << "line " << y;
  }
  std::ofstream(path)
      << "{\"orvanite\": \"preset\", \"version\": 1, \"parameters\": {\"scren\": 1}}";
  const auto kept = loaded.effect->params.at("screen").value;
  loaded.host.changed(*loaded.effect, "loadPreset");
  EXPECT_EQ(loaded.effect->params.at("screen").value, kept);
  ASSERT_EQ(loaded.effect->notes.size(), 1U);
  EXPECT_NE(loaded.effect->notes[0].find("did you mean 'screen'"), std::string::npos)
      << loaded.effect->notes[0];
  // A folder that cannot be: said, and nothing left behind.
  loaded.effect->params.at("presetFile").value = {path + "/no/such.json"};
  loaded.host.changed(*loaded.effect, "savePreset");
  EXPECT_EQ(loaded.effect->notes.size(), 2U);
  std::filesystem::remove(path);
}

TEST(OfxCleanPlate, IsKeyedInWordsWhereThePicturesAreFloatsAndSaysSo) {
  Loaded loaded;
  std::mt19937 random(3);
  const ofx::RectI frame{0, 0, 8, 8};
  connect(*loaded.effect, "Source", randomImage(random, {frame, 4, 4}));
  connect(*loaded.effect, "Reference", randomImage(random, {frame, 4, 4}));
  connect(*loaded.effect, "Output", randomImage(random, {frame, 4, 4}));
  loaded.create();
  EXPECT_EQ(loaded.host.render(*loaded.effect, frame), ofx::ok);
  ASSERT_EQ(loaded.effect->notes.size(), 1U);
  EXPECT_NE(loaded.effect->notes[0].find("OfxMessageMessage"), std::string::npos);
  EXPECT_NE(loaded.effect->notes[0].find("16 bits"), std::string::npos);
}

// Pen and box on the canonical plane; a pixel of the screen is half a unit.
TEST(OfxOverlay, MovesTheBoxInWhichTheScreenIsMeasured) {
  Manners manners;
  manners.drawSuite = true;
  Loaded loaded(manners);
  auto plate = greenPlate({});
  // At half size and with pixels two units wide, (-28, 6) is the corner (-7, 3) of the pixels.
  plate->props.set("OfxImagePropPixelAspectRatio", 2.0)
      .setDoubles("OfxImageEffectPropRenderScale", {0.5, 0.5});
  connect(*loaded.effect, "Source", plate);
  loaded.effect->params.at("boxPosition").value = {32.0, 10.0};
  loaded.effect->params.at("boxSize").value = {60.0, 40.0};
  loaded.create();
  const auto entry = reinterpret_cast<ofx::Status (*)(const char*, const void*, ofx::PropertySet,
                                                      ofx::PropertySet)>(
      std::get<void*>(
          loaded.descriptor->props.values.at("OfxImageEffectPluginPropOverlayInteractV2").at(0)));
  EffectState overlay;
  EXPECT_EQ(entry("OfxActionDescribe", &overlay, nullptr, nullptr), ofx::ok);
  ASSERT_EQ(entry("OfxActionCreateInstance", &overlay, nullptr, nullptr), ofx::ok);
  int canvas = 0;
  const auto act = [&](const char* action, double x, double y) {
    Props in;
    in.set<void*>("OfxPropEffectInstance", loaded.effect.get())
        .set<void*>("OfxInteractPropDrawContext", &canvas)
        .set("OfxPropTime", 0.0)
        .setDoubles("OfxInteractPropPixelScale", {0.5, 0.5})
        .setDoubles("OfxInteractPropPenPosition", {x, y});
    return entry(action, &overlay, in.handle(), nullptr);
  };
  const auto box = [&] {
    return std::vector<double>{
        realOf(*loaded.effect, "boxPosition", 0), realOf(*loaded.effect, "boxPosition", 1),
        realOf(*loaded.effect, "boxSize", 0), realOf(*loaded.effect, "boxSize", 1)};
  };
  // Switched off, there is nothing to draw or to hold.
  EXPECT_EQ(act("OfxInteractActionDraw", 0, 0), ofx::replyDefault);
  EXPECT_EQ(act("OfxInteractActionPenDown", 50, 30), ofx::replyDefault);
  loaded.effect->params.at("sampleBox").value = {1};
  EXPECT_EQ(act("OfxInteractActionDraw", 0, 0), ofx::ok);
  ASSERT_EQ(loaded.host.drawn.size(), 5U);  // the box and a knob at each corner
  EXPECT_EQ(loaded.host.drawn[0][2].x, 92);
  EXPECT_EQ(loaded.host.drawn[0][2].y, 50);

  EXPECT_EQ(act("OfxInteractActionPenDown", 200, 30), ofx::replyDefault);  // beside it
  EXPECT_EQ(act("OfxInteractActionPenMotion", 210, 30), ofx::replyDefault);
  EXPECT_EQ(act("OfxInteractActionPenDown", 50, 30), ofx::ok);  // inside
  EXPECT_EQ(act("OfxInteractActionPenMotion", 57, 25), ofx::ok);
  EXPECT_EQ(box(), (std::vector<double>{39, 5, 60, 40}));
  EXPECT_EQ(act("OfxInteractActionPenUp", 57, 25), ofx::ok);
  EXPECT_EQ(act("OfxInteractActionPenMotion", 0, 0), ofx::replyDefault);
  EXPECT_EQ(act("OfxInteractActionPenDown", 98, 46), ofx::ok);  // near the corner (99, 45)
  EXPECT_EQ(act("OfxInteractActionPenMotion", 88, 51), ofx::ok);
  EXPECT_EQ(box(), (std::vector<double>{39, 5, 50, 45}));
  EXPECT_EQ(act("OfxInteractActionPenMotion", -500, 51), ofx::ok);  // not past the other side
  EXPECT_EQ(box()[2], 2);
  EXPECT_EQ(act("OfxInteractActionPenUp", 0, 0), ofx::ok);
  EXPECT_EQ(entry("OfxActionDestroyInstance", &overlay, nullptr, nullptr), ofx::ok);

  // Pixels -7 to 7 are the shadow: the box over units -28 to 28 measures it, not the lit screen.
  loaded.effect->params.at("boxPosition").value = {-40.0, 6.0};
  loaded.effect->params.at("boxSize").value = {68.0, 100.0};
  EXPECT_EQ(loaded.host.changed(*loaded.effect, "sampleScreen"), ofx::ok);
  EXPECT_NEAR(realOf(*loaded.effect, "screen", 0) * 255, 20, 1);
  EXPECT_NEAR(realOf(*loaded.effect, "screen", 1) * 255, 90, 1);
  loaded.effect->params.at("boxPosition").value = {4000.0, 6.0};
  EXPECT_EQ(loaded.host.changed(*loaded.effect, "sampleScreen"), ofx::ok);
  ASSERT_EQ(loaded.effect->notes.size(), 1U);
  EXPECT_NE(loaded.effect->notes[0].find("beside the plate"), std::string::npos);
}

TEST(OfxScreen, IsMeasuredByTheButtonAndTakesTheBalancesAlong) {
  Layout layouts[3];
  layouts[1].depth = 2;
  layouts[1].channels = 3;
  layouts[1].padBytes = 3;
  layouts[1].shiftBytes = 1;
  layouts[2].depth = 4;
  layouts[2].upsideDown = true;
  for (Layout& layout : layouts) {
    SCOPED_TRACE(layout.depth);
    Loaded loaded;
    auto plate = greenPlate(layout);
    connect(*loaded.effect, "Source", plate);
    loaded.effect->params.at("shadowBalance").value = {0.7};  // the artist's own
    loaded.create();
    EXPECT_EQ(loaded.host.changed(*loaded.effect, "sampleScreen"), ofx::ok);
    const auto& screen = loaded.effect->params.at("screen").value;
    // The lit screen is (40, 170, 60) give or take the grain of two codes.
    EXPECT_NEAR(std::get<double>(screen[0]) * 255, 40, 2);
    EXPECT_NEAR(std::get<double>(screen[1]) * 255, 170, 2);
    EXPECT_NEAR(std::get<double>(screen[2]) * 255, 60, 2);
    EXPECT_EQ(std::get<double>(loaded.effect->params.at("shadowBalance").value[0]), 0.7);
    EXPECT_EQ(std::get<double>(loaded.effect->params.at("midtoneBalance").value[0]), 0.5);
    EXPECT_EQ(std::get<double>(loaded.effect->params.at("highlightBalance").value[0]), 0.5);
    EXPECT_TRUE(loaded.effect->notes.empty());

    // No screen, no new colour, but a word.
    const auto kept = screen;
    const double grey = plate->isReal() ? 0.4 : layout.depth == 1 ? 102 : 26214;
    for (int y = 3; y < 63; ++y) {
      for (int x = -7; x < 113; ++x) {
        for (int c = 0; c < layout.channels; ++c) plate->setCode(x, y, c, grey);
      }
    }
    EXPECT_EQ(loaded.host.changed(*loaded.effect, "sampleScreen"), ofx::ok);
    EXPECT_EQ(screen, kept);
    EXPECT_EQ(loaded.effect->notes.size(), 1U);
  }
}

}  // namespace ofxTest
