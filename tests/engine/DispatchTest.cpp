// SPDX-License-Identifier: BSD-3-Clause
//
// Which tiles are keyed and which are refused, and that a refusal writes nothing.
#include <gtest/gtest.h>

#include <functional>

#include "engine/targets/Target.h"
#include "tests/engine/Scene.h"

namespace {

constexpr int notWritten = 77;

/// One pixel of every image, in one depth's samples.
template <class T>
struct OnePixel {
  T dst[4], bg[4], fg[4], hold[4], garbage[4], ref[4];
  Otile tile = {};

  OnePixel() {
    std::fill_n(dst, 4, static_cast<T>(notWritten));
    const auto join = [](T* samples, OtileImage& image) {
      image = {samples, samples + 1, samples + 2, samples + 3, 4, 4};
    };
    for (T* image : {bg, fg, hold, garbage, ref}) std::fill_n(image, 4, T{1});
    join(dst, tile.dst);
    join(bg, tile.bg);
    join(fg, tile.fg);
    join(hold, tile.hold);
    join(garbage, tile.garbage);
    join(ref, tile.ref);
  }

  // The tile points at this pixel's own samples.
  OnePixel(const OnePixel&) = delete;
  OnePixel& operator=(const OnePixel&) = delete;

  void forget() { std::fill_n(dst, 4, static_cast<T>(notWritten)); }
  bool colourWritten() const { return dst[0] != T{notWritten}; }
  bool alphaWritten() const { return dst[3] != T{notWritten}; }
};

struct Case {
  const char* name;
  std::function<void(Parameters&)> set;
  std::function<void(Otile&)> leaveOut;
  int result;
  bool colour, alpha;
};

void nothing(Otile&) {}
void asIs(Parameters&) {}

const Case cases[] = {
    {"everything there", asIs, nothing, 0, true, true},
    {"no destination red", asIs, [](Otile& t) { t.dst.red = nullptr; }, 1, false, false},
    {"no destination green", asIs, [](Otile& t) { t.dst.green = nullptr; }, 1, false, false},
    {"no destination blue", asIs, [](Otile& t) { t.dst.blue = nullptr; }, 1, false, false},
    {"no destination alpha", asIs, [](Otile& t) { t.dst.alpha = nullptr; }, 1, false, false},
    {"over a background without alpha", asIs, [](Otile& t) { t.bg.alpha = nullptr; }, 0, true,
     false},
    {"flat, background without alpha", [](Parameters& p) { p.view = 1; },
     [](Otile& t) { t.bg.alpha = nullptr; }, 0, true, true},
    {"flat, background alone, without alpha", [](Parameters& p) { p.view = 1; },
     [](Otile& t) {
       t.bg.alpha = nullptr;
       t.fg = {};
     },
     0, true, true},
    {"over a background that lacks red", asIs, [](Otile& t) { t.bg.red = nullptr; }, 1, false,
     false},
    {"over a background that lacks blue", asIs, [](Otile& t) { t.bg.blue = nullptr; }, 1, false,
     false},
    {"over no background", asIs, [](Otile& t) { t.bg = {}; }, 1, false, false},
    {"flat without background", [](Parameters& p) { p.view = 1; }, [](Otile& t) { t.bg = {}; }, 0,
     true, true},
    {"unknown view without background", [](Parameters& p) { p.view = -9; },
     [](Otile& t) { t.bg = {}; }, 0, true, true},
    {"no foreground: the background passes", asIs, [](Otile& t) { t.fg = {}; }, 0, true, true},
    {"a foreground that lacks green is none", asIs, [](Otile& t) { t.fg.green = nullptr; }, 0, true,
     true},
    {"flat with neither", [](Parameters& p) { p.view = 1; },
     [](Otile& t) {
       t.fg = {};
       t.bg = {};
     },
     1, false, false},
    {"mattes wanted and missing", asIs,
     [](Otile& t) {
       t.hold = {};
       t.garbage.alpha = nullptr;
     },
     0, true, true},
};

template <class T>
void checkCases(int max) {
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.name << ", depth " << depthCode<T>);
    Parameters p;
    p.setAllMaxima(max);
    c.set(p);
    const Engine engine = makeEngine(p);
    OnePixel<T> pixel;
    c.leaveOut(pixel.tile);
    EXPECT_EQ(orvanite_render(engine.get(), depthCode<T>, 1, 1, &pixel.tile), 0)
        << "tables not built: quietly nothing";
    EXPECT_FALSE(pixel.colourWritten() || pixel.alphaWritten());
    ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
    for (const int depth : {0, 3, 8, -1}) {
      EXPECT_EQ(orvanite_render(engine.get(), depth, 1, 1, &pixel.tile), 1);
      EXPECT_FALSE(pixel.colourWritten() || pixel.alphaWritten());
    }
    EXPECT_EQ(orvanite_render(engine.get(), depthCode<T>, 1, 1, &pixel.tile), c.result);
    EXPECT_EQ(pixel.colourWritten(), c.colour);
    EXPECT_EQ(pixel.alphaWritten(), c.alpha);
    if (c.result == 0) continue;
    // The kernel itself refuses what it can see.
    const orvanite::Choices choices = {.alpha = true};
    EXPECT_EQ(orvanite::definitionKernel(orvanite::depthOfSample<T>, choices)(engine.get(), 1, 1,
                                                                              &pixel.tile),
              1);
    EXPECT_FALSE(pixel.colourWritten() || pixel.alphaWritten());
  }
}

}  // namespace

TEST(Dispatch, KeysWhatIsCompleteAndRefusesTheRestUntouched) {
  checkCases<unsigned char>(255);
  checkCases<unsigned short>(255);
  checkCases<float>(1);
}

TEST(Dispatch, RefusesADepthWhoseTablesWereNotBuilt) {
  Parameters p;
  const Engine engine = makeEngine(p);
  OnePixel<unsigned char> bytes;
  OnePixel<unsigned short> shorts;
  OnePixel<float> floats;
  const auto results = [&] {
    return std::array<int, 3>{orvanite_render(engine.get(), 1, 1, 1, &bytes.tile),
                              orvanite_render(engine.get(), 2, 1, 1, &shorts.tile),
                              orvanite_render(engine.get(), 4, 1, 1, &floats.tile)};
  };
  using Results = std::array<int, 3>;
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  EXPECT_EQ(results(), (Results{0, 0, 1}));
  EXPECT_FALSE(floats.colourWritten());
  orvanite_setFgMax(engine.get(), 1);  // discards the integer tables
  EXPECT_EQ(results(), (Results{0, 0, 0})) << "out of date: quietly nothing";
  EXPECT_FALSE(floats.colourWritten());
  bytes.forget();
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  EXPECT_EQ(results(), (Results{1, 1, 0}));
  EXPECT_FALSE(bytes.colourWritten());
  EXPECT_TRUE(floats.colourWritten());

  // The other way round the maxima discard nothing: what the float build left is older than the
  // screen that was set since.
  orvanite_setDstMax(engine.get(), 1);
  orvanite_setFgMax(engine.get(), 255);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  floats.forget();
  EXPECT_EQ(results(), (Results{1, 1, 0}));
  orvanite_setScreen(engine.get(), 0, 1, 0);
  orvanite_setDstMax(engine.get(), 255);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  floats.forget();
  EXPECT_EQ(results(), (Results{0, 0, 1}));
  EXPECT_FALSE(floats.colourWritten());
}

TEST(Dispatch, RefusesAFloatTileWhileTheCleanPlateIsOn) {
  Parameters p;
  p.dstMax = 1;
  const Engine engine = makeEngine(p);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  OnePixel<float> pixel;
  ASSERT_EQ(orvanite_render(engine.get(), 4, 1, 1, &pixel.tile), 0);
  pixel.forget();
  orvanite_useRef(engine.get(), 1);
  orvanite_setDstMax(engine.get(), 255);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0) << "an integer build, which has a clean plate";
  EXPECT_EQ(orvanite_render(engine.get(), 4, 1, 1, &pixel.tile), 1);
  EXPECT_FALSE(pixel.colourWritten() || pixel.alphaWritten());

  // Nor does any target key one that is handed to it past the dispatcher.
  for (const orvanite::Target& target : orvanite::knownTargets()) {
    if (target.floats == nullptr || !target.supported()) continue;
    EXPECT_FALSE(target.floats->key(*engine, 1, 1, pixel.tile, {.ref = true, .alpha = true}))
        << target.name;
    EXPECT_FALSE(pixel.colourWritten());
  }
}

TEST(Dispatch, NeedsTheCleanPlateThatIsWantedAndTheTablesOfTheMattesInUse) {
  Parameters p;
  p.ref = true;
  p.hold = p.garbage = false;
  const Engine engine = makeEngine(p);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  OnePixel<unsigned char> pixel;
  pixel.tile.ref.blue = nullptr;
  EXPECT_EQ(orvanite_render(engine.get(), 1, 1, 1, &pixel.tile), 1);
  EXPECT_FALSE(pixel.colourWritten());
  const orvanite::Choices plain = {.linear = true, .alpha = true};
  EXPECT_EQ(
      orvanite::definitionKernel(orvanite::Depth::bytes, plain)(engine.get(), 1, 1, &pixel.tile),
      1);
  EXPECT_EQ(
      orvanite::definitionKernel(orvanite::Depth::floats, plain)(engine.get(), 1, 1, &pixel.tile),
      1);
  pixel.tile.ref.blue = pixel.ref + 2;
  EXPECT_EQ(orvanite_render(engine.get(), 1, 1, 1, &pixel.tile), 0);
  EXPECT_TRUE(pixel.colourWritten());

  // Integer tables without a hold-out table, then a float build that makes the engine current:
  // the integer depth has no hold-out table to follow.
  orvanite_useRef(engine.get(), 0);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  orvanite_useHold(engine.get(), 1);
  orvanite_setDstMax(engine.get(), 1);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  pixel.forget();
  EXPECT_EQ(orvanite_render(engine.get(), 1, 1, 1, &pixel.tile), 1);
  EXPECT_FALSE(pixel.colourWritten());
}
