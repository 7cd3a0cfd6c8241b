// SPDX-License-Identifier: BSD-3-Clause
//
// Movies out: what comes back of pixels and alpha, what is carried over from the plate's file, and
// that a movie is whole or not there, whatever ends the program.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>

#include <chrono>
#include <cmath>
#include <fstream>
#include <string>
#include <thread>

#include "tests/apps/Movies.h"

namespace orvanite::test {
namespace {

TEST(MovieOut, LosslessCodecsBringBackEveryBitAndAlpha) {
  for (const OIIO::TypeDesc type : {OIIO::TypeDesc::UINT8, OIIO::TypeDesc::UINT16}) {
    const Folder folder;
    writeShot(folder, "s", 1, 3, 35, 21, 4, type);
    for (const std::string movie : {"ffv1.mkv", "ffv1.avi", "ffv1.mov", "png.mov", "qtrle.mov"}) {
      if (movie == "qtrle.mov" && type == OIIO::TypeDesc::UINT16) continue;  // 8 bits only
      SCOPED_TRACE(movie + " " + type.c_str());
      const Outcome out = orvanite(folder, blueKeyWords + "-q --no-key @s.####.png -o @" + movie +
                                               " --codec " + movie.substr(0, movie.find('.')));
      ASSERT_EQ(out.code, 0) << out.err;
      const Outcome back =
          orvanite(folder, blueKeyWords + "-q --no-key @" + movie + " -o @b.####.png");
      ASSERT_EQ(back.code, 0) << back.err;
      for (int frame = 1; frame <= 3; ++frame) {
        expectSame(folder / frameFile("s", frame), folder / frameFile("b", frame));
      }
    }
  }
}

TEST(MovieOut, LossyCodecsComeCloseInColourAndAlpha) {
  // Four flat quarters: what a codec loses there is rounding, unless planes are mixed up.
  const Folder folder;
  const float quarters[4][4] = {
      {200, 40, 30, 255}, {30, 180, 60, 128}, {40, 50, 220, 0}, {235, 235, 20, 64}};
  Image image = randomImage(128, 128, 4, OIIO::TypeDesc::UINT8, 1);
  for (std::size_t i = 0; i < image.samples.size(); ++i) {
    const std::size_t x = i / 4 % 128;
    const std::size_t y = i / 4 / 128;
    image.samples[i] = quarters[y / 64 * 2 + x / 64][i % 4];
  }
  write(image, folder / "s.png");
  struct Case {
    const char* movie;
    float tolerance;  // of 255
    bool alpha;
  };
  for (const Case& one :
       {Case{"m.mov", 2, true}, Case{"m.webm", 4, true}, Case{"m.mp4", 4, false}}) {
    SCOPED_TRACE(one.movie);
    const Outcome out =
        orvanite(blueKey({"--no-key", folder / "s.png", "-o", folder / one.movie, "--fps", "25"}));
    ASSERT_EQ(out.code, 0) << out.err;
    EXPECT_EQ(out.err.find("holds no alpha") != std::string::npos, !one.alpha) << out.err;
    ASSERT_EQ(
        orvanite(blueKey({"-q", "--no-key", folder / one.movie, "-o", folder / "b.#.tif"})).code,
        0);
    const Image back = read(folder / "b.1.tif");
    const float scale = back.spec.format == OIIO::TypeDesc::UINT16 ? 257.0f : 1.0f;
    for (int quarter = 0; quarter < 4; ++quarter) {
      const int x = quarter % 2 * 64 + 32;
      const int y = quarter / 2 * 64 + 32;
      for (std::size_t c = 0; c < 4; ++c) {
        const float expected = c == 3 && !one.alpha ? 255 : quarters[quarter][c];
        EXPECT_NEAR(back.samples[static_cast<std::size_t>(y * 128 + x) * 4 + c] / scale, expected,
                    one.tolerance)
            << "quarter " << quarter << " channel " << c;
      }
    }
  }
}

TEST(MovieOut, CarriesRateTimeCodeAspectTagsAndSoundCutToTheFrames) {
  const Folder folder;
  ffmpeg({"-f", "lavfi", "-i", "testsrc2=s=96x64:r=24000/1001:d=4", "-f", "lavfi", "-i",
          "sine=d=4:r=48000", "-vf",
          "setsar=4/3,setparams=colorspace=bt709:color_primaries=bt709:color_trc=bt709:range=tv",
          "-c:v", "libx264", "-pix_fmt", "yuv420p", "-c:a", "pcm_s16le", "-timecode", "01:00:00:00",
          folder / "s.mov"});
  for (const Arguments& output : std::vector<Arguments>{
           {"m.mov"}, {"m.mkv", "--codec", "vp9"}, {"h.mov", "--codec", "h264"}}) {
    SCOPED_TRACE(output[0]);
    Arguments key = blueKey({folder / "s.mov", "--frames", "25-72", "-o", folder / output[0]});
    key.insert(key.end(), output.begin() + 1, output.end());
    const Outcome outcome = orvanite(key);
    ASSERT_EQ(outcome.code, 0) << outcome.err;
    const auto streams = streamsOf(folder / output[0]);
    ASSERT_GE(streams.size(), 2U);
    const auto& video = streams[0];
    EXPECT_EQ(video["r_frame_rate"], "24000/1001");
    EXPECT_EQ(video["sample_aspect_ratio"], "4:3");
    for (const char* tag : {"color_space", "color_primaries", "color_transfer"}) {
      EXPECT_EQ(video.value(tag, "none"), "bt709") << tag;
    }
    EXPECT_EQ(video.value("color_range", "none"), "tv");
    // The 25th frame is 24 frames, which count as one second, after the first.
    const auto& tags = video["tags"];
    EXPECT_EQ(tags.value("timecode", tags.value("TIMECODE", "none")), "01:00:01:00");
    EXPECT_EQ(streams[1]["codec_type"], "audio");
    // 48 frames take 48 * 1001 / 24000 = 2.002 s; packets are cut where their middle lies.
    run(FFMPEG_PROGRAM, {"-y", "-v", "error", "-i", folder / output[0], "-f", "s16le", "-ac", "1",
                         folder / "sound"});
    const auto bytes = std::filesystem::file_size(folder / "sound");
    EXPECT_NEAR(static_cast<double>(bytes) / 2 / 48000, 2.002, 1024.0 / 48000);
  }
  const Outcome gaps = orvanite(folder, blueKeyWords + "@s.mov --frames 1-20x2 -o @g.mov");
  EXPECT_NE(gaps.err.find("the sound is left out"), std::string::npos) << gaps.err;
  EXPECT_EQ(streamsOf(folder / "g.mov")[0]["nb_frames"], "10");
}

// Matroska counts in milliseconds.
TEST(MovieOut, HoldsEveryFrameOfAHighRateOrRefusesIt) {
  const Folder folder;
  writeShot(folder, "s", 1, 10, 20, 12);
  for (const char* const rate : {"940", "1000"}) {
    SCOPED_TRACE(rate);
    const Outcome written =
        orvanite(folder, blueKeyWords + "-q @s.####.png -o @m.mkv --fps " + rate);
    ASSERT_EQ(written.code, 0) << written.err;
    const Outcome again = orvanite(folder, blueKeyWords + "@m.mkv -o @m.####.png");
    EXPECT_EQ(again.code, 0) << again.err;
    EXPECT_EQ(again.err.find("held"), std::string::npos) << again.err;
    EXPECT_TRUE(std::filesystem::remove(folder / "m.0010.png"));
    std::filesystem::remove(folder / "m.mkv");
  }
  ffmpeg({"-framerate", "12000", "-i", folder / "s.%04d.png", "-c:v", "png", folder / "f.mov"});
  const Outcome refused = orvanite(folder, blueKeyWords + "-q @f.mov -o @m.mkv");
  EXPECT_EQ(refused.code, 2);
  EXPECT_NE(refused.err.find("m.mkv: expected at most 1000 frames a second, found 12000"),
            std::string::npos)
      << refused.err;
  EXPECT_FALSE(std::filesystem::exists(folder / "m.mkv"));
  const Outcome held = orvanite(folder, blueKeyWords + "-q @f.mov -o @m.mov");
  ASSERT_EQ(held.code, 0) << held.err;
  EXPECT_EQ(streamsOf(folder / "m.mov")[0]["nb_frames"], "10");
}

TEST(MovieOut, QualityAndBitRateAreTheCodecsOwn) {
  const Folder folder;
  ffmpeg({"-f", "lavfi", "-i", "testsrc2=s=320x240:r=25:d=2,noise=alls=20", "-c:v", "ffv1",
          folder / "s.mkv"});
  const auto bytes = [&](const std::string& movie) {
    const Outcome out = orvanite(folder, blueKeyWords + "-q --no-key @s.mkv -o @" + movie);
    EXPECT_EQ(out.code, 0) << out.err;
    return static_cast<double>(
        std::filesystem::file_size(folder / movie.substr(0, movie.find(' '))));
  };
  // Six steps of CRF halve the size, as x264's manual has it; each case is four times that apart.
  for (const char* codec : {"a.mp4 --codec h264", "b.mp4 --codec hevc", "c.webm --codec vp9"}) {
    const std::string with = std::string(codec) + " --quality ";
    EXPECT_GT(bytes(with + "12"), 2 * bytes(with + "36")) << codec;
  }
  EXPECT_GT(bytes("d.mov --quality 1"), 2 * bytes("e.mov --quality 16"));
  // 400 kbit/s for two seconds are 100 000 bytes; so short a movie is met roughly.
  for (const char* codec : {"f.mp4 --codec h264", "g.mp4 --codec hevc", "h.webm --codec vp9"}) {
    EXPECT_NEAR(bytes(std::string(codec) + " --bitrate 400k") / 100000, 1, 0.5) << codec;
  }
}

TEST(MovieOut, RefusesWhatDoesNotGoTogether) {
  const Folder folder;
  write(randomImage(21, 20, 3, OIIO::TypeDesc::UINT8, 1), folder / "s.png");
  const std::pair<std::string, const char*> cases[] = {
      {"-o @m.mov --codec dnx",
       "--codec: expected one of prores4444, h264, hevc, ffv1, vp9, qtrle, png, found 'dnx'"},
      {"-o @m.webm --codec png", "expected an ending that holds png: .mov"},
      {"-o @m.wmv", "expected a movie ending that can be written: .mov"},
      {"-o @m.mp4", "h264 takes an even width and height, found 21x20"},
      {"-o @m.mov --fps fast", "--fps: expected frames a second"},
      {"-o @m.mov --keep-going", "a movie cannot leave frames out"},
      {"-o @m.mov --quality 65", "--quality: expected of prores4444 1 (best) to 64, found '65'"},
      {"-o @m.mkv --quality 5", "--quality: ffv1 loses nothing"},
      {"-o @m.mov --bitrate 5M", "--bitrate: prores4444 is not written at a bit rate; it has"},
      {"-o @m.webm --bitrate 5X", "--bitrate: expected bits a second"},
      {"-o @m.webm --bitrate 5M --quality 5", "--bitrate: expected either it or --quality"},
      {"-o @m.png --sound none", "--sound: expected a movie to write"},
      {"-o @m.mov --matrix 708", "--matrix: expected 601, 709, 2020, 240M or fcc, found '708'"},
      {"-o @m.mov --matrix 709", "s.png: expected a movie to read by the matrix 709"},
      {"-o @m.mov --deinterlace", "--deinterlace: expected a movie with it"},
      {"-o @m.png --codec png", "--codec: expected a movie to write"}};
  for (const auto& [output, message] : cases) {
    const Outcome outcome = orvanite(folder, blueKeyWords + "-q @s.png " + output);
    EXPECT_EQ(outcome.code, 2) << message;
    EXPECT_NE(outcome.err.find(message), std::string::npos) << outcome.err;
  }
  EXPECT_EQ(folder.names(), std::vector<std::string>{"s.png"});
}

TEST(MovieOut, ABrokenFrameOrADiskThatTakesNothingLeavesNoMovie) {
  const Folder folder;
  writeShot(folder, "s", 1, 6, 200, 200);
  SmallDisk disk("256k");
  if (disk.made) {
    for (const char* name : {"m.mov", "m.mkv", "m.avi"}) {
      SCOPED_TRACE(name);
      const auto expect = [&](int code, const std::string& message, std::size_t files) {
        const Outcome outcome = orvanite(
            blueKey({"-q", folder / "s.####.png", "--screen", "0,1,0", "-o", disk / name}));
        EXPECT_EQ(outcome.code, code);
        EXPECT_NE(outcome.err.find(message), std::string::npos) << outcome.err;
        EXPECT_EQ(disk.names().size(), files);
      };
      expect(4, ": cannot be written: No space left on device", 0);
      ASSERT_TRUE(disk.remount("4m", MS_RDONLY));
      expect(1, "Read-only file system", 0);
      ASSERT_TRUE(disk.remount("4m"));
      expect(0, "", 1);
      std::filesystem::remove(disk / name);
      ASSERT_TRUE(disk.remount("256k"));
    }
  }
  const Folder out;
  std::filesystem::resize_file(folder / "s.0004.png", 300);
  const Outcome broken = orvanite(blueKey(
      {"-q", folder / "s.####.png", "-o", out / "m.mov", "--matte-output", out / "k.####.png"}));
  EXPECT_EQ(broken.code, 4);
  EXPECT_NE(broken.err.find("orvanite: frame 4: "), std::string::npos) << broken.err;
  EXPECT_NE(broken.err.find("a movie appears when it is whole"), std::string::npos) << broken.err;
  for (const std::string& name : out.names()) EXPECT_TRUE(name.starts_with("k.")) << name;
}

TEST(MovieOut, KilledAtAnyMomentItIsNotThereAndTheNextRunMakesIt) {
  const Folder folder;
  const std::string plate = folder / "s.mov";
  ffmpeg({"-f", "lavfi", "-i", "testsrc2=s=320x240:r=25:d=2", "-c:v", "png", plate});
  for (int signal : {SIGKILL, SIGTERM, SIGINT}) {
    const Folder out;
    const std::string movie = out / "m.mov";
    const pid_t child = start(blueKey({plate, "-o", movie}));
    // Until there is something to lose.
    for (int i = 0; i < 2000 && out.names().empty(); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    ::kill(child, signal);
    const int code = waitFor(child);
    if (signal != SIGKILL) {
      EXPECT_EQ(code, 130);
      EXPECT_EQ(out.names(), std::vector<std::string>());
    }
    EXPECT_FALSE(std::filesystem::exists(movie));
    const Arguments again = blueKey({"-q", "--skip-existing", plate, "-o", movie});
    EXPECT_EQ(orvanite(again).code, 0);
    EXPECT_EQ(streamsOf(movie)[0]["nb_frames"], "50");
    const auto made = std::filesystem::last_write_time(movie);
    EXPECT_EQ(orvanite(again).code, 0);
    EXPECT_EQ(std::filesystem::last_write_time(movie), made);
  }
}

}  // namespace
}  // namespace orvanite::test
