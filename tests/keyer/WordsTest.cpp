// SPDX-License-Identifier: BSD-3-Clause
//
// Samples as words and back: every word, against the arithmetic said in the header.
#include "keyer/Words.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "keyer/Look.h"

namespace orvanite {
namespace {

constexpr int count = 65536;

TEST(Words, OfACleanPlateInLightAreThoseOfTheCurve) {
  // Codes from below black to brighter than any step, 1/262144 apart: 2.5 times all steps.
  std::vector<float> codes;
  for (int i = -4096; i < 10 * count; ++i) codes.push_back(static_cast<float>(i) / 262144);
  const int width = static_cast<int>(codes.size());
  for (const float white : {1.0f, 3.3f, 8.0f}) {
    Words words;
    words.prepare(Depth::floats, false, true, white);
    Words::Buffer found(codes.size());
    words.takeCodes(codes.data(), width, found.data());
    std::size_t wrong = 0;
    for (std::size_t i = 0; i < codes.size(); ++i) {
      wrong += found[i] != wordOf(lightOfCode(codes[i]) / white);
    }
    EXPECT_EQ(wrong, 0U) << white;
  }
}

TEST(Words, OfBytesAreRoundedHalfUpAndSoAreBytesOfWords) {
  Words words;
  words.prepare(Depth::bytes, false, false, 1);
  std::vector<std::uint8_t> bytes(count);
  std::vector<std::uint16_t> all(count);
  for (int i = 0; i < count; ++i) all[static_cast<std::size_t>(i)] = static_cast<std::uint16_t>(i);
  // As interleaved pixels, and as planes; the alpha is a quarter of them either way.
  for (const int step : {4, 1}) {
    const auto imageOf = [step](auto* p, int apart) -> OtileImage {
      return {p, p + apart, p + 2 * apart, p + 3 * apart, step, step * count / 4};
    };
    const OtileImage samples = imageOf(bytes.data(), step == 4 ? 1 : count / 4);
    const OtileImage whole = {all.data(), all.data() + 1, all.data() + 2, all.data() + 3, 4, count};
    words.give(whole, samples, count / 4, 1, true);
    for (int i = 0; i < count; ++i) {
      const int at = step == 4 ? i : i % 4 * (count / 4) + i / 4;
      // word / 65535 * 255 + 1/2, cut: (2 word + 257) / 514.
      ASSERT_EQ(bytes[static_cast<std::size_t>(at)], (2 * i + 257) / 514) << i << " " << step;
    }
    Words::Buffer back(count);
    const OtileImage again = {back.data(), back.data() + 1, back.data() + 2, back.data() + 3, 4,
                              count};
    words.take(samples, again, count / 4, 1);
    for (int i = 0; i < count; ++i) {
      ASSERT_EQ(back[static_cast<std::size_t>(i)], 257 * ((2 * i + 257) / 514)) << i;
    }
  }
}

}  // namespace
}  // namespace orvanite
