// SPDX-License-Identifier: BSD-3-Clause
//
// `orvanite compare` and `orvanite info`: figures worked out by hand, and what they refuse.
#include <gtest/gtest.h>

#include "tests/apps/Images.h"
#include "tests/apps/Program.h"

namespace orvanite::test {
namespace {

TEST(Compare, GivesTheFiguresOfAKnownDifference) {
  const Folder folder;
  Image image = randomImage(4, 1, 3, OIIO::TypeDesc::UINT8, 1);
  image.samples.assign(12, 100);
  write(image, folder / "a.png");
  // Red differs by 51/255 = 0.2 at one of four pixels: mean 0.05, root mean square 0.1.
  image.samples[3] = 151;
  write(image, folder / "b.png");
  EXPECT_EQ(orvanite({"compare", folder / "a.png", folder / "a.png"}).code, 0);
  const Outcome outcome =
      orvanite({"compare", folder / "a.png", folder / "b.png", "--difference", folder / "d.png"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.err, "");
  EXPECT_NE(outcome.out.find("R        0.050000     0.100000     0.200000     1\n"),
            std::string::npos)
      << outcome.out;
  EXPECT_NE(outcome.out.find("G        0.000000     0.000000     0.000000     0\n"),
            std::string::npos);
  const Image difference = read(folder / "d.png");
  EXPECT_EQ(difference.samples[4], 51);
  EXPECT_EQ(difference.samples[0], 0);
  EXPECT_EQ(difference.samples[3], 255);

  write(randomImage(4, 2, 3, OIIO::TypeDesc::UINT8, 1), folder / "c.png");
  const Outcome sizes = orvanite({"compare", folder / "a.png", folder / "c.png"});
  EXPECT_EQ(sizes.code, 2);
  EXPECT_NE(sizes.err.find("expected a picture of the size 4x1, found 4x2"), std::string::npos);
  EXPECT_EQ(orvanite({"compare", folder / "a.png"}).code, 2);
}

TEST(Info, SaysWhatAPlateIs) {
  const Folder folder;
  for (const char* name : {"a.0001.exr", "a.0002.exr", "a.0004.exr"}) {
    write(randomImage(6, 5, 3, OIIO::TypeDesc::HALF, 1), folder / name);
  }
  const Outcome outcome = orvanite({"info", folder / "a.####.exr"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  for (const char* part :
       {"6x5", "half (16 bits, openexr)", "R, G, B", "linear (half samples)", "1-2,4 (3)"}) {
    EXPECT_NE(outcome.out.find(part), std::string::npos) << part << "\n" << outcome.out;
  }
  EXPECT_EQ(orvanite({"info"}).code, 2);
  EXPECT_EQ(orvanite({"info", folder / "none.exr"}).code, 1);
}

}  // namespace
}  // namespace orvanite::test
