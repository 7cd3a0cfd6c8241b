// SPDX-License-Identifier: BSD-3-Clause
//
// Single pixels whose way through the kernels can be followed by hand. Tables are overwritten, so
// that each case starts from numbers and not from parameters.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "engine/QMXOrvaniteTable.h"
#include "tests/engine/Scene.h"

namespace {

using Codes = std::array<int, 4>;

/// An 8-bit engine whose tables are plain: code 1 has the given working colour and nothing of it
/// is screen unless `amount` says so; output entry j is its working value / 64.
struct ByHand {
  Engine engine;

  ByHand(const std::array<int, 3>& colour, int amount) {
    Parameters p;
    p.colourspace = 0;
    engine = makeEngine(p);
    EXPECT_EQ(orvanite_makeLuts(engine.get()), 0);
    QMXOrvaniteTable& e = *engine;
    for (int c = 0; c < 3; ++c) {
      e.fgLinear[c][1] = static_cast<std::int16_t>(colour[static_cast<std::size_t>(c)]);
      e.keyTable[c][1] = static_cast<std::int16_t>(c == 0 ? 1 : 0);
      e.screenWork[c] = 0;
      for (int j = 0; j < 16384; ++j) {
        e.fgGradeTable[c][j] = static_cast<std::uint16_t>(j);
        e.outputTable[c][j] = static_cast<std::uint16_t>(j);
      }
    }
    for (int i = 0; i <= 4096; ++i) e.clipTable[i] = static_cast<std::int16_t>(i);
    e.screenTable[1] = static_cast<std::int16_t>(amount);
  }

  /// Keys code 1 at 16 bits, so that working values come out whole.
  Codes key(int view, int holdCode, int dstMax = 4096) const {
    engine->view = view;
    engine->dstMax = dstMax;
    unsigned short fg[4] = {1, 1, 1, 0}, bg[4] = {0, 0, 0, 0}, dst[4] = {};
    auto hold = static_cast<unsigned short>(holdCode);
    Otile tile = {};
    tile.dst = {dst, dst + 1, dst + 2, dst + 3, 4, 4};
    tile.fg = {fg, fg + 1, fg + 2, nullptr, 4, 4};
    tile.bg = {bg, bg + 1, bg + 2, bg + 3, 4, 4};
    tile.hold.alpha = &hold;
    EXPECT_EQ(orvanite_render(engine.get(), 2, 1, 1, &tile), 0);
    return {dst[0], dst[1], dst[2], dst[3]};
  }
};

}  // namespace

TEST(Pixel, IsUnpremultipliedWithinItsRange) {
  // Half screen, A = 2048. 12000 x 4096 > 2048 x 16383: white goes to the largest channel, the
  // others follow (6000 x 16383 / 12000 = 8191) and the matte becomes 12000 x 4096 / 16383 = 3000.
  EXPECT_EQ(ByHand({12000, 6000, 3000}, 2048).key(4, 0), (Codes{16383, 8191, 4095, 3000}));
  // 6000 fits under half: only doubled.
  EXPECT_EQ(ByHand({6000, 3000, 1500}, 2048).key(4, 0), (Codes{12000, 6000, 3000, 2048}));
  // All screen, yet white is left: the matte rises to solid. More than all screen is the same.
  EXPECT_EQ(ByHand({16383, 0, 0}, 4096).key(4, 0), (Codes{16383, 0, 0, 4096}));
  EXPECT_EQ(ByHand({16383, 0, 0}, 16384).key(3, 0), (Codes{16383, 0, 0, 4096}));
  EXPECT_EQ(ByHand({0, 0, 0}, 4096).key(4, 0), (Codes{0, 0, 0, 0}));
}

TEST(Pixel, ShowsItsStatus) {
  // A quarter of 255 is 63. Screen 3072 leaves A = 1024; a hold-out of 1365 of 4096 holds
  // (3072 x 1366) >> 12 = 1024 of it back (hold-out code 85 is 1365, 86 is 1381).
  ByHand pixel({0, 0, 0}, 3072);
  pixel.engine->holdTable[9] = 1366;
  // A = 2048 and h = 1024: red 63 + (1024 x 192 >> 12) = 111, green 63 + (2048 x 192 >> 12) = 159,
  // alpha (255 x 2048 + 2048) >> 12 = 128.
  EXPECT_EQ(pixel.key(5, 9, 255), (Codes{111, 159, 0, 128}));
  EXPECT_EQ(pixel.key(5, 0, 255), (Codes{63, 111, 0, 64}));
  EXPECT_EQ(ByHand({0, 0, 0}, 4096).key(5, 0, 255), (Codes{0, 0, 0, 0}));
  EXPECT_EQ(ByHand({0, 0, 0}, 0).key(5, 9, 255), (Codes{63, 0, 255, 255}));
}

TEST(Pixel, SaturationDoesNotOverflow) {
  // Neutral-scale ratios of 1000 and a saturation of 3 carry the sums past 32 bits:
  // 4096 x 1000 x 2 x 16383 is about 1.3e11. The result is white, not what is left of it.
  ByHand pixel({16383, 16383, 16383}, 0);
  orvanite_setSaturation(pixel.engine.get(), 3, 0);
  pixel.engine->tablesDirty = 0;
  for (auto& row : pixel.engine->satMatrix[0]) std::fill_n(row, 3, 4096 * 2000);
  EXPECT_EQ(pixel.key(4, 0), (Codes{16383, 16383, 16383, 4096}));
  for (auto& row : pixel.engine->satMatrix[0]) std::fill_n(row, 3, -4096 * 2000);
  EXPECT_EQ(pixel.key(4, 0), (Codes{0, 0, 0, 4096}));
}

TEST(Pixel, OfTheScreenColourVanishesAndOfNoScreenStays) {
  for (const int space : {0, 1, 2})
    for (const int max : {255, 65535}) {
      SCOPED_TRACE(::testing::Message() << "space " << space << " max " << max);
      Parameters p;
      p.setAllMaxima(max);
      p.colourspace = space;
      p.view = 4;
      const float screen[] = {0.2f, 0.8f, 0.4f};  // whole codes of 255 and of 65535
      std::copy_n(screen, 3, p.screen);
      const Engine engine = makeEngine(p);
      ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
      unsigned short fg[2][4], dst[2][4] = {};
      for (int c = 0; c < 3; ++c) {
        fg[0][c] = static_cast<unsigned short>(screen[c] * static_cast<float>(max) + 0.5f);
        fg[1][c] = static_cast<unsigned short>(max / 2);
      }
      Otile tile = {};
      tile.dst = {dst[0], dst[0] + 1, dst[0] + 2, dst[0] + 3, 4, 8};
      tile.fg = {fg[0], fg[0] + 1, fg[0] + 2, nullptr, 4, 8};
      ASSERT_EQ(orvanite_render(engine.get(), 2, 2, 1, &tile), 0);
      // Rounding of three contributions (under 4 key units), carried by 1 / S (at most 2.6).
      EXPECT_LE(dst[0][3], max * 11 / 4096 + 1);
      EXPECT_GE(dst[1][3], max - max * 11 / 4096 - 1) << "grey leans nowhere";
      for (int c = 0; c < 3; ++c) EXPECT_NEAR(dst[1][c], fg[1][c], max * 11 / 4096 + 1);
    }
}
