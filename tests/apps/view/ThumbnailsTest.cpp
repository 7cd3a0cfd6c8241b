// SPDX-License-Identifier: BSD-3-Clause
//
// Small pictures of plates that are written here as PPM: what they are the mean of, and how many
// are kept.
#include "apps/view/Thumbnails.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "base/Error.h"

namespace orvanite::view {
namespace {

namespace files = std::filesystem;

/// Frames 1 to `count` under a pattern, which goes with it. Pixel x, y of frame n is value(n, x,
/// y).
class Plate {
 public:
  template <class Value>
  Plate(int width, int height, int count, Value value) {
    std::string name = (files::temp_directory_path() / "orvanite-thumbnails-XXXXXX").string();
    folder_ = ::mkdtemp(name.data());
    for (int frame = 1; frame <= count; ++frame) {
      std::string file = "P6 " + std::to_string(width) + " " + std::to_string(height) + " 255\n";
      for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
          file += std::string(3, static_cast<char>(value(frame, x, y)));
      }
      const std::string number = std::to_string(10000 + frame).substr(1);
      std::ofstream(folder_ / ("plate." + number + ".ppm"), std::ios::binary) << file;
    }
  }
  ~Plate() { files::remove_all(folder_); }
  Plate(const Plate&) = delete;
  Plate& operator=(const Plate&) = delete;

  Thumbnails thumbnails() const {
    shot::ShotFiles plate;
    plate.clips[shot::Role::plate] = {(folder_ / "plate.####.ppm").string()};
    return {plate, {}};
  }

 private:
  files::path folder_;
};

TEST(Thumbnails, AreMeansOfTheFrameInNoMoreThanTheirRoom) {
  // 640 / 160 is 4, 362 / 90 is more: 5 pixels each way. 12 of each 25 are 1 more than their
  // block's number, whose mean is 0.48 above it and rounds to it.
  const Plate plate(640, 362, 2, [](int frame, int x, int y) {
    return 10 * frame + x / 5 % 100 + (x % 5 * 5 + y % 5) % 2;
  });
  Thumbnails thumbnails = plate.thumbnails();
  for (const int frame : {2, 1}) {
    const Thumbnails::Shared picture = thumbnails.of(frame);
    ASSERT_EQ(picture->width, 128);  // 640 / 5
    ASSERT_EQ(picture->height, 73);  // 362 / 5, and two rows more
    for (int x = 0; x < 128; ++x) {
      ASSERT_EQ(picture->rgba[static_cast<std::size_t>(4 * x)], 10 * frame + x % 100) << x;
    }
    EXPECT_EQ(picture, thumbnails.of(frame)) << "kept";
  }
  for (const int frame : {0, 3}) EXPECT_THROW(thumbnails.of(frame), Error) << frame;
}

TEST(Thumbnails, KeepNoMoreThanTheirBytes) {
  constexpr int frames = 150;
  const Plate plate(160, 90, frames, [](int frame, int, int) { return frame; });
  Thumbnails thumbnails = plate.thumbnails();
  for (int frame = 1; frame <= frames; ++frame) {
    EXPECT_EQ(thumbnails.of(frame)->rgba.front(), frame);
  }
  // 8388608 bytes hold 145 pictures of 4 x 160 x 90, and a part of one more.
  EXPECT_EQ(thumbnails.keptBytes(), std::size_t{145} * 4 * 160 * 90);
  EXPECT_EQ(thumbnails.of(1)->rgba.front(), 1) << "read again";
}

}  // namespace
}  // namespace orvanite::view
