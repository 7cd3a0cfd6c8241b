// SPDX-License-Identifier: BSD-3-Clause
//
// The finish on whole frames: what each of its switches does, held against arithmetic and against
// models that look at one pixel at a time; the same bytes on any threads and from any part.
#include "keyer/Finish.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "keyer/Keyer.h"
#include "keyer/MatteFilter.h"
#include "keyer/Specks.h"

namespace orvanite {
namespace {

// A picture of any depth, written and read as 0..1.
struct Canvas {
  int width, height, depth;
  std::vector<unsigned char> bytes;

  Canvas(int w, int h, int d)
      : width(w), height(h), depth(d), bytes(static_cast<std::size_t>(w * h * 4 * d)) {}

  std::size_t at(int x, int y, int c) const {
    return static_cast<std::size_t>(((y * width + x) * 4 + c) * depth);
  }
  void set(int x, int y, int c, float value) {
    if (depth == 4) {
      std::memcpy(&bytes[at(x, y, c)], &value, 4);
    } else {
      const auto code =
          static_cast<unsigned>(std::lround(value * static_cast<float>(maxOf(Depth{depth}))));
      std::memcpy(&bytes[at(x, y, c)], &code, static_cast<std::size_t>(depth));
    }
  }
  void set(int x, int y, float r, float g, float b, float a = 1) {
    set(x, y, 0, r);
    set(x, y, 1, g);
    set(x, y, 2, b);
    set(x, y, 3, a);
  }
  float get(int x, int y, int c) const {
    if (depth == 4) {
      float value = 0;
      std::memcpy(&value, &bytes[at(x, y, c)], 4);
      return value;
    }
    unsigned code = 0;
    std::memcpy(&code, &bytes[at(x, y, c)], static_cast<std::size_t>(depth));
    return static_cast<float>(code) / static_cast<float>(maxOf(Depth{depth}));
  }
  OtileImage image(int x = 0, int y = 0) {
    unsigned char* first = &bytes[at(x, y, 0)];
    return {first, first + depth, first + 2 * depth, first + 3 * depth, 4, 4 * width};
  }
};

// A subject over a green screen, linear: a disc with a soft edge, hairs, a marker and a hole in it.
// The matte is known: the colour mixes a red subject and the screen by it.
float matteAt(int x, int y) {
  const float dx = static_cast<float>(x) - 60, dy = static_cast<float>(y) - 50;
  float matte = std::clamp(30.5f - std::sqrt(dx * dx + dy * dy), 0.0f, 1.0f);
  if (y == 20 && x > 60 && x < 130) matte = std::max(matte, 0.5f);  // a hair
  if (x >= 140 && x < 144 && y >= 80 && y < 83) matte = 1;          // a marker
  if (x >= 50 && x < 53 && y >= 45 && y < 47) matte = 0.25f;        // a hole
  return matte;
}

Canvas plateOf(int width, int height, int depth) {
  Canvas plate(width, height, depth);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const float a = matteAt(x, y);
      plate.set(x, y, 0.7f * a + 0.1f * (1 - a), 0.3f * a + 0.8f * (1 - a),
                (0.2f + 0.001f * static_cast<float>(x)) * a + 0.2f * (1 - a));
    }
  }
  return plate;
}

Canvas noise(int width, int height, int depth, unsigned seed) {
  Canvas picture(width, height, depth);
  std::mt19937 random(seed);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      for (int c = 0; c < 4; ++c) {
        picture.set(x, y, c, static_cast<float>(random() % 1001U) / 1000.0f);
      }
    }
  }
  return picture;
}

Settings keying() {
  Settings settings;
  settings.setText("screen", "0.1,0.8,0.2");
  return settings;
}

using Change = std::pair<const char*, const char*>;

// Each switch alone, and all of them.
const std::vector<std::vector<Change>>& finishes() {
  static const std::vector<std::vector<Change>> list = {
      {{"matteBlack", "0.1"}, {"matteWhite", "0.8"}, {"matteGamma", "1.5"}},
      {{"refine", "0.75"}},
      {{"islands", "6"}},
      {{"pinholes", "5"}},
      {{"shrink", "1.3"}},
      {{"shrink", "-2.6"}},
      {{"soften", "3.7"}},
      {{"edgeColour", "0.8"}, {"edgeReach", "5"}},
      {{"spill", "0.9"}, {"spillReplace", "nothing"}},
      {{"spill", "0.9"}, {"spillReplace", "grey"}},
      {{"spill", "0.9"}, {"spillReplace", "brightness"}},
      {{"spill", "0.9"}, {"spillReplace", "background"}, {"wrapReach", "4"}},
      {{"lightWrap", "0.6"}, {"wrapReach", "7"}},
      {{"matteBlack", "0.05"},
       {"matteGamma", "0.8"},
       {"refine", "1"},
       {"islands", "6"},
       {"pinholes", "5"},
       {"shrink", "0.7"},
       {"soften", "1.5"},
       {"edgeColour", "1"},
       {"spill", "0.5"},
       {"spillReplace", "background"},
       {"lightWrap", "0.4"},
       {"wrapReach", "6"}}};
  return list;
}

std::string nameOf(const std::vector<Change>& finish) {
  std::string name;
  for (const auto& [parameter, value] : finish) {
    name += std::string(parameter) + '=' + value + ' ';
  }
  return name;
}

// A scene of everything that a key may have.
struct Scene {
  Canvas plate, background, holdOut, garbage;
  Inputs inputs;

  Scene(int width, int height, int depth, const Inputs& given)
      : plate(plateOf(width, height, depth)),
        background(noise(width, height, depth, 3)),
        holdOut(width, height, depth),
        garbage(width, height, depth),
        inputs(given) {
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        holdOut.set(x, y, 3, x < 20 ? 0.5f : 0);
        garbage.set(x, y, 3, y > height - 10 ? 0.75f : 0);
      }
    }
  }

  Frame frame(OtileImage to, int x, int y, int width, int height) {
    Frame frame;
    frame.width = width;
    frame.height = height;
    frame.depth = Depth{plate.depth};
    frame.pictures.dst = to;
    frame.pictures.fg = plate.image(x, y);
    if (inputs.background) frame.pictures.bg = background.image(x, y);
    if (inputs.holdOut) frame.pictures.hold = holdOut.image(x, y);
    if (inputs.garbage) frame.pictures.garbage = garbage.image(x, y);
    return frame;
  }
};

constexpr Inputs everything{true, true, true, false};
constexpr const char* views[] = {"composite", "compOnColour", "unpremultiplied", "status", "matte"};

Settings with(Settings settings, const std::vector<Change>& changes) {
  for (const auto& [name, value] : changes) settings.setText(name, value);
  return settings;
}

// Keys a whole scene on one thread.
Canvas keyed(Scene& scene, const Settings& settings, int threads = 1) {
  Keyer keyer;
  keyer.prepare(settings, Depth{scene.plate.depth}, scene.inputs);
  Canvas out(scene.plate.width, scene.plate.height, scene.plate.depth);
  keyer.render(scene.frame(out.image(), 0, 0, out.width, out.height), threads);
  return out;
}

TEST(Finish, IsOffUnlessAskedForAndHearsOfEveryParameterOfIts) {
  const Finish standard = Finish::of(Settings(), everything);
  EXPECT_FALSE(standard.on());
  EXPECT_EQ(standard.border(), 0);
  for (const Parameter& parameter : parameters()) {
    Settings settings;
    if (parameter.meaning.stage == Stage::finish) {
      // Neither a default nor beyond a range: 3 of pixels, exponents and choices, .25 of parts.
      settings.setNumber(parameter.name, parameter.high > 1 ? 3 : 0.25);
      EXPECT_NE(Finish::of(settings, everything), standard) << parameter.name;
    }
  }
  // A proxy of half the size has half the lengths.
  Settings lengths = with(Settings(), finishes().back());
  const Finish half = Finish::of(lengths, everything, 0.5f);
  EXPECT_EQ(half.islands, 3);
  EXPECT_EQ(half.shrink, 0.35f);
}

TEST(Finish, GivesTheSameBytesOnAnyThreadsInPlaceAndFromAnyPartWithItsBorder) {
  constexpr int width = 300, height = 110;
  for (const int depth : {1, 2, 4}) {
    for (const std::vector<Change>& finish : finishes()) {
      // All of them together in the views that differ in what is computed.
      const bool all = &finish == &finishes().back();
      for (const char* view : {"composite", "unpremultiplied", "status"}) {
        if (!all && std::string(view) != "composite") continue;
        Settings settings = with(keying(), finish);
        settings.setText("output", view);
        Scene scene(width, height, depth, everything);
        const Canvas whole = keyed(scene, settings);
        const std::string what = nameOf(finish) + view + " depth " + std::to_string(depth);
        for (const int threads : {2, 8}) {
          EXPECT_EQ(keyed(scene, settings, threads).bytes, whole.bytes) << what << threads;
        }
        Keyer keyer;
        keyer.prepare(settings, Depth{depth}, everything);
        // In the place of the plate, and of the background.
        for (const bool overPlate : {true, false}) {
          Scene place(width, height, depth, everything);
          Canvas& to = overPlate ? place.plate : place.background;
          keyer.render(place.frame(to.image(), 0, 0, width, height), 2);
          EXPECT_EQ(to.bytes, whole.bytes) << what << overPlate;
        }
        // A part, wherever the tiles of the whole begin.
        const int border = keyer.border();
        constexpr int x = 71, y = 37, partWidth = 90, partHeight = 30;
        const int left = std::max(0, x - border), top = std::max(0, y - border);
        const int right = std::min(width, x + partWidth + border);
        const int bottom = std::min(height, y + partHeight + border);
        Canvas part(right - left, bottom - top, depth);
        keyer.render(scene.frame(part.image(), left, top, part.width, part.height), 1);
        for (int row = y; row < y + partHeight; ++row) {
          ASSERT_EQ(std::memcmp(&part.bytes[part.at(x - left, row - top, 0)],
                                &whole.bytes[whole.at(x, row, 0)],
                                static_cast<std::size_t>(partWidth * 4 * depth)),
                    0)
              << what << " row " << row << " border " << border;
        }
      }
    }
  }
}

// Where no switch has anything to do, the finished picture is the engine's: the compositor adds
// nothing of its own. A code each way is what a second rounding of the matte makes of eight bits.
TEST(Finish, LeavesTheEnginesPictureWhereItHasNothingToDo) {
  for (const int depth : {1, 2, 4}) {
    for (const char* space : {"linear", "log", "video"}) {
      for (const char* view : views) {
        // It tells full from all but full, which eight bits of matte do not.
        if (depth == 1 && std::string(view) == "status") continue;
        Settings plain = keying();
        plain.setText("colourspace", space);
        plain.setText("output", view);
        plain.setText("backgroundColour", "0.2,0.5,0.9");
        plain.setText("fgBias", "0.9,0.8,0.7");
        plain.setText("exposure", "1.2,0.8,1");
        plain.setText("saturation", "0.7");
        plain.setText("bgGamma", "1.3");
        plain.setText("bgSaturation", "0.5");
        Settings finished = plain;
        finished.setText("islands", "1");  // there is none so small
        Scene scene(150, 100, depth, everything);
        const Canvas expected = keyed(scene, plain);
        const Canvas found = keyed(scene, finished);
        const float tolerance = depth == 1 ? 1.01f / 255 : depth == 2 ? 20.0f / 65535 : 2e-5f;
        double worst = 0;
        for (int y = 0; y < 100; ++y) {
          for (int x = 0; x < 150; ++x) {
            for (int c = 0; c < 4; ++c) {
              const float apart = std::abs(found.get(x, y, c) - expected.get(x, y, c));
              worst = std::max(worst, static_cast<double>(apart));
            }
          }
        }
        EXPECT_LE(worst, static_cast<double>(tolerance)) << space << ' ' << view << ' ' << depth;
      }
    }
  }
}

// What lies deep in the subject and far from it stays, whatever the edge is done to; the marker,
// the hole and the hair go or stay as their sizes say.
TEST(Finish, KeepsSolidSolidAndScreenClearAndTellsSpecksFromHairs) {
  for (const int depth : {1, 2, 4}) {
    Scene scene(200, 100, depth, {});
    for (const std::vector<Change>& finish : finishes()) {
      Settings settings = with(keying(), finish);
      settings.setText("output", "unpremultiplied");
      const Canvas out = keyed(scene, settings);
      EXPECT_EQ(out.get(60, 68, 3), 1) << nameOf(finish);
      EXPECT_EQ(out.get(110, 90, 3), 0) << nameOf(finish);
      EXPECT_NEAR(out.get(60, 68, 0), 0.7f, 0.01f) << nameOf(finish);
    }
    const auto matte = [&](const std::vector<Change>& finish, int x, int y) {
      Settings settings = with(keying(), finish);
      settings.setText("output", "matte");
      return keyed(scene, settings).get(x, y, 3);
    };
    EXPECT_EQ(matte({{"islands", "3"}}, 141, 81), 1);  // 4 wide
    EXPECT_EQ(matte({{"islands", "4"}}, 141, 81), 0);
    EXPECT_LT(matte({{"pinholes", "2"}}, 51, 45), 0.5f);  // 3 wide
    EXPECT_EQ(matte({{"pinholes", "3"}}, 51, 45), 1);
    // 70 long: what the engine made of it.
    EXPECT_EQ(matte({{"islands", "69"}}, 120, 20), matte({}, 120, 20));
    EXPECT_GT(matte({}, 120, 20), 0.4f);
  }
}

}  // namespace
}  // namespace orvanite
