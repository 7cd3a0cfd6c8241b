// SPDX-License-Identifier: BSD-3-Clause
//
// What phones, cameras and renderers write: pictures on their side, parts and layers, time codes.
#include <OpenImageIO/imageio.h>

#include <cstring>

#include "media/MovieWriter.h"
#include "media/PictureWriter.h"
#include "tests/media/Files.h"

namespace orvanite::test {
namespace {

using media::Picture;
using media::Source;

Picture whole(const Source& source, Source& from, int frame) {
  return from.read(frame, {media::depthOf(source.info().samples), source.info().display, 1, ""});
}

// Mean codes of the four corners' blocks of 8 x 8: top left, top right, bottom left, bottom right.
std::array<std::array<int, 3>, 4> cornersOf(const Picture& picture) {
  std::array<std::array<int, 3>, 4> corners{};
  for (int corner = 0; corner < 4; ++corner) {
    const int x = corner % 2 == 0 ? 4 : picture.data.width - 5;
    const int y = corner < 2 ? 4 : picture.data.height - 5;
    for (int c = 0; c < 3; ++c) {
      corners[static_cast<std::size_t>(corner)][static_cast<std::size_t>(c)] = static_cast<int>(
          picture.pixels[static_cast<std::size_t>((y * picture.data.width + x) * 4 + c)]);
    }
  }
  return corners;
}

// Exif's eight ways of one picture: oiiotool turns pixels and tags them, so that all show the same.
TEST(Forms, PicturesOnTheirSideAreTurnedUprightWhateverTheirTag) {
  const Folder folder;
  oiiotool(folder,
           "--pattern fill:topleft=1,0,0:topright=0,1,0:bottomleft=0,0,1:bottomright=1,1,1 48x32 3 "
           "-d uint8 -o @up.tif");
  const auto upright = Source::open(folder / "up.tif");
  const auto expected = cornersOf(whole(*upright, *upright, 1));
  // How the upright picture is stored for each tag.
  const std::pair<int, const char*> stored[] = {{2, "--flop"},      {3, "--rotate180"},
                                                {4, "--flip"},      {5, "--transpose"},
                                                {6, "--rotate270"}, {7, "--transpose --rotate180"},
                                                {8, "--rotate90"}};
  for (const char* ending : {"jpg", "tif"}) {
    for (const auto& [tag, how] : stored) {
      const std::string name = "o" + std::to_string(tag) + "." + ending;
      SCOPED_TRACE(name);
      oiiotool(folder, std::string("@up.tif ") + how + " --attrib Orientation " +
                           std::to_string(tag) +
                           " --attrib:type=string jpeg:subsampling 4:4:4 -o @" + name);
      const auto source = Source::open(folder / name);
      EXPECT_EQ(source->info().display.width, 48);
      EXPECT_EQ(source->info().display.height, 32);
      const auto found = cornersOf(whole(*source, *source, 1));
      for (std::size_t corner = 0; corner < 4; ++corner) {
        for (std::size_t c = 0; c < 3; ++c) {
          EXPECT_NEAR(found[corner][c], expected[corner][c], 12) << corner << ' ' << c;
        }
      }
      EXPECT_NE(source->notice().find("as the file asks"), std::string::npos) << source->notice();
      EXPECT_EQ(source->header().get_int_attribute("Orientation", 1), 1);
    }
  }
}

TEST(Forms, MoviesOfPhonesAreTurnedAsAPlayerTurnsThem) {
  const Folder folder;
  ffmpeg(folder,
         "-f lavfi -i testsrc2=s=96x64:r=25:d=0.2 -c:v libx264 -qp 0 -pix_fmt yuv444p @up.mp4");
  for (const char* degrees : {"90", "180", "270"}) {
    SCOPED_TRACE(degrees);
    ffmpeg(folder, std::string("-i @up.mp4 -c copy -metadata:s:v rotate=") + degrees + " @t.mp4");
    // ffmpeg turns what it decodes.
    ffmpeg(folder, "-i @t.mp4 -frames:v 1 -sws_flags accurate_rnd+full_chroma_int @judge.png");
    const auto movie = Source::open(folder / "t.mp4");
    const auto judge = Source::open(folder / "judge.png");
    ASSERT_EQ(movie->info().display, judge->info().display);
    const auto found = cornersOf(whole(*movie, *movie, 1));
    const auto expected = cornersOf(whole(*judge, *judge, 1));
    for (std::size_t corner = 0; corner < 4; ++corner) {
      for (std::size_t c = 0; c < 3; ++c) {
        EXPECT_NEAR(found[corner][c], expected[corner][c], 3) << corner << ' ' << c;
      }
    }
  }
}

// In whatever order frames are asked for: by tasks of a farm, and where one is held.
TEST(Forms, AnInterlacedFrameIsTheSameOneFromWhereverItIsReached) {
  const Folder folder;
  ffmpeg(folder,
         "-f lavfi -i testsrc2=s=96x64:r=50:d=0.8,tinterlace=interleave_top,fieldorder=tff -c:v "
         "mpeg2video -g 6 -bf 2 -b:v 4M -flags +ildct+ilme @i.ts");
  EXPECT_NE(readThrough(folder / "i.ts").error.find("--deinterlace"), std::string::npos);
  media::OpenOptions how;
  how.deinterlace = true;
  const auto inOrder = Source::open(folder / "i.ts", how);
  ASSERT_EQ(inOrder->frames().size(), 20U);
  std::vector<std::string> pixels;
  const auto read = [](Source& from, int frame) {
    const Picture picture = whole(from, from, frame);
    return std::string(reinterpret_cast<const char*>(picture.pixels.get()), picture.bytes());
  };
  for (int frame = 1; frame <= 20; ++frame) pixels.push_back(read(*inOrder, frame));
  const auto anyOrder = Source::open(folder / "i.ts", how);
  for (const int frame : {13, 12, 20, 1, 7, 7, 8, 2}) {
    EXPECT_EQ(read(*anyOrder, frame) == pixels[static_cast<std::size_t>(frame - 1)], true) << frame;
  }
  // ffmpeg's own filter makes the same picture, but for its rounding of colours: MPEG-2 has its
  // chroma at every other sample of luma, which ffmpeg's scaler wants to be told.
  ffmpeg(folder,
         "-i @i.ts -vf bwdif=send_frame,select='eq(n,12)',scale=in_h_chr_pos=0:"
         "flags=bicubic+accurate_rnd+full_chroma_int+full_chroma_inp -frames:v 1 @judge.png");
  const auto judge = Source::open(folder / "judge.png");
  const std::string expected = read(*judge, 1);
  ASSERT_EQ(expected.size(), pixels[12].size());
  int apart = 0;
  for (std::size_t i = 0; i < expected.size(); ++i) {
    apart += std::abs(static_cast<unsigned char>(expected[i]) -
                      static_cast<unsigned char>(pixels[12][i]));
  }
  EXPECT_LT(apart, static_cast<int>(expected.size()) / 100);
}

// A picture whose channels are constants: which were read?
std::array<float, 4> readOf(const std::string& path) {
  media::PictureReader reader(path);
  const Picture picture = reader.read(Depth::floats, reader.info().data, 1);
  std::array<float, 4> pixel{};
  std::memcpy(pixel.data(), picture.pixels.get(), sizeof pixel);
  return pixel;
}

void writeParts(const std::string& path,
                const std::vector<std::pair<const char*, std::vector<std::string>>>& parts) {
  std::vector<OIIO::ImageSpec> specs;
  for (const auto& [name, channels] : parts) {
    OIIO::ImageSpec spec(16, 16, static_cast<int>(channels.size()), OIIO::TypeDesc::FLOAT);
    spec.channelnames = channels;
    spec.attribute("oiio:subimagename", name);
    specs.push_back(spec);
  }
  auto out = OIIO::ImageOutput::create("x.exr");
  ASSERT_TRUE(out->open(path, static_cast<int>(specs.size()), specs.data())) << out->geterror();
  for (std::size_t part = 0; part < specs.size(); ++part) {
    if (part > 0) {
      ASSERT_TRUE(out->open(path, specs[part], OIIO::ImageOutput::AppendSubimage));
    }
    // Channel c of part p is p + c / 8.
    std::vector<float> samples;
    for (int i = 0; i < 16 * 16; ++i) {
      for (int c = 0; c < specs[part].nchannels; ++c) {
        samples.push_back(static_cast<float>(part) + static_cast<float>(c) / 8);
      }
    }
    ASSERT_TRUE(out->write_image(OIIO::TypeDesc::FLOAT, samples.data())) << out->geterror();
  }
  out->close();
}

TEST(Forms, TheColoursOfAnOpenExrFileAreThoseOfItsPlainPartOrLayer) {
  const Folder folder;
  struct Case {
    const char* what;
    std::vector<std::pair<const char*, std::vector<std::string>>> parts;
    std::array<float, 4> expected;
  };
  const Case cases[] = {
      {"depth first",
       {{"depth", {"Z"}}, {"rgba", {"R", "G", "B", "A"}}},
       {1, 1.125f, 1.25f, 1.375f}},
      {"albedo before the picture",
       {{"aov", {"albedo.R", "albedo.G", "albedo.B"}}, {"main", {"R", "G", "B"}}},
       {1, 1.125f, 1.25f, 1}},
      {"a layer called beauty",
       {{"all",
         {"albedo.R", "albedo.G", "albedo.B", "beauty.R", "beauty.G", "beauty.B", "beauty.A"}}},
       {0.375f, 0.5f, 0.625f, 0.75f}},
      {"plain channels beside layers",
       {{"all", {"R", "G", "B", "A", "N.R", "N.G", "N.B"}}},
       {0, 0.125f, 0.25f, 0.375f}}};
  for (const Case& one : cases) {
    SCOPED_TRACE(one.what);
    writeParts(folder / "p.exr", one.parts);
    EXPECT_EQ(readOf(folder / "p.exr"), one.expected);
  }
  writeParts(folder / "yc.exr", {{"", {"Y", "RY", "BY"}}});
  EXPECT_NE(readThrough(folder / "yc.exr").error.find("luminance and chroma"), std::string::npos);
}

// 01:00:00:09 and, at 30000/1001 with drop frame, 01:00:59;29, whose next number is 01:01:00;02.
TEST(Forms, TimeCodeGoesFromMoviesToStillsAndBack) {
  const Folder folder;
  struct Case {
    const char *rate, *start, *second;
  };
  for (const Case& one : {Case{"24", "01:00:00:09", "01:00:00:10"},
                          Case{"30000/1001", "01:00:59;29", "01:01:00;02"}}) {
    SCOPED_TRACE(one.start);
    ffmpeg(folder, std::string("-f lavfi -i testsrc2=s=64x32:d=0.2:r=") + one.rate +
                       " -c:v png -timecode " + one.start + " @t.mov");
    const auto movie = Source::open(folder / "t.mov");
    for (const char* still : {"s.exr", "s.dpx"}) {
      SCOPED_TRACE(still);
      media::writePicture(whole(*movie, *movie, 2), folder / still);
      const Outcome info = run(OIIOTOOL_PROGRAM, {"--info", "-v", folder / still});
      std::string plain = one.second;
      plain[8] = ':';  // oiiotool shows no drop frame
      EXPECT_NE(info.out.find("smpte:TimeCode: " + plain), std::string::npos) << info.out;
      EXPECT_EQ(Source::open(folder / still)->facts().timeCode, one.second);
    }
  }
}

}  // namespace
}  // namespace orvanite::test
