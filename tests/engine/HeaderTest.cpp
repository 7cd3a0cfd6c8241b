// SPDX-License-Identifier: BSD-3-Clause
//
// The public header as a C++ client's first include, and a C client that keys a pixel with it.
#include "engine/orvanite.h"

#include <gtest/gtest.h>

#include <cstddef>

extern "C" int keyGreyInC(unsigned char* pixel);

TEST(PublicHeader, ServesACClientAlone) {
  unsigned char grey[4] = {128, 128, 128, 0}, blue[4] = {0, 0, 255, 99};
  ASSERT_EQ(keyGreyInC(grey), 0);
  EXPECT_EQ(grey[3], 255) << "grey leans towards no screen";
  ASSERT_EQ(keyGreyInC(blue), 0);
  EXPECT_LE(blue[3], 1) << "the default screen is blue";
}

// What a client compiled against an older header has in its binary: four pointers and two 32-bit
// steps an image, six images. A change here is another soname.
TEST(PublicHeader, LaysTheTileOutAsSixImagesInOrder) {
  static_assert(sizeof(int) == 4, "steps are 32 bits");
  const std::size_t pointer = sizeof(void*);
  EXPECT_EQ(sizeof(OtileImage), 4 * pointer + 8);
  EXPECT_EQ(alignof(OtileImage), pointer);
  EXPECT_EQ(sizeof(Otile), 6 * sizeof(OtileImage));
  const std::size_t channels[] = {offsetof(OtileImage, red), offsetof(OtileImage, green),
                                  offsetof(OtileImage, blue), offsetof(OtileImage, alpha),
                                  offsetof(OtileImage, pixelStep)};
  for (std::size_t i = 0; i < 5; ++i) EXPECT_EQ(channels[i], i * pointer);
  const std::size_t offsets[] = {offsetof(Otile, dst),     offsetof(Otile, bg),
                                 offsetof(Otile, fg),      offsetof(Otile, hold),
                                 offsetof(Otile, garbage), offsetof(Otile, ref)};
  for (std::size_t i = 0; i < 6; ++i) EXPECT_EQ(offsets[i], i * sizeof(OtileImage));
  EXPECT_EQ(offsetof(OtileImage, lineStep), 4 * pointer + 4);
}
