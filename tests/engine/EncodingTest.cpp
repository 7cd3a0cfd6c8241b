// SPDX-License-Identifier: BSD-3-Clause
//
// The vectorised encodings against their definitions, on a sample of all floats with every place
// where something changes. tests/engine/Exhaustive.cpp looks at all of them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "engine/colour/Fused.h"
#include "tests/engine/EncodingSweep.h"
#include "tests/engine/Random.h"

namespace {

/// Every 4093rd float, negative and positive, and the neighbours of each power of two, of the
/// knees of the video curve, of 0, the infinities and NaNs.
std::vector<float> sampleOfFloats() {
  std::vector<float> sample;
  for (std::uint64_t bits = 0; bits < (std::uint64_t{1} << 32); bits += 4093) {
    sample.push_back(sweep::fromBits(static_cast<std::uint32_t>(bits)));
  }
  std::vector<std::uint32_t> places;
  for (std::uint32_t exponent = 0; exponent <= 255; ++exponent) places.push_back(exponent << 23);
  for (const float v : {0.081f, 0.018f, 0.0899765f, 65504.0f, 0.5f * 0x1.6a09e6p0f}) {
    places.push_back(sweep::bitsOf(v));  // 0.0899765^1.6666666 is 0.018
  }
  for (const std::uint32_t place : places) {
    for (std::uint32_t near = 0; near < 128; ++near) {
      sample.push_back(sweep::fromBits(place + near - 64));
      sample.push_back(sweep::fromBits((place + near - 64) | 0x80000000U));
    }
  }
  return sample;
}

TEST(Encodings, GiveTheBitsOfTheDefinitionOnEveryTarget) {
  const std::vector<float> sample = sampleOfFloats();
  std::vector<float> wanted(sample.size());
  for (const sweep::Function& f : sweep::functions()) {
    std::transform(sample.begin(), sample.end(), wanted.begin(),
                   [&](float v) { return f.define(v); });
    for (const orvanite::Target& target : orvanite::knownTargets()) {
      if (!target.supported() || target.encodings == nullptr) continue;
      EXPECT_EQ(sweep::compare(target, f, sample, wanted), "");
    }
  }
}

// The C library's fma is exact here: an independent model of ours, which other machines need.
TEST(Encodings, FuseWithOneRoundingWithoutTheProcessorsHelp) {
  Random random(9);
  const auto any = [&random](std::uint32_t exponents) {
    // Exponents near one another cancel and round; all of them meet what lies beyond normal floats.
    const auto bits = static_cast<std::uint32_t>(random.next());
    return sweep::fromBits((bits & 0x807fffffU) + ((127 - exponents / 2 + bits % exponents) << 23));
  };
  for (int i = 0; i < 2000000; ++i) {
    const std::uint32_t exponents = i % 2 != 0 ? 30 : 254;
    const float a = any(exponents), b = any(exponents);
    const float c = random.oneIn(4) ? -a * b : any(exponents);
    const float wanted = std::fma(a, b, c), got = orvanite::fusedByDoubles(a, b, c);
    ASSERT_EQ(std::memcmp(&wanted, &got, sizeof got), 0)
        << std::hexfloat << a << " * " << b << " + " << c << " is " << got << ", not " << wanted;
  }
  EXPECT_EQ(orvanite::fusedByDoubles(INFINITY, 2, 1), INFINITY);
  EXPECT_EQ(orvanite::fusedByDoubles(3e38f, 3e38f, -INFINITY), -INFINITY);
  EXPECT_TRUE(std::isnan(orvanite::fusedByDoubles(INFINITY, 0, 1)));
}

// Random floats seldom lie where the estimate cannot decide. These do: the C library's own double
// is so near a border between two floats that the estimate's own error can carry it across.
TEST(Encodings, AgreeWhereTheEstimateCannotTellHowToRound) {
  const sweep::Function power = {"power 0.6 at borders", sweep::raise, 0, 0.6f};
  std::vector<float> close, wanted;
  for (std::uint32_t bits = 0x20000000; bits < 0x3f800000 && close.size() < 60; ++bits) {
    const float v = sweep::fromBits(bits);
    const double exact = std::pow(static_cast<double>(v), static_cast<double>(power.exponent));
    if (sweep::borderDistance(exact) < 0x1p-44) close.push_back(v);
  }
  ASSERT_EQ(close.size(), 60U);
  for (const float v : close) wanted.push_back(power.define(v));
  for (const orvanite::Target& target : orvanite::knownTargets()) {
    if (!target.supported() || target.encodings == nullptr) continue;
    EXPECT_EQ(sweep::compare(target, power, close, wanted), "");
  }
}

TEST(Encodings, TouchNothingOutsideTheirArraysAndWorkInPlace) {
  for (const orvanite::Target& target : orvanite::knownTargets()) {
    if (!target.supported() || target.encodings == nullptr) continue;
    for (std::size_t n = 0; n <= 70; ++n) {
      std::vector<float> row(n + 2, 0.25f);
      row.front() = row.back() = -7;
      target.encodings->toLinear(row.data() + 1, row.data() + 1, n, orvanite::videoSpace);
      EXPECT_EQ(row.front(), -7) << target.name << ", " << n << " values";
      EXPECT_EQ(row.back(), -7) << target.name << ", " << n << " values";
      const auto wrong = std::count_if(row.begin() + 1, row.end() - 1, [](float v) {
        return v != orvanite::toLinear(0.25f, orvanite::videoSpace);
      });
      EXPECT_EQ(wrong, 0) << target.name << ", " << n << " values";
    }
  }
}

}  // namespace
