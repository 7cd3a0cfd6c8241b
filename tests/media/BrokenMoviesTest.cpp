// SPDX-License-Identifier: BSD-3-Clause
//
// Movies in: one that ends before its container says is named with frame and time; nothing in a
// file leads to another; frames at uneven times are numbered as a player shows them.
#include <cmath>

#include "tests/media/Files.h"

namespace orvanite::test {
namespace {

TEST(BrokenMovies, OnesThatEndShortFailWithFrameAndTimeAndWholeOnesDoNot) {
  const Folder folder;
  const std::string video = "-f lavfi -i testsrc2=s=96x64:r=25:d=2";
  const std::string sound = " -f lavfi -i sine=d=2 -c:a ";
  const std::pair<const char*, std::string> movies[] = {
      {"a.y4m", video + " -pix_fmt yuv420p"},
      {"a.ts", video + sound + "mp2 -c:v libx264 -pix_fmt yuv420p -g 12"},
      {"a.m2ts", video + " -c:v mpeg2video"},
      {"a.ogv", video + sound + "libvorbis -c:v libtheora"},
      {"a.mkv", video + sound + "pcm_s16le -c:v ffv1"},
      {"b.mkv", video + " -c:v libx264 -pix_fmt yuv420p -live 1"},
      {"a.webm", video + " -c:v libvpx-vp9 -cpu-used 8 -deadline realtime"},
      {"a.avi", video + sound + "pcm_s16le -c:v mjpeg"},
      {"a.mxf", video + " -c:v mpeg2video"},
      {"a.flv", video + " -c:v flv1"},
      {"a.wmv", video + " -c:v wmv2"},
      // Its header's duration is two frames longer than anything in it.
      {"b.wmv", "-f lavfi -i testsrc2=s=96x64:r=50:d=1 -f lavfi -i sine=d=1 -c:a wmav2 -c:v wmv2"},
      {"a.ivf", video + " -c:v libvpx-vp9 -cpu-used 8 -deadline realtime"},
      {"a.mp4", video + sound + "aac -c:v libx264 -pix_fmt yuv420p -movflags faststart"},
      {"b.mp4", video + " -c:v libx264 -pix_fmt yuv420p -movflags frag_keyframe+empty_moov -g 12"},
      {"a.mov", video + " -c:v prores_ks -movflags faststart"}};
  for (const auto& [name, line] : movies) {
    SCOPED_TRACE(name);
    ffmpeg(folder, line + " @" + name);
    const ReadThrough whole = readThrough(folder / name);
    EXPECT_EQ(whole.error, "");
    EXPECT_EQ(whole.frames, 50);
    const std::string bytes = bytesOf(folder / name);
    for (const double share : {0.5, 0.9}) {
      const std::string cut = folder / (std::string("cut-") + name);
      writeBytes(cut, bytes.substr(0, static_cast<std::size_t>(share * double(bytes.size())) | 1));
      const ReadThrough read = readThrough(cut);
      EXPECT_LT(read.frames, 50);
      EXPECT_NE(read.error, "") << share;
      EXPECT_TRUE(read.error.find("frame") != std::string::npos) << read.error;
      if (read.error.find("there is no frame") != std::string::npos) {
        EXPECT_NE(read.error.find(" s"), std::string::npos) << read.error;
      }
    }
  }
}

// Decoders are asked to fail over damage, which not every one of them survives on several threads.
TEST(BrokenMovies, DamageInAFrameIsAnErrorOnAnyNumberOfThreads) {
  const Folder folder;
  const std::string video = "-f lavfi -i testsrc2=s=64x48:r=25:d=0.4 -threads 1 -g 100 -c:v ";
  for (const char* codec : {"mpeg4", "mpeg2video", "libx264 -pix_fmt yuv420p", "flv1", "wmv2",
                            "libvpx -deadline realtime", "libvpx-vp9 -deadline realtime", "ffv1",
                            "huffyuv", "png", "libtheora", "mjpeg"}) {
    SCOPED_TRACE(codec);
    ffmpeg(folder, video + codec + " @a.mkv");
    ASSERT_EQ(readThrough(folder / "a.mkv").frames, 10);
    const std::string bytes = bytesOf(folder / "a.mkv");
    for (const double share : {0.4, 0.5, 0.6, 0.7, 0.8}) {
      std::string hurt = bytes;
      const auto at = static_cast<std::size_t>(share * double(bytes.size()));
      for (std::size_t i = at; i < at + 8; ++i) hurt[i] = static_cast<char>(hurt[i] ^ 0x55);
      writeBytes(folder / "hurt.mkv", hurt);
      for (const int threads : {1, 2, 4}) {
        OIIO::attribute("threads", threads);
        const ReadThrough read = readThrough(folder / "hurt.mkv");
        EXPECT_TRUE(read.frames == 10 || !read.error.empty()) << read.frames;
      }
    }
  }
}

TEST(BrokenMovies, NothingInAFileLeadsToAnother) {
  const Folder folder;
  ffmpeg(folder, "-f lavfi -i testsrc2=s=32x32:d=1 -c:v mpeg2video @secret.ts");
  const std::string target = folder / "secret.ts";
  writeBytes(folder / "list.mov", "ffconcat version 1.0\nfile '" + target + "'\n");
  writeBytes(folder / "play.mov",
             "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\n" + target + "\n#EXT-X-ENDLIST\n");
  const std::pair<const char*, const char*> cases[] = {{"list.mov", "found concat"},
                                                       {"play.mov", "found hls"}};
  for (const auto& [name, message] : cases) {
    const std::string error = readThrough(folder / name).error;
    EXPECT_NE(error.find("cannot be read as a movie: expected QuickTime, MP4, "), std::string::npos)
        << error;
    EXPECT_NE(error.find(message), std::string::npos) << error;
  }
}

// Pixels may be anything, what another container is known by among it.
TEST(BrokenMovies, AFileIsInTheContainerThatItBeginsAs) {
  const Folder folder;
  const std::string mark = "\x4E\x4D\x7A\x56\x1F\x5F\x04\xAD";  // NUT's main header
  std::string pixels(std::size_t{32} * 32 * 3, '\x40');
  pixels.replace(100, mark.size(), mark);
  writeBytes(folder / "pixels", pixels);
  const std::pair<const char*, const char*> movies[] = {{"a.mkv", "yuv420p"}, {"a.mov", "rgb24"}};
  for (const auto& [name, format] : movies) {
    ffmpeg(folder, std::string("-f rawvideo -s 32x32 -pix_fmt ") + format +
                       " -i @pixels -frames:v 1 -c:v rawvideo @" + name);
    ASSERT_NE(bytesOf(folder / name).find(mark), std::string::npos) << name;
    const ReadThrough read = readThrough(folder / name);
    EXPECT_EQ(read.error, "") << name;
    EXPECT_EQ(read.frames, 1) << name;
  }
}

// Matroska's tags of colour are numbers that nobody checks: those that stand for nothing are none.
TEST(BrokenMovies, ATagThatStandsForNothingCountsAsNone) {
  const Folder folder;
  ffmpeg(
      folder,
      "-f lavfi -i testsrc2=s=32x32:r=25:d=0.1 -c:v ffv1 -pix_fmt yuv420p -color_primaries bt709 "
      "-color_trc bt709 -colorspace bt709 -color_range tv @tagged.mkv");
  std::string bytes = bytesOf(folder / "tagged.mkv");
  EXPECT_EQ(media::Source::open(folder / "tagged.mkv")->notice(), "");
  // Those of matrix, primaries and transfer, each with one byte behind it.
  for (const char* tag : {"\x55\xB1\x81\x01", "\x55\xBB\x81\x01", "\x55\xBA\x81\x01"}) {
    const std::size_t at = bytes.find(tag);
    ASSERT_NE(at, std::string::npos);
    bytes[at + 3] = '\x8A';
  }
  writeBytes(folder / "hurt.mkv", bytes);
  const ReadThrough read = readThrough(folder / "hurt.mkv");
  EXPECT_EQ(read.error, "");
  EXPECT_EQ(read.frames, 3);
  EXPECT_NE(media::Source::open(folder / "hurt.mkv")->notice().find("taken to have the matrix"),
            std::string::npos);
}

// Each frame of the source is a grey of its number, 4 codes apart.
std::vector<int> shownBy(const Folder& folder, const std::string& name) {
  const auto source = media::Source::open(folder / name);
  std::vector<int> shown;
  for (const int frame : source->frames()) {
    const auto picture = source->read(frame, {Depth::bytes, source->info().display, 1, ""});
    shown.push_back(static_cast<int>(std::lround((static_cast<int>(picture.pixels[0]) - 8) / 4.0)));
  }
  return shown;
}

TEST(BrokenMovies, UnevenFramesAreNumberedAsAPlayerShowsThem) {
  const Folder folder;
  const std::string source =
      "-f lavfi -i color=s=32x32:r=25:d=1,format=gbrp,geq=r=8+4*N:g=8+4*N:b=8+4*N -vsync vfr "
      "-enc_time_base 1/1000 -c:v ffv1 -vf ";
  struct Case {
    const char *name, *filter;
    std::vector<int> shown;  // of 25 frames, 0 to 24
    bool said;
  };
  const auto but = [](std::vector<std::pair<int, int>> changes) {
    std::vector<int> all(25);
    for (int i = 0; i < 25; ++i) all[static_cast<std::size_t>(i)] = i;
    for (const auto& [at, value] : changes) all[static_cast<std::size_t>(at)] = value;
    return all;
  };
  const Case cases[] = {
      {"even.mkv", "null", but({}), false},
      // Frame 10 is not there: 9 is held. So with 3 and 20.
      {"dropped.mkv", "select=not(eq(n\\,10))", but({{10, 9}}), true},
      {"two.mkv", "select=not(eq(n\\,3)+eq(n\\,20))", but({{3, 2}, {20, 19}}), true},
      // All frames but the first 15 ms late, and the last one 19: the rate stays.
      {"late.mkv", "settb=1/1000,setpts=PTS+15*gte(N\\,1)+4*eq(N\\,24)", but({}), false}};
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    ffmpeg(folder, source + one.filter + " @" + one.name);
    EXPECT_EQ(shownBy(folder, one.name), one.shown);
    const auto movie = media::Source::open(folder / one.name);
    const media::Ratio rate = movie->facts().frameRate;
    EXPECT_EQ(rate.numerator, 25 * rate.denominator);
    EXPECT_EQ(movie->notice().find("held") != std::string::npos, one.said) << movie->notice();
  }
}

}  // namespace
}  // namespace orvanite::test
