// SPDX-License-Identifier: BSD-3-Clause
//
// Movies in: every frame as a still of it would be, colours by the arithmetic of the standards, and
// files that are broken. Movies are made with the ffmpeg program.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <fstream>
#include <string>

#include "tests/apps/Movies.h"

namespace orvanite::test {
namespace {

TEST(MovieIn, AFrameOfALosslessMovieIsKeyedAsTheStillThatItWasMadeFrom) {
  struct Case {
    OIIO::TypeDesc type;
    int channels;
    Arguments codec;
    const char* movie;
  };
  const Case cases[] = {
      {OIIO::TypeDesc::UINT8, 3, {"-c:v", "png"}, "m.mov"},
      {OIIO::TypeDesc::UINT8, 4, {"-c:v", "ffv1", "-pix_fmt", "bgra"}, "m.mkv"},
      {OIIO::TypeDesc::UINT16, 3, {"-c:v", "png"}, "m.mov"},
      {OIIO::TypeDesc::UINT16, 4, {"-c:v", "ffv1", "-pix_fmt", "gbrap16le"}, "m.mkv"}};
  for (const Case& one : cases) {
    SCOPED_TRACE(one.codec[1] + std::string(" ") + one.type.c_str());
    const Folder folder;
    writeShot(folder, "s", 1, 6, 50, 30, one.channels, one.type);
    Arguments make{"-r", "24000/1001", "-i", folder / "s.%04d.png"};
    make.insert(make.end(), one.codec.begin(), one.codec.end());
    make.push_back(folder / one.movie);
    ffmpeg(make);
    // Out of order and with gaps: each frame must be found.
    const Outcome movie = orvanite(
        blueKey({"-q", folder / one.movie, "--frames", "5,2-3,6", "-o", folder / "m.####.png"}));
    ASSERT_EQ(movie.code, 0) << movie.err;
    ASSERT_EQ(orvanite(folder, blueKeyWords + "-q @s.####.png -o @k.####.png").code, 0);
    for (int frame : {2, 3, 5, 6}) {
      expectSame(folder / frameFile("m", frame), folder / frameFile("k", frame));
    }
    EXPECT_FALSE(std::filesystem::exists(folder / "m.0001.png"));

    // And a comparison finds the frame that is another's.
    const Arguments compare{"compare", folder / one.movie, folder / "s.####.png"};
    EXPECT_EQ(orvanite(compare).code, 0);
    std::filesystem::copy_file(folder / "s.0002.png", folder / "s.0004.png",
                               std::filesystem::copy_options::overwrite_existing);
    const Outcome differing = orvanite(compare);
    EXPECT_EQ(differing.code, 1);
    EXPECT_NE(differing.out.find("frames   1-6 (6)\n"), std::string::npos) << differing.out;
    EXPECT_NE(differing.out.find(" of frame 4)\n"), std::string::npos) << differing.out;
  }
}

#ifdef ORVANITE_WITH_NODE
TEST(MovieIn, AScriptsFileInDecodesTheFrameOfItsTime) {
  const Folder folder;
  writeShot(folder, "s", 1, 4, 20, 12);
  ffmpeg({"-i", folder / "s.%04d.png", "-c:v", "png", folder / "m.mov"});
  std::ofstream(folder / "s.orv") << "FileOut(FileIn(\"" << (folder / "m.mov") << "\"), \""
                                  << (folder / "o.####.png") << "\");\n";
  ASSERT_EQ(orvanite(folder, "run -q @s.orv --frames 3,1,4").code, 0);
  for (int frame : {1, 3, 4}) {
    expectSame(folder / frameFile("o", frame), folder / frameFile("s", frame));
  }
  const Outcome past = orvanite(folder, "run -q @s.orv --frames 5");
  EXPECT_EQ(past.code, 1);
  EXPECT_NE(past.err.find("m.mov: expected a frame from 1 to 4, found 5"), std::string::npos)
      << past.err;
}
#endif

TEST(MovieIn, FramesAreExactInTheMiddleOfLongGroupsOfPictures) {
  const Folder folder;
  ffmpeg({"-f", "lavfi", "-i", "testsrc2=s=96x64:r=25:d=2", "-c:v", "libx264", "-g", "20", "-bf",
          "3", "-pix_fmt", "yuv420p", folder / "m.mp4"});
  ASSERT_EQ(orvanite(folder, blueKeyWords + "-q --no-key @m.mp4 -o @s.####.png").code, 0);
  EXPECT_TRUE(std::filesystem::exists(folder / "s.0050.png"));
  ASSERT_EQ(
      orvanite(folder, blueKeyWords + "-q @m.mp4 --frames 47,19-22,3,50,60 -o @m.####.png").code,
      0);
  for (int frame : {3, 19, 20, 21, 22, 47, 50}) {
    ASSERT_EQ(
        orvanite(blueKey({"-q", folder / frameFile("s", frame), "-o", folder / "k.png"})).code, 0);
    expectSame(folder / frameFile("m", frame), folder / "k.png");
  }
  // The extracted stills are in the order of the movie: its clock moves on in every frame.
  for (int frame = 1; frame < 50; ++frame) {
    EXPECT_NE(read(folder / frameFile("s", frame)).samples,
              read(folder / frameFile("s", frame + 1)).samples)
        << frame;
  }
}

// R'G'B' from Y'CbCr by Rec. 601 and 709: Kr and Kb are the standards' only constants.
std::array<double, 3> toRgb(double y, double cb, double cr, double kr, double kb) {
  const double r = y + 2 * (1 - kr) * cr;
  const double b = y + 2 * (1 - kb) * cb;
  return {r, (y - kr * r - kb * b) / (1 - kr - kb), b};
}

TEST(MovieIn, ColoursFollowMatrixRangeAndSiting) {
  constexpr int width = 64;
  constexpr int height = 32;
  struct Case {
    const char* what;
    bool deep, full, bt709;
    Arguments tags;
  };
  const Case cases[] = {
      {"709 video", false, false, true, {"-colorspace", "bt709", "-color_range", "tv"}},
      {"601 video", false, false, false, {"-colorspace", "smpte170m", "-color_range", "tv"}},
      {"709 full", false, true, true, {"-colorspace", "bt709", "-color_range", "pc"}},
      {"untagged and small", false, false, false, {}},
      {"709 video, 10 bits", true, false, true, {"-colorspace", "bt709", "-color_range", "tv"}},
      {"601 full, 10 bits", true, true, false, {"-colorspace", "smpte170m", "-color_range", "pc"}}};
  for (const Case& one : cases) {
    SCOPED_TRACE(one.what);
    const Folder folder;
    // Luma is flat; chroma steps in the middle and lies, by MPEG-2's siting, on even columns.
    const int scale = one.deep ? 4 : 1;
    const int luma = 120 * scale;
    const int cb[2] = {110 * scale, 140 * scale};
    const int cr[2] = {135 * scale, 118 * scale};
    std::ofstream raw(folder / "raw", std::ios::binary);
    const auto put = [&](int code) {
      raw.put(static_cast<char>(code & 255));
      if (one.deep) raw.put(static_cast<char>(code >> 8));
    };
    for (int i = 0; i < width * height; ++i) put(luma);
    for (const int* chroma : {cb, cr}) {
      for (int i = 0; i < width / 2 * height / 2; ++i) put(chroma[i % (width / 2) >= width / 4]);
    }
    raw.close();
    Arguments make{"-f",   "rawvideo", "-pix_fmt", one.deep ? "yuv420p10le" : "yuv420p",
                   "-s",   "64x32",    "-i",       folder / "raw",
                   "-c:v", "ffv1"};
    make.insert(make.end(), one.tags.begin(), one.tags.end());
    make.push_back(folder / "m.mkv");
    ffmpeg(make);
    const Outcome outcome = orvanite(folder, blueKeyWords + "--no-key @m.mkv -o @o.#.png");
    ASSERT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_EQ(outcome.err.find("not tagged") != std::string::npos, one.tags.empty()) << outcome.err;
    const Image image = read(folder / "o.1.png");
    ASSERT_EQ(image.spec.format, one.deep ? OIIO::TypeDesc::UINT16 : OIIO::TypeDesc::UINT8);
    const double white = one.deep ? 65535 : 255;
    const double kr = one.bt709 ? 0.2126 : 0.299;
    const double kb = one.bt709 ? 0.0722 : 0.114;
    const double codes = one.deep ? 1023 : 255;
    for (int x = 0; x < width; x += 2) {
      const int half = x >= width / 2;
      const double y = one.full ? luma / codes : (luma - 16 * scale) / (219.0 * scale);
      const double range = one.full ? codes : 224.0 * scale;
      const auto expected =
          toRgb(y, (cb[half] - 128 * scale) / range, (cr[half] - 128 * scale) / range, kr, kb);
      for (std::size_t c = 0; c < 3; ++c) {
        const auto at = (static_cast<std::size_t>(height / 2 * width + x)) * 4 + c;
        // Rounded once. 0.01: single precision.
        EXPECT_NEAR(image.samples[at], expected[c] * white, 0.51)
            << "column " << x << " channel " << c;
      }
    }
  }
}

TEST(MovieIn, BrokenMoviesAreNamedByFrameAndWhatCameBeforeIsWhole) {
  const Folder folder;
  ffmpeg({"-f", "lavfi", "-i", "testsrc2=s=96x64:r=25:d=0.4", "-c:v", "ffv1", "-level", "3",
          "-slicecrc", "1", "-g", "1", "-pix_fmt", "bgra", folder / "whole.mkv"});
  ffmpeg({"-f", "lavfi", "-i", "testsrc2=s=96x64:r=25:d=0.4", "-c:v", "png", "-movflags",
          "faststart", folder / "whole.mov"});
  std::ifstream file(folder / "whole.mkv", std::ios::binary);
  const std::string whole{std::istreambuf_iterator<char>(file), {}};
  struct Case {
    const char *name, *message;
    int code;
  };
  for (const Case& one : {Case{"cut.mkv", "the file says 10 frames but ends after frame ", 4},
                          Case{"cut.mov", "frame ", 4}, Case{"hurt.mkv", " is broken: ", 4}}) {
    SCOPED_TRACE(one.name);
    const std::string movie = folder / one.name;
    if (std::string(one.name) == "cut.mov") {
      std::filesystem::copy_file(folder / "whole.mov", movie);
      std::filesystem::resize_file(movie, std::filesystem::file_size(movie) * 6 / 10);
    } else if (std::string(one.name) == "cut.mkv") {
      std::ofstream(movie, std::ios::binary) << whole.substr(0, whole.size() * 6 / 10);
    } else {
      std::string hurt = whole;
      for (std::size_t i = whole.size() / 2; i < whole.size() / 2 + 200; ++i) hurt[i] ^= 0x5A;
      std::ofstream(movie, std::ios::binary) << hurt;
    }
    const Folder out;
    const Outcome outcome = orvanite(blueKey({"-q", movie, "--no-key", "-o", out / "o.#.png"}));
    EXPECT_EQ(outcome.code, one.code) << outcome.err;
    EXPECT_NE(outcome.err.find("orvanite: frame "), std::string::npos) << outcome.err;
    EXPECT_NE(outcome.err.find(one.message), std::string::npos) << outcome.err;
    const auto names = out.names();
    EXPECT_GE(names.size(), 3U);
    EXPECT_LE(names.size(), 8U);
    const Outcome good = orvanite(
        {"key", "-q",
         folder / (one.name[4] == 'm' && std::string(one.name).ends_with("mov") ? "whole.mov"
                                                                                : "whole.mkv"),
         "--no-key", "-o", folder / "w.#.png"});
    ASSERT_EQ(good.code, 0) << good.err;
    for (const std::string& name : names) expectSame(out / name, folder / ("w" + name.substr(1)));
  }
}

TEST(MovieIn, AFrameOfAnotherSizeIsNamedAndThoseBeforeItAreWhole) {
  const Folder folder;
  std::ofstream list(folder / "list");
  for (const char* size : {"96x64", "64x96"}) {
    const std::string part = folder / (std::string(size) + ".avi");
    ffmpeg(
        {"-f", "lavfi", "-i", std::string("testsrc2=r=25:d=0.2:s=") + size, "-c:v", "mjpeg", part});
    list << "file " << part << '\n' << std::flush;
  }
  ffmpeg({"-f", "concat", "-safe", "0", "-i", folder / "list", "-c", "copy", folder / "m.mkv"});
  const Folder out;
  const Outcome outcome = orvanite(
      {"key", "-q", folder / "m.mkv", "--no-key", "--threads", "1", "-o", out / "o.#.png"});
  EXPECT_EQ(outcome.code, 4);
  EXPECT_NE(outcome.err.find("frame 6: expected the movie's size 96x64, found 64x96"),
            std::string::npos)
      << outcome.err;
  EXPECT_EQ(out.names().size(), 5U);
  for (const std::string& name : out.names()) EXPECT_EQ(read(out / name).spec.width, 96) << name;
}

TEST(MovieIn, DamageThatADecoderPlaysOverIsNamedByFrame) {
  const Folder folder;
  const std::string movie = folder / "m.ts";
  ffmpeg({"-f", "lavfi", "-i", "testsrc2=s=96x64:r=25:d=0.8", "-c:v", "libx264", "-g", "5", "-bf",
          "0", "-pix_fmt", "yuv420p", movie});
  ASSERT_EQ(orvanite(blueKey({"-q", "--no-key", movie, "-o", folder / "w.#.png"})).code, 0);
  std::ifstream file(movie, std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(file), {}};
  // The packets of 188 bytes in the middle that belong to the video (by this muxer, 256) are marked
  // as received with errors; their bytes stay, so that no decoder complains.
  int marked = 0;
  for (std::size_t at = bytes.size() / 2 / 188 * 188; at < bytes.size() && marked == 0; at += 188) {
    if ((bytes[at + 1] & 0x1F) != 1 || bytes[at + 2] != 0) continue;
    bytes[at + 1] = static_cast<char>(bytes[at + 1] | 0x80);
    ++marked;
  }
  ASSERT_EQ(marked, 1);
  std::ofstream(movie, std::ios::binary) << bytes;
  const Folder out;
  const Outcome outcome = orvanite(blueKey({"-q", "--no-key", movie, "-o", out / "o.#.png"}));
  EXPECT_EQ(outcome.code, 4);
  EXPECT_NE(outcome.err.find(" is broken: "), std::string::npos) << outcome.err;
  EXPECT_GE(out.names().size(), 1U);
  EXPECT_LT(out.names().size(), 20U);
  for (const std::string& name : out.names()) {
    expectSame(out / name, folder / ("w" + name.substr(1)));
  }
}

TEST(MovieIn, RefusesByNameWhatItDoesNotHandle) {
  const Folder folder;
  const std::string source = "testsrc2=s=96x64:r=30:d=1";
  ffmpeg({"-f", "lavfi", "-i", source, "-c:v", "libx264", "-x264opts", "tff=1",
          folder / "interlaced.mp4"});
  ffmpeg({"-f", "lavfi", "-i", "sine=d=1", folder / "sound.mov"});
  std::ofstream(folder / "text.mov") << "this is no movie";
  const std::pair<const char*, const char*> cases[] = {
      {"interlaced.mp4", "expected progressive frames, found interlaced ones"},
      {"sound.mov", "there is no video in it"},
      {"text.mov", "cannot be read as a movie: "},
      {"none.mov", "no such file"}};
  for (const auto& [name, message] : cases) {
    const Outcome outcome = orvanite(blueKey({folder / name, "-o", folder / "o.#.png"}));
    EXPECT_EQ(outcome.code, 1) << name << outcome.err;
    EXPECT_NE(outcome.err.find(std::string(name) + ": " + message), std::string::npos)
        << outcome.err;
  }
}

}  // namespace
}  // namespace orvanite::test
