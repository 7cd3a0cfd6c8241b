// SPDX-License-Identifier: BSD-3-Clause
//
// Movies out of `orvanite run`: the frames, the rate and the sound that `key` gives them, whole or
// not at all.
#include <fstream>

#include "tests/apps/Movies.h"

namespace orvanite::test {
namespace {

TEST(RunMovie, AFileOutWritesTheMovieThatKeyWrites) {
  const Folder folder;
  writeShot(folder, "s", 1, 6, 32, 20);
  ffmpeg({"-r", "25", "-i", folder / "s.%04d.png", "-f", "lavfi", "-i", "sine=duration=0.24",
          "-c:v", "png", "-c:a", "pcm_s16le", folder / "m.mov"});
  struct Case {
    const char* plate;
    const char* out;
    const char* options;
    int frames;  // of the script, from 1; the key's are all
    const char* rate;
    std::size_t streams;
  };
  const Case cases[] = {
      {"m.mov", "k.mov", "", 6, "25/1", 2},
      {"m.mov", "k.mkv", "--codec ffv1 --alpha none", 6, "25/1", 2},
      {"s.####.png", "k.mov", "--fps 30000/1001", 6, "30000/1001", 1},
      {"m.mov", "k.mov", "--fps 12.5 --quality 9", 3, "25/2", 2},
      {"s.####.png", "k.mov", "--sound @m.mov", 6, "24/1", 2},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(std::string(one.plate) + one.out);
    const Outcome keyed = orvanite(folder, blueKeyWords + "-q @" + one.plate + " -o @" + one.out +
                                               " " + one.options + " --save-script @s.orv");
    ASSERT_EQ(keyed.code, 0) << keyed.err;
    const std::string expected = contents(folder / one.out);
    std::filesystem::remove(folder / one.out);
    const Outcome ran = orvanite(folder, "run -q @s.orv --frames 1-" + std::to_string(one.frames));
    ASSERT_EQ(ran.code, 0) << ran.err;
    EXPECT_TRUE(contents(folder / one.out) == expected);
    const auto streams = streamsOf(folder / one.out);
    EXPECT_EQ(streams.size(), one.streams);
    EXPECT_EQ(streams[0]["r_frame_rate"], one.rate);
    // It is there, and whole: nothing is left to do.
    const Outcome again = orvanite(
        folder, "run @s.orv --json --skip-existing --frames 1-" + std::to_string(one.frames));
    EXPECT_NE(again.out.find("\"done\":0,\"skipped\":" + std::to_string(one.frames)),
              std::string::npos)
        << again.out;
    std::filesystem::remove(folder / one.out);
  }
  // A frame that fails leaves no movie, and the one that was there as it was.
  std::ofstream(folder / "k.mov") << "old";
  std::ofstream(folder / "hole.orv")
      << "FileOut(Orvanite(FileIn(\"m.mov\"), bScreen = time == 4 ? 0 : 0.9), \"k.mov\");\n";
  const Outcome hole = orvanite(folder, "run -q @hole.orv --frames 1-6");
  EXPECT_EQ(hole.code, 4);
  EXPECT_NE(hole.err.find("a movie appears when it is whole"), std::string::npos) << hole.err;
  EXPECT_EQ(contents(folder / "k.mov"), "old");
}

}  // namespace
}  // namespace orvanite::test
