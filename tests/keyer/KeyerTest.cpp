// SPDX-License-Identifier: BSD-3-Clause
//
// Whole frames on threads: the same bytes as one call of the engine over the whole picture, however
// many threads work, wherever the result goes, and with several frames at once.
#include "keyer/Keyer.h"
#include "keyer/Threads.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "base/Error.h"

namespace orvanite {
namespace {

// Four-channel interleaved pictures of one depth with a few unused elements after each row.
struct Pictures {
  int width, height, depth, rowElements;
  std::vector<std::vector<unsigned char>>
      data;  // destination, background, plate, hold-out, garbage, clean plate

  Pictures(int w, int h, int d) : width(w), height(h), depth(d), rowElements(4 * w + 3), data(6) {
    std::mt19937 random(7);
    for (auto& picture : data) {
      picture.resize(static_cast<std::size_t>(rowElements * h * d));
      for (std::size_t i = 0; i < picture.size(); i += static_cast<std::size_t>(d)) {
        const auto value = static_cast<unsigned>(random());
        const float unit = static_cast<float>(value % 1001U) / 1000.0f;
        if (d == 4) {
          std::memcpy(&picture[i], &unit, 4);
        } else {
          std::memcpy(&picture[i], &value, static_cast<std::size_t>(d));
        }
      }
    }
  }

  OtileImage image(int index, bool bottomUp) {
    unsigned char* first = data[static_cast<std::size_t>(index)].data();
    if (bottomUp) first += static_cast<std::ptrdiff_t>(rowElements) * (height - 1) * depth;
    return {first,
            first + depth,
            first + 2 * depth,
            first + 3 * depth,
            4,
            bottomUp ? -rowElements : rowElements};
  }

  Frame frame(const Inputs& inputs, bool inPlace, bool bottomUp) {
    Frame frame;
    frame.width = width;
    frame.height = height;
    frame.depth = Depth{depth};
    frame.pictures.fg = image(2, bottomUp);
    frame.pictures.dst = image(inPlace ? 2 : 0, bottomUp);
    if (inputs.background) frame.pictures.bg = image(1, bottomUp);
    if (inputs.holdOut) frame.pictures.hold = image(3, bottomUp);
    if (inputs.garbage) frame.pictures.garbage = image(4, bottomUp);
    if (inputs.reference) frame.pictures.ref = image(5, bottomUp);
    return frame;
  }
};

TEST(Keyer, GivesTheBytesOfOneTileOnAnyThreadsInPlaceOrNot) {
  Settings settings;
  settings.setText("screen", "0.1,0.8,0.2");
  settings.setText("colourspace", "video");
  for (int depth : {1, 2, 4}) {
    for (int height : {1, 15, 97}) {
      const Inputs inputs{true, true, true, depth != 4};
      Pictures expected(53, height, depth);
      QMXOrvaniteTable* engine = orvanite_new();
      settings.applyTo(engine, Depth{depth}, inputs);
      ASSERT_EQ(orvanite_makeLuts(engine), 0);
      Otile whole = expected.frame(inputs, false, false).pictures;
      ASSERT_EQ(orvanite_render(engine, depth, 53, height, &whole), 0);
      orvanite_delete(engine);
      ASSERT_NE(expected.data[0], Pictures(53, height, depth).data[0]);

      Keyer keyer;
      keyer.prepare(settings, Depth{depth}, inputs);
      for (int threads : {0, 1, 2, 3, 7}) {
        for (bool inPlace : {false, true}) {
          for (bool bottomUp : {false, true}) {
            Pictures pictures(53, height, depth);
            keyer.render(pictures.frame(inputs, inPlace, bottomUp), threads);
            const std::size_t pixels = static_cast<std::size_t>(53 * 4 * depth);
            const std::size_t row = static_cast<std::size_t>(pictures.rowElements * depth);
            for (std::size_t y = 0; y < static_cast<std::size_t>(height); ++y) {
              const auto& result = pictures.data[inPlace ? 2 : 0];
              ASSERT_EQ(std::memcmp(&result[y * row], &expected.data[0][y * row], pixels), 0)
                  << "depth " << depth << " threads " << threads << " row " << y << " in place "
                  << inPlace << " bottom up " << bottomUp;
            }
          }
        }
      }
    }
  }
}

TEST(Keyer, OnePreparedKeyerServesSeveralRendersAtOnce) {
  Settings settings;
  const Inputs inputs{true, false, false, false};
  Keyer keyer;
  keyer.prepare(settings, Depth::bytes, inputs);
  Pictures expected(64, 64, 1);
  keyer.render(expected.frame(inputs, false, false), 1);
  std::vector<Pictures> pictures(4, Pictures(64, 64, 1));
  std::vector<std::thread> threads;
  for (Pictures& one : pictures) {
    threads.emplace_back([&] { keyer.render(one.frame(inputs, false, false), 2); });
  }
  for (std::thread& thread : threads) thread.join();
  for (const Pictures& one : pictures) EXPECT_EQ(one.data[0], expected.data[0]);
}

TEST(Keyer, CompositeWithoutABackgroundIsOneOverBlack) {
  Settings black;
  black.setText("output", "compOnBlack");
  Settings composite;
  composite.setText("backgroundColour", "0,1,0");  // not for this output
  const auto keyed = [](const Settings& settings) {
    Pictures pictures(8, 8, 2);
    Keyer keyer;
    keyer.prepare(settings, Depth::shorts, {});
    keyer.render(pictures.frame({}, false, false), 1);
    return pictures.data[0];
  };
  EXPECT_EQ(keyed(composite), keyed(black));
}

TEST(Keyer, RefusesWhatItCannotKeyAndSaysWhy) {
  Keyer keyer;
  Settings grey;
  grey.setText("screen", "0.5");
  const auto message = [](const auto& action) -> std::string {
    try {
      action();
    } catch (const Error& error) {
      return error.what();
    }
    return "nothing was thrown";
  };
  EXPECT_EQ(message([&] { keyer.prepare(grey, Depth::bytes, {}); }),
            "screen: expected a colour, found a grey (0.5)");
  EXPECT_EQ(message([&] {
              keyer.prepare(Settings(), Depth::floats, {false, false, false, true});
            }),
            "reference: expected 8- or 16-bit pictures with a clean plate, found float pictures");
  Pictures pictures(4, 4, 1);
  const Frame frame = pictures.frame({}, false, false);
  EXPECT_NE(message([&] { keyer.render(frame); }).find("prepared"), std::string::npos);
  keyer.prepare(Settings(), Depth::bytes, {true, false, false, false});
  EXPECT_EQ(message([&] { keyer.render(frame); }),
            "frame: a picture that the keyer was prepared for is missing");
}

TEST(Keyer, TakesTheSchedulersShareOfThreads) {
  ::setenv("CUE_THREADS", "3", 1);
  EXPECT_EQ(availableThreads(), 3);
  ::setenv("CUE_THREADS", "many", 1);
  EXPECT_GE(availableThreads(), 1);
  ::unsetenv("CUE_THREADS");
}

}  // namespace
}  // namespace orvanite
