// SPDX-License-Identifier: BSD-3-Clause
//
// The finish's parts by themselves, against models that look at one pixel at a time and against
// geometry and arithmetic.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>
#include <vector>

#include "keyer/FinishColour.h"
#include "keyer/MatteFilter.h"
#include "keyer/Specks.h"

namespace orvanite {
namespace {

using Field = std::function<double(int, int)>;

MatteTile tileOf(int width, int height, const Field& value) {
  MatteTile tile;
  tile.resize(width, height);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      tile.row(y)[x] = static_cast<std::uint16_t>(std::lround(65535 * value(x, y)));
    }
  }
  return tile;
}

MatteTile noise(int width, int height) {
  std::mt19937 random(5);
  return tileOf(width, height, [&](int, int) { return static_cast<double>(random() % 9) / 8; });
}

// One step inwards of the definition, in double precision: a part of it, from above or below.
Field stepOf(const Field& field, double part, bool grow) {
  return [=](int x, int y) {
    const auto v = [&](int dx, int dy) {
      const double value = field(x + dx, y + dy);
      return grow ? 1 - value : value;
    };
    const double cross = std::min({v(0, 0), v(-1, 0), v(1, 0), v(0, -1), v(0, 1)});
    const double square = std::min({cross, v(-1, -1), v(1, -1), v(-1, 1), v(1, 1)});
    const double moved = cross - (cross - square) * (std::sqrt(2.0) - 1);
    const double out = v(0, 0) + part * (moved - v(0, 0));
    return grow ? 1 - out : out;
  };
}

TEST(MatteEdge, MovesAsTheDefinitionSaysOnAnyMatte) {
  const MatteTile matte = noise(24, 20);
  for (const float pixels : {0.25f, 1.0f, 1.75f, -0.5f, -2.0f}) {
    MatteTile moved = matte, scratch;
    moveEdge(moved, pixels, scratch);
    const int border = moveBorder(pixels);
    ASSERT_EQ(moved.width, 24 - 2 * border);
    Field model = [&](int x, int y) { return matte.row(y)[x] / 65535.0; };
    for (double left = std::abs(static_cast<double>(pixels)); left > 0; left -= 1) {
      model = stepOf(model, std::min(1.0, left), pixels < 0);
    }
    for (int y = 0; y < moved.height; ++y) {
      for (int x = 0; x < moved.width; ++x) {
        // Each step cuts off less than a code in two places.
        EXPECT_NEAR(moved.row(y)[x], 65535 * model(x + border, y + border), 2.0 * border + 1)
            << pixels << " at " << x << ',' << y;
      }
    }
  }
}

// A straight edge through the middle of a field of 100 x 100 leaves half of it; moved by r, less by
// r for each pixel of its length, which is 60 divided by the larger of cosine and sine in a window
// 60 wide.
TEST(MatteEdge, MovesStraightEdgesOfAnyDirectionByTheSame) {
  for (int degrees = 0; degrees <= 90; degrees += 15) {
    const double angle = degrees * 3.14159265358979 / 180;
    const double c = std::cos(angle), s = std::sin(angle);
    const MatteTile edge = tileOf(140, 140, [&](int x, int y) {
      return std::clamp(0.5 + (x - 69.5) * c + (y - 69.5) * s, 0.0, 1.0);
    });
    for (const float pixels : {0.5f, 1.0f, 2.5f, -1.5f, 4.0f}) {
      MatteTile moved = edge, scratch;
      moveEdge(moved, pixels, scratch);
      const int border = moveBorder(pixels);
      // The edge leaves the window through its sides alone.
      double before = 0, after = 0;
      for (int y = 40; y < 100; ++y) {
        for (int x = 40; x < 100; ++x) {
          before += edge.row(y)[x] / 65535.0;
          after += moved.row(y - border)[x - border] / 65535.0;
        }
      }
      const double length = 60 / std::max(c, s);
      EXPECT_NEAR((before - after) / length, static_cast<double>(pixels),
                  0.05 + 0.09 * std::abs(static_cast<double>(pixels)))
          << degrees << " degrees";
    }
  }
}

// The weights of a box with parts of samples at its ends, laid over itself.
std::vector<double> tentOf(double pixels) {
  const int reach = static_cast<int>(std::ceil(pixels / 2));
  std::vector<double> box;
  for (int i = -reach; i <= reach; ++i) {
    box.push_back(std::clamp(pixels / 2 + 1 - std::abs(i), 0.0, 1.0) / (pixels + 1));
  }
  std::vector<double> tent(box.size() * 2 - 1);
  for (std::size_t i = 0; i < box.size(); ++i) {
    for (std::size_t j = 0; j < box.size(); ++j) tent[i + j] += box[i] * box[j];
  }
  return tent;
}

TEST(MatteSoften, IsTheTentOfItsWidthOnAnyMatteAndKeepsEvenOnes) {
  const MatteTile matte = noise(40, 36);
  for (const float pixels : {0.5f, 1.0f, 2.75f, 6.0f}) {
    MatteTile soft = matte, scratch;
    soften(soft, pixels, scratch);
    const std::vector<double> tent = tentOf(static_cast<double>(pixels));
    const int border = softenBorder(pixels);
    ASSERT_EQ(static_cast<int>(tent.size()), 2 * border + 1) << pixels;
    for (int y = 0; y < soft.height; ++y) {
      for (int x = 0; x < soft.width; ++x) {
        double model = 0;
        for (int dy = 0; dy <= 2 * border; ++dy) {
          for (int dx = 0; dx <= 2 * border; ++dx) {
            model += tent[static_cast<std::size_t>(dy)] * tent[static_cast<std::size_t>(dx)] *
                     matte.row(y + dy)[x + dx];
          }
        }
        // Four passes, each rounded to the nearest; widths are kept to a 256th of a pixel.
        ASSERT_NEAR(soft.row(y)[x], model, 2.1) << pixels << " at " << x << ',' << y;
      }
    }
    for (const int value : {0, 1, 4096, 32768, 65534, 65535}) {
      MatteTile even = tileOf(70, 70, [&](int, int) { return value / 65535.0; });
      soften(even, pixels * 5, scratch);
      ASSERT_EQ(even.width, 70 - 2 * softenBorder(pixels * 5));
      for (const std::uint16_t sample : even.samples) ASSERT_EQ(sample, value) << pixels;
    }
  }
}

TEST(MatteCurve, ClipsAndBends) {
  // 0.25 lies half way between 0.1 and 0.4; the square root of a half is 0.7071.
  const std::vector<std::uint16_t> curve = matteCurve(0.1f, 0.4f, 2, 65536);
  EXPECT_EQ(curve[6553], 0);
  EXPECT_EQ(curve[26215], 65535);
  EXPECT_NEAR(curve[16384], 65535 * std::sqrt(0.5), 2);
  // White below black cuts at black.
  const std::vector<std::uint16_t> cut = matteCurve(0.5f, 0.3f, 1, 256);
  EXPECT_EQ(cut[127], 0);
  EXPECT_EQ(cut[128], 65535);
}

// How wide and high what hangs together around each pixel is, whichever is more, by walking from
// pixel to pixel; 0 for those that are not in.
std::vector<int> extentsOf(const MattePlane& plane, bool island) {
  std::vector<int> extents(plane.samples.size());
  const auto at = [&](int x, int y) { return static_cast<std::size_t>(y * plane.width + x); };
  const auto open = [&](int x, int y) {
    if (x < 0 || y < 0 || x >= plane.width || y >= plane.height || extents[at(x, y)] != 0) {
      return false;
    }
    const int v = plane.row(y)[x];
    return island ? v > speckTolerance : v < 65535 - speckTolerance;
  };
  for (int y = 0; y < plane.height; ++y) {
    for (int x = 0; x < plane.width; ++x) {
      if (!open(x, y)) continue;
      std::vector<std::pair<int, int>> all{{x, y}};
      extents[at(x, y)] = 1;
      int left = x, right = x, top = y, bottom = y;
      for (std::size_t i = 0; i < all.size(); ++i) {
        const auto [px, py] = all[i];
        left = std::min(left, px);
        right = std::max(right, px);
        top = std::min(top, py);
        bottom = std::max(bottom, py);
        for (int dy = -1; dy <= 1; ++dy) {
          for (int dx = -1; dx <= 1; ++dx) {
            if ((!island && dx != 0 && dy != 0) || !open(px + dx, py + dy)) continue;
            extents[at(px + dx, py + dy)] = 1;
            all.emplace_back(px + dx, py + dy);
          }
        }
      }
      for (const auto& [px, py] : all) {
        extents[at(px, py)] = std::max(right - left, bottom - top) + 1;
      }
    }
  }
  return extents;
}

TEST(Specks, GoWhenTheyAreSmallAndOnlyThen) {
  const Loop loop = [](int count, const std::function<void(int)>& body) {
    for (int i = count; i-- > 0;) body(i);  // in no order to be relied on
  };
  // Of few to many pixels set: from specks to a web with holes.
  for (const unsigned share : {12U, 35U, 50U, 62U, 90U}) {
    MattePlane plane;
    plane.resize(150, 80);
    std::mt19937 random(share);
    for (std::uint16_t& sample : plane.samples) {
      const bool set = random() % 100 < share;
      sample = static_cast<std::uint16_t>(set ? 65535 - random() % 30000 : random() % 2000);
      if (set && random() % 2) sample = 65535;
    }
    // Even cells are not read pixel by pixel.
    for (int y = 32; y < 64; ++y) std::fill(plane.row(y), plane.row(y) + 128, 65535);
    for (int row = 0; row < plane.cellRows(); ++row) plane.measure(row);
    for (const bool island : {true, false}) {
      const std::vector<int> extents = extentsOf(plane, island);
      for (const int pixels : {1, 3, 9, 40}) {
        MattePlane found = plane;
        if (island) {
          removeIslands(found, pixels, loop);
        } else {
          fillPinholes(found, pixels, loop);
        }
        for (int y = 0; y < plane.height; ++y) {
          for (int x = 0; x < plane.width; ++x) {
            const std::uint16_t was = plane.row(y)[x];
            const int extent = extents[static_cast<std::size_t>(y * plane.width + x)];
            const bool goes = extent > 0 && extent <= pixels;
            const std::uint16_t expected = !goes ? was : island ? 0 : 65535;
            ASSERT_EQ(found.row(y)[x], expected)
                << share << " % " << (island ? "island " : "pinhole ") << pixels << " at " << x
                << ',' << y;
          }
        }
        for (int row = 0; row < found.cellRows(); ++row) {
          MattePlane read = found;
          read.measure(row);
          for (int column = 0; column < found.cellColumns(); ++column) {
            const std::size_t cell = found.cell(column, row);
            EXPECT_LE(found.low[cell], read.low[cell]);
            EXPECT_GE(found.high[cell], read.high[cell]);
          }
        }
      }
    }
  }
}

// A row of 8-bit pixels, finished as one tile.
struct Row {
  std::vector<std::uint8_t> keyed, behind;
  std::vector<std::uint16_t> matte, nearby;

  std::vector<int> finished(const Finish& finish) {
    const int width = static_cast<int>(matte.size());
    const auto image = [&](std::vector<std::uint8_t>& samples) {
      return OtileImage{samples.data(), &samples[1], &samples[2], &samples[3], 4, 4 * width};
    };
    const Pixels<std::uint8_t> pixels(image(keyed), width, 1);
    if (behind.empty()) behind.resize(keyed.size());
    const Pixels<std::uint8_t> background(image(behind), width, 1);
    const auto tile = [&](const std::vector<std::uint16_t>& samples) {
      MatteTile made;
      made.resize(width, 1);
      if (!samples.empty()) made.samples = samples;
      return made;
    };
    const MatteTile solidity = tile(matte), around = tile(nearby);
    std::vector<std::uint16_t> own(static_cast<std::size_t>(width));
    MatteReader<std::uint8_t>(finish).read(keyed.data() + 3, width, own.data());
    ColourScratch scratch;
    std::vector<std::uint8_t> out(keyed.size());
    finishColours(finish, pixels, {own.data(), width, 1}, &background, {0, 0, width, 1}, solidity,
                  &around, scratch, out.data());
    return {out.begin(), out.end()};
  }
};

TEST(FinishColours, TakeSpillDownToItsLimitAndPutBackWhatWasAskedFor) {
  // Green has 200, the others 100 and 60: a mean of 80, so the limit half way to 100 is 90 and
  // half of what lies above it is 55. Light of green .7152: grey of 55 * .7152 = 39.3.
  // After it green has 145 and light is .2126*100 + .7152*145 + .0722*60 = 129.3; with 39.3 more
  // that is 1.304 times. Behind lies 204, 102, 51 of 255: 44, 22 and 11 of the 55.
  struct Case {
    SpillReplace replace;
    std::vector<int> expected;
  };
  for (const Case& one :
       {Case{SpillReplace::nothing, {100, 145, 60, 0}}, Case{SpillReplace::grey, {139, 184, 99, 0}},
        Case{SpillReplace::brightness, {130, 189, 78, 0}},
        Case{SpillReplace::background, {144, 167, 71, 0}}}) {
    Finish finish;
    finish.spill = 0.5f;
    finish.spillLimit = 0.5f;
    finish.spillReplace = one.replace;
    Row row{{100, 200, 60, 255}, {204, 102, 51, 255}, {65535}, {}};
    EXPECT_EQ(row.finished(finish), one.expected) << static_cast<int>(one.replace);
    // No spill, no change; and nobody touches what is clear.
    Row clean{{100, 90, 60, 255}, {204, 102, 51, 255}, {65535}, {}};
    EXPECT_EQ(clean.finished(finish), (std::vector<int>{100, 90, 60, 0}));
    Row clear{{100, 200, 60, 255}, {204, 102, 51, 255}, {0}, {}};
    EXPECT_EQ(clear.finished(finish), (std::vector<int>{100, 200, 60, 255}));
  }
}

TEST(FinishColours, PullEdgesFromTheInsideAndWrapTheBackgroundsLight) {
  Finish edge;
  edge.edgeColour = 1;
  edge.edgeReach = 2;
  // Five solid pixels and three soft ones. Pixel 5 sees pixels 3 and 4 whole, on three rows... the
  // frame's only row goes on above and below, five times: 10 whole pixels, more than enough.
  Row row{{200, 100, 50, 255, 200, 100, 50, 255, 200, 100, 50, 255, 200, 100, 50, 255,
           200, 100, 50, 255, 40,  200, 40, 51,  0,   250, 0,  0,   0,   250, 0,  0},
          {},
          {65535, 65535, 65535, 65535, 65535, 13107, 6553, 0},
          {}};
  const std::vector<int> pulled = row.finished(edge);
  // Four fifths soft: 40 + .8 * 160, 200 - .8 * 100, 40 + .8 * 10.
  EXPECT_EQ(std::vector<int>(pulled.begin() + 20, pulled.begin() + 24),
            (std::vector<int>{168, 120, 48, 204}));
  // Wholly soft, and 5 whole pixels of the inside in reach: all of it. Codes of the matte: 6553 is
  // 25.5 of 255.
  EXPECT_EQ(std::vector<int>(pulled.begin() + 24, pulled.begin() + 27),
            (std::vector<int>{200, 100, 50}));
  EXPECT_EQ(std::vector<int>(pulled.begin(), pulled.begin() + 3), (std::vector<int>{200, 100, 50}));

  Finish light;
  light.wrap = 0.5f;
  light.wrapReach = 1;
  // Half open: a quarter of the background's 204 in the room of 1 - 51/255 = .8: 40.8 more.
  Row wrapped{{51, 51, 255, 255, 51, 51, 255, 255},
              {204, 0, 204, 255, 204, 0, 204, 255},
              {65535, 65535},
              {32768, 65535}};
  EXPECT_EQ(wrapped.finished(light), (std::vector<int>{92, 51, 255, 0, 51, 51, 255, 0}));
}

}  // namespace
}  // namespace orvanite
