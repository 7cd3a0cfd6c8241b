// SPDX-License-Identifier: BSD-3-Clause
//
// Halves beside Imath's own conversion of one at a time.
#include "media/Halves.h"

#include <Imath/half.h>
#include <gtest/gtest.h>

#include <bit>
#include <vector>

namespace orvanite::media {

// Every half, in rows that begin and end anywhere in a vector; NaNs keep their bits.
TEST(Halves, AreTheFloatsThatImathMakesOfThem) {
  std::vector<std::uint16_t> halves(65536);
  for (unsigned i = 0; i < 65536; ++i) halves[i] = static_cast<std::uint16_t>(i);
  std::vector<float> floats(65536 + 1, 7);
  std::size_t length = 0;
  for (std::size_t i = 0; i < 65536; i += length) {
    length = std::min<std::size_t>(length + 1, 65536 - i);
    halvesToFloats(&halves[i], length, &floats[i]);
  }
  int differing = 0;
  for (unsigned i = 0; i < 65536; ++i) {
    Imath::half half;
    half.setBits(halves[i]);
    const float expected = half;
    differing += std::bit_cast<unsigned>(expected) != std::bit_cast<unsigned>(floats[i]) ? 1 : 0;
  }
  EXPECT_EQ(differing, 0);
  EXPECT_EQ(floats.back(), 7) << "written behind the end";
}

// Every upper half of a float's bits beside lower ones about the middle between two halves.
TEST(Halves, OfFloatsAreImathsWhateverTheyAre) {
  std::vector<float> floats;
  for (unsigned upper = 0; upper < 65536; ++upper) {
    for (const unsigned lower : {0U, 1U, 0xFFFU, 0x1000U, 0x1001U, 0x3000U, 0xFFFFU}) {
      floats.push_back(std::bit_cast<float>(upper << 16 | lower));
    }
  }
  std::vector<std::uint16_t> halves(floats.size());
  floatsToHalves(floats.data(), floats.size(), halves.data());
  int differing = 0;
  for (std::size_t i = 0; i < floats.size(); ++i) {
    differing += Imath::half(floats[i]).bits() != halves[i] ? 1 : 0;
  }
  EXPECT_EQ(differing, 0);
}

// 0.5 is 0x3800 as a half, and each step of its last bit is 2^-11: three of a pixel, alpha beside
// them or left out, nothing behind the end.
TEST(Halves, OfThreeChannelsLieBesideAnAlphaInMemory) {
  for (const std::size_t pixels : {1U, 2U, 255U, 256U, 257U, 700U}) {
    std::vector<std::uint16_t> halves(3 * pixels);
    for (std::size_t i = 0; i < halves.size(); ++i) {
      halves[i] = static_cast<std::uint16_t>(0x3800 + i % 1021);
    }
    std::vector<float> floats(4 * pixels + 1, 7);
    halvesToPixels(halves.data(), pixels, 0.25F, floats.data());
    std::vector<std::uint16_t> back(3 * pixels + 1, 9);
    pixelsToHalves(floats.data(), pixels, back.data());
    for (std::size_t i = 0; i < pixels; ++i) {
      for (std::size_t c = 0; c < 3; ++c) {
        const auto step = static_cast<float>((3 * i + c) % 1021);
        ASSERT_EQ(floats[4 * i + c], 0.5F + step / 2048) << pixels << ": " << i << " " << c;
        ASSERT_EQ(back[3 * i + c], halves[3 * i + c]) << pixels << ": " << i << " " << c;
      }
      ASSERT_EQ(floats[4 * i + 3], 0.25F) << pixels << ": " << i;
    }
    EXPECT_EQ(floats.back(), 7);
    EXPECT_EQ(back.back(), 9);
  }
}

}  // namespace orvanite::media
