// SPDX-License-Identifier: BSD-3-Clause
//
// The same pictures give the same files, in every format, whatever the time, the folder, the
// process's earlier work and the threads.
#include <cstdlib>
#include <cstring>
#include <thread>

#include "media/MovieWriter.h"
#include "media/PictureWriter.h"
#include "tests/media/Files.h"

namespace orvanite::test {
namespace {

using media::Picture;

// A ramp with some grain, and a matte.
Picture pictureOf(media::Samples samples, int shift, int width = 96) {
  Picture picture = Picture::make({0, 0, width, 64}, media::depthOf(samples), samples);
  auto* bytes = reinterpret_cast<unsigned char*>(picture.pixels.get());
  for (std::size_t i = 0; i < picture.bytes(); ++i) {
    bytes[i] =
        static_cast<unsigned char>((i * 7 + i / 400 * 13 + static_cast<std::size_t>(shift) * 5) &
                                   (picture.depth == Depth::floats ? 63 : 255));
  }
  return picture;
}

std::string written(const std::string& name, const char* epoch) {
  epoch != nullptr ? ::setenv("SOURCE_DATE_EPOCH", epoch, 1) : ::unsetenv("SOURCE_DATE_EPOCH");
  const Folder folder;
  // What memory holds elsewhere differs from run to run.
  std::vector<char> chance(100000, static_cast<char>(std::rand()));
  const bool deep = name.ends_with(".exr") || name.ends_with(".hdr");
  media::writePicture(pictureOf(deep ? media::Samples::half : media::Samples::uint16, 0),
                      folder / name);
  return bytesOf(folder / name);
}

TEST(Repeatable, PicturesCarryNothingOfTheTimeThePlaceOrTheProcess) {
  std::vector<std::pair<std::string, std::string>> first;
  for (const char* ending :
       {"exr", "tif", "png", "dpx", "sgi", "tga", "jpg", "bmp", "ppm", "hdr", "webp", "jp2"}) {
    first.emplace_back(std::string("p.") + ending, written(std::string("p.") + ending, nullptr));
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));  // the next second
  for (const auto& [name, bytes] : first) {
    EXPECT_EQ(written(name, nullptr) == bytes, true) << name;
    EXPECT_EQ(bytes.find(std::to_string(::getpid())), std::string::npos) << name;
  }
  // 86400 seconds after 1970 began.
  EXPECT_NE(written("p.tif", "86400").find("1970:01:02 00:00:00"), std::string::npos);
  EXPECT_NE(written("p.exr", "86400").find("1970:01:02 00:00:00"), std::string::npos);
  ::unsetenv("SOURCE_DATE_EPOCH");
}

std::string movieOf(const std::string& name, const std::string& codec, int threads) {
  const Folder folder;
  media::MovieOptions options;
  options.codec = codec;
  options.frame = {0, 0, 640, 64};  // two columns of VP9
  options.samples = media::Samples::uint8;
  options.facts.frameRate = {25, 1};
  options.frameCount = 6;
  options.threads = threads;
  media::MovieWriter writer(folder / name, options);
  for (int frame = 0; frame < 6; ++frame) {
    writer.write(writer.prepare(pictureOf(media::Samples::uint8, frame, 640)));
  }
  writer.finish();
  return bytesOf(folder / name);
}

TEST(Repeatable, MoviesAreTheSameBytesWhateverTheThreads) {
  const std::pair<const char*, const char*> movies[] = {
      {"m.mov", "prores4444"}, {"m.mkv", "ffv1"},  {"m.webm", "vp9"},
      {"m.mkv", "vp9"},        {"m.mov", "qtrle"}, {"m.mkv", "png"},
      {"m.avi", "ffv1"},       {"m.mp4", "h264"},  {"m.mp4", "hevc"}};
  for (const auto& [name, codec] : movies) {
    const std::string one = movieOf(name, codec, 1);
    EXPECT_EQ(movieOf(name, codec, 1) == one, true) << name << ' ' << codec;
    EXPECT_EQ(movieOf(name, codec, 3) == one, true) << name << ' ' << codec << " by three threads";
  }
}

}  // namespace
}  // namespace orvanite::test
