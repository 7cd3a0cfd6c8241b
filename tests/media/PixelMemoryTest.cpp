// SPDX-License-Identifier: BSD-3-Clause
//
// Which memory of pictures is kept, counted in what malloc has of the system: blocks of 40 MiB come
// from there one by one, and nobody touches them here.
#include "media/PixelMemory.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <optional>

#include "tests/Sanitized.h"

namespace orvanite::media {
namespace {

constexpr std::size_t one = 40 << 20, other = 41 << 20;

}  // namespace

TEST(PixelMemory, IsKeptForTheSameSizeWhileAnybodyKeepsIt) {
#ifdef ORVANITE_SANITIZED
  GTEST_SKIP() << "sanitizers have an allocator of their own";
#endif
  const std::size_t before = mallinfo2().hblks;
  const auto held = [&] { return mallinfo2().hblks - before; };
  { const Pixels gone = takePixels(one); }
  EXPECT_EQ(held(), 0U) << "nobody keeps it";

  std::optional<KeptPixels> first(std::in_place), second(std::in_place);
  const std::byte* at = nullptr;
  {
    const Pixels a = takePixels(one), b = takePixels(one);
    at = a.get();
  }
  EXPECT_EQ(held(), 2U);
  {
    // b was left first: it makes room for another size.
    const Pixels c = takePixels(other);
    EXPECT_EQ(held(), 2U);
    const Pixels d = takePixels(one);
    EXPECT_EQ(d.get(), at);
    EXPECT_EQ(held(), 2U);
  }
  first.reset();
  EXPECT_EQ(held(), 2U) << "the second keeps it";
  second.reset();
  EXPECT_EQ(held(), 0U);
}

TEST(PixelMemory, LeavesNothingOfANullPicture) {
  const KeptPixels kept;
  Pixels pixels;
  pixels = takePixels(10);
  pixels[9] = std::byte{1};
  pixels.reset();
  EXPECT_EQ(takePixels(one).get_deleter().bytes, one);
}

}  // namespace orvanite::media
