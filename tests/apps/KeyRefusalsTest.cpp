// SPDX-License-Identifier: BSD-3-Clause
//
// What `orvanite key` refuses and where it fails: one line, a code, and nothing left behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "tests/Sanitized.h"
#include "tests/apps/Images.h"
#include "tests/apps/Program.h"

namespace orvanite::test {
namespace {

// Everything that can be wrong with files and options, each with its line and its code, and nothing
// but the inputs in the folder afterwards.
TEST(KeyCommand, RefusesBadInputWithOneLineAndLeavesNothing) {
  const Folder folder;
  write(randomImage(16, 16, 3, OIIO::TypeDesc::UINT8, 1), folder / "fg.png");
  write(randomImage(16, 16, 3, OIIO::TypeDesc::HALF, 1), folder / "fg.exr");
  write(randomImage(16, 8, 3, OIIO::TypeDesc::UINT8, 1), folder / "small.png");
  write(randomImage(300, 300, 3, OIIO::TypeDesc::UINT8, 1), folder / "large.png");
  write(randomImage(300, 300, 3, OIIO::TypeDesc::HALF, 1), folder / "large.exr");
  write(randomImage(300, 300, 3, OIIO::TypeDesc::UINT8, 1), folder / "large.tif");
  write(randomImage(300, 300, 3, OIIO::TypeDesc::UINT8, 1), folder / "large.jpg");
  const auto cut = [&](const std::string& from, const std::string& to) {
    std::filesystem::copy_file(folder / from, folder / to);
    std::filesystem::resize_file(folder / to, std::filesystem::file_size(folder / to) / 2);
  };
  cut("large.png", "cut.png");
  cut("large.exr", "cut.exr");
  cut("large.tif", "cut.tif");
  cut("large.jpg", "cut.jpg");
  // Its pixels do not begin as zlib's data do, which libpng would say by itself.
  std::string unzipped = contents(folder / "large.png");
  ASSERT_NE(unzipped.find("IDAT"), std::string::npos);
  unzipped.replace(unzipped.find("IDAT") + 4, 2, 2, '\0');
  std::ofstream(folder / "unzipped.png") << unzipped;
  std::ofstream(folder / "text.png") << "this is no picture\n";
  std::ofstream(folder / "empty.exr");
  // A PNG header of 0x0 and one of 0x7fffffff x 0x7fffffff, with no checksum that fits.
  const std::string signature("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16);
  std::ofstream(folder / "zero.png")
      << signature << std::string("\0\0\0\0\0\0\0\0\x08\2\0\0\0\0\0\0\0", 17);
  // A few pixels of a frame that no memory holds, or that lies where sums leave an int.
  Image framed = randomImage(16, 16, 3, OIIO::TypeDesc::HALF, 1);
  framed.spec.full_width = framed.spec.full_height = 1 << 29;
  write(framed, folder / "framed.exr");
  framed.spec.full_width = framed.spec.full_height = 16;
  framed.spec.x = framed.spec.full_x = 1 << 29;
  write(framed, folder / "far.exr");
  // One tile, which says that it is 16384 x 8192 pixels large.
  Image tiled = randomImage(16, 16, 3, OIIO::TypeDesc::HALF, 1);
  tiled.spec.tile_width = tiled.spec.tile_height = 16;
  write(tiled, folder / "tiled.exr");
  std::fstream tiles(folder / "tiled.exr", std::ios::in | std::ios::out | std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(tiles), {}};
  const std::string type("tiledesc", 9);  // then four bytes of length, then the sides
  ASSERT_NE(bytes.find(type), std::string::npos);
  tiles.seekp(static_cast<std::streamoff>(bytes.find(type) + type.size() + 4));
  tiles << std::string("\0\x40\0\0\0\x20\0\0", 8) << std::flush;
  // Its first channel holds numbers of a kind that there is not.
  std::string kinds = contents(folder / "fg.exr");
  const std::size_t channels = kinds.find(std::string("chlist", 7));
  ASSERT_NE(channels, std::string::npos);
  kinds[channels + 7 + 4 + 2] = 3;  // behind four bytes of length and the name "B"
  std::ofstream(folder / "kinds.exr") << kinds;
  // Its first channel's name is three letters longer, and its list as long as before.
  std::string longer = contents(folder / "fg.exr");
  longer.insert(channels + 7 + 4 + 1, "hei");
  std::ofstream(folder / "longer.exr") << longer;
  // Attributes, put first, whose lengths are not those of their types.
  const auto withAttribute = [&](const std::string& name, const std::string& kind, char length) {
    std::string file = contents(folder / "fg.exr");
    file.insert(8, std::string("a", 2) + kind + '\0' + length + std::string(3 + length, '\0'));
    std::ofstream(folder / name) << file;
  };
  withAttribute("int8.exr", "int", 8);
  withAttribute("int0.exr", "int", 0);
  withAttribute("box12.exr", "box2i", 12);
  withAttribute("floats.exr", "floatvector", 7);
  // A DPX header whose four bytes at 32 promise a gigabyte of user data.
  std::ofstream(folder / "user.dpx")
      << "SDPX" << std::string(28, '\0') << "\x40" << std::string(2100, '\0');
  // JPEG segments that end before what they begin: captions of 65535 bytes (the second ones behind
  // a byte that stands between segments), the head of Exif, the numbers of a profile's part.
  std::ifstream jpeg(folder / "large.jpg", std::ios::binary);
  const std::string whole{std::istreambuf_iterator<char>(jpeg), {}};
  const auto withSegment = [&](const std::string& name, const std::string& marker,
                               const std::string& data) {
    std::ofstream(folder / name) << whole.substr(0, 2) << marker << '\0'
                                 << static_cast<char>(data.size() + 2) << data << whole.substr(2);
  };
  const std::string captions(
      "Photoshop 3.0\0"
      "8BIM\x04\x04\0\0\0\0\xFF\xFF",
      26);
  withSegment("caption.jpg", "\xFF\xED", captions);
  withSegment("stray.jpg", "\x01\xFF\xED", captions);
  withSegment("exif.jpg", "\xFF\xE1", std::string("Exif\0\0II*\0\x08\0\0", 13));
  withSegment("profile.jpg", "\xFF\xE2", std::string("ICC_PROFILE\0\x01", 13));
  // A PPM header is believed as it stands: large sides, nothing behind them.
  std::ofstream(folder / "huge.ppm") << "P6\n60000 60000\n255\n";
  std::filesystem::create_symlink(folder / "fg.png", folder / "link.png");
  std::filesystem::create_hard_link(folder / "fg.png", folder / "hard.png");
  std::filesystem::create_directory(folder / "folder.png");
  const auto before = folder.names();

  struct Case {
    std::string words;
    int code;
    const char* message;  // part of the line
  };
  const Case cases[] = {
      {"", 2, "expected a plate"},
      {"@fg.png", 2, "expected an output"},
      {"@none.png -o @out.png", 1, "none.png: no such file"},
      {"@folder.png -o @out.png", 3, "expected a folder of numbered pictures, found none"},
      {"@text.png -o @out.png", 1, "text.png: cannot be read"},
      {"@empty.exr -o @out.png", 1, "empty.exr: cannot be read"},
      {"@cut.png -o @out.png", 1, "cut.png: broken: its header promises at least"},
      {"@unzipped.png -o @out.png", 1, "unzipped.png: broken near row 0"},
      {"@cut.exr -o @out.png", 1, "cut.exr: broken near row"},
      {"@cut.exr -o @out.png --save-preset @out.json --save-script @out.orv", 1, "broken near row"},
      {"@kinds.exr -o @out.png", 1, "its channels hold numbers of a kind that there is not"},
      {"@longer.exr -o @out.png", 1, "its list of channels does not end where its length says"},
      {"@int8.exr -o @out.png", 1,
       "int8.exr: broken: an attribute has a length that its type cannot have"},
      {"@int0.exr -o @out.png", 1, "an attribute has a length that its type cannot have"},
      {"@box12.exr -o @out.png", 1, "an attribute has a length that its type cannot have"},
      {"@floats.exr -o @out.png", 1, "an attribute has a length that its type cannot have"},
      {"@cut.tif -o @out.png", 1, "cut.tif: broken near row"},
      {"@cut.jpg -o @out.png", 1, "cut.jpg: broken: the file ends too early"},
      {"@caption.jpg -o @out.png", 1, "a segment of its metadata ends before they do"},
      {"@stray.jpg -o @out.png", 1, "a segment of its metadata ends before they do"},
      {"@exif.jpg -o @out.png", 1, "a segment of its metadata ends before they do"},
      {"@profile.jpg -o @out.png", 1, "a segment of its metadata ends before they do"},
      {"@zero.png -o @out.png", 1, "zero.png: "},
      {"@huge.ppm -o @out.png", 1, "found 60000x60000"},
      {"@user.dpx -o @out.png", 1, "promises more user data than the file holds"},
      {"@framed.exr --auto -o @out.png", 1, "found 536870912x536870912"},
      {"@far.exr -o @out.png", 1, "found them at 536870912,0"},
      {"@fg.png --hold-out @small.png -o @out.png", 2,
       "expected a hold-out matte of the plate's size 16x16, found 16x8"},
      {"@fg.png --garbage @large.png -o @out.png", 2, "found 300x300"},
      {"@fg.png --garbage @none.png -o @out.png", 1, "none.png: no such file"},
      {"@fg.png --hold-out @fg.png --hold-out-channel A -o @out.png", 2,
       "fg.png: expected one of the channels R, G, B, found 'A'"},
      {"@fg.png --garbage @fg.png --garbage-channel Z -o @out.png", 2,
       "expected one of the channels R, G, B, found 'Z'"},
      {"@fg.png --preset /dev/zero -o @out.png", 1, "expected a preset of no more than 1 MiB"},
      {"@fg.png --preset @folder.png -o @out.png", 1, "there is no such preset, or it"},
      {"@fg.png -o @none/out.png", 1, "there is no folder"},
      {"@fg.png -o /proc/out.png", 1, "/proc/out.png: cannot be written"},
      {"@fg.png -o @out.xyz", 2, "expected a name with the ending of a picture format"},
      {"@fg.png -o @out", 2, "expected a name with the ending of a picture format"},
      {"@fg.png -o @fg.png/", 1, "no folder can be made"},
      {"@fg.png -o @fg.png", 2, "the output is the same file as the input"},
      {"@fg.png -o @link.png", 2, "the output is the same file as the input"},
      {"@fg.png -o @hard.png", 2, "the output is the same file as the input"},
      {"@fg.png -o @../" + folder.path().filename().string() + "/fg.png", 2,
       "the output is the same file as the input"},
      {"@fg.png --bg @link.png -o @fg.png", 2, "the output is the same file as the input"},
      {"@fg.png -o @out.png --scren 0,1,0", 2,
       "--scren: there is no such option; did you mean --screen?"},
      {"@fg.png -o @out.png @cut.png", 2, "expected a folder for several plates"},
      {"@fg.png -o @out.png --save-preset @out.png", 2, "are one file"},
      {"@fg.png -o @out.png --matte-output @./out.png", 2, "are one file"},
      {"@fg.png -o @out.png --output alpha", 2, "--output: expected composite, compOnBlack,"},
      {"@fg.png -o @out.png --colourspace srgb", 2,
       "--colourspace: expected linear, log or video, found 'srgb'"},
      {"@fg.png -o @out.png --screen greenish", 2, "--screen: expected one number or R,G,B"},
      {"@fg.png -o @out.png --screen #00b14", 2, "--screen: expected one number or R,G,B"},
      {"@fg.png --bg @small.png --bg-fit fll -o @out.png", 2, "--bg-fit: expected fill, fit"},
      {"@fg.png --bg-colourspace srgb -o @out.png", 2, "--bg-colourspace: expected linear, log"},
      {"@fg.png -o @out.png --alpha straight", 2, "--alpha: expected matte, premultiplied or none"},
      {"@fg.png -o @out.png --screen 0,nan,0", 2, "--screen: expected one number or R,G,B"},
      {"@fg.png -o @out.png --shadow-gain -inf", 2,
       "--shadow-gain: expected a number from -1 to 1, found '-inf'"},
      {"@fg.png -o @out.png --saturation 3.5", 2,
       "--saturation: expected a number from 0 to 3, found '3.5'"},
      {"@fg.png -o @out.png --saturation", 2, "--saturation"},
      {"@fg.png -o @out.png --screen 0.5,0.5,0.5", 2,
       "--screen: expected a colour, found a grey (0.5)"},
      {"@fg.png -o @out.png --screen 0", 2, "--screen: expected a colour, found black (0)"},
      {"@fg.png -o @out.png --threads -1", 2,
       "--threads: expected a number from 0 to 1024, found '-1'"},
      {"@fg.png -o @out.png --threads two", 2, "--threads"},
      {"@fg.png -o @out.png --premultiply", 2, "--premultiply: expected --output unpremultiplied"},
      {"@tiled.exr -o @out.png", 1, "expected tiles no larger than the picture or 2048x2048"},
      {"@fg.exr --reference @fg.exr -o @out.exr", 2, "--reference: expected 8- or 16-bit pictures"},
  };
  for (const Case& wrong : cases) {
    const Outcome outcome = orvanite(folder, blueKeyWords + "-q " + wrong.words);
    EXPECT_EQ(outcome.code, wrong.code) << wrong.message << "\n" << outcome.err;
    EXPECT_NE(outcome.err.find(wrong.message), std::string::npos) << wrong.message << "\n"
                                                                  << outcome.err;
    EXPECT_EQ(outcome.err.rfind("orvanite: ", 0), 0U) << outcome.err;
    EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(folder.names(), before) << wrong.message;
  }
  EXPECT_EQ(orvanite({"kee"}).code, 2);
  EXPECT_EQ(orvanite({}).code, 2);
#ifdef ORVANITE_WITH_NODE
  // A script reads through the same door: the same files are refused with the same words.
  int scripts = 0;
  for (const Case& wrong : cases) {
    const std::string plate = wrong.words.substr(0, wrong.words.find(' '));
    if (wrong.code != 1 || plate == "@fg.png" || plate == "@framed.exr") continue;
    const std::string file = folder / plate.substr(1);
    const std::string script = folder / ("s" + std::to_string(++scripts) + ".orv");
    std::ofstream(script) << "out = FileOut(Orvanite(FileIn(\"" << file << "\")), \""
                          << (folder / "out.png") << "\");\n";
    const Outcome outcome = orvanite({"run", "-q", script});
    EXPECT_EQ(outcome.code, 1) << wrong.message;
    EXPECT_NE(outcome.err.find(wrong.message), std::string::npos) << wrong.message << "\n"
                                                                  << outcome.err;
    std::filesystem::remove(script);
    EXPECT_EQ(folder.names(), before) << wrong.message;
  }
  EXPECT_GE(scripts, 15);
#endif
}

// A disk of 64 KiB: every format fails with its line and leaves the disk as it was.
TEST(KeyCommand, LeavesNothingOnAFullDisk) {
  const Folder folder;
  const SmallDisk disk("64k");
  if (!disk.made) GTEST_SKIP() << "only root can make a small disk";
  write(randomImage(300, 300, 3, OIIO::TypeDesc::UINT8, 1), folder / "fg.png");
  for (const char* name : {"a.png", "a.tif", "a.exr", "a.jpg", "a.dpx", "a.tga", "a.bmp", "a.ppm",
                           "a.sgi", "a.webp", "a.hdr"}) {
    const Outcome outcome = orvanite(blueKey(
        {"-q", folder / "fg.png", "--screen", "0,1,0", "--output", "matte", "-o", disk / name}));
    EXPECT_EQ(outcome.code, 1) << name;
    EXPECT_EQ(outcome.err.rfind("orvanite: " + (disk / name) + ": cannot be written: ", 0), 0U)
        << outcome.err;
    EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
    EXPECT_TRUE(disk.names().empty()) << name;
  }
}

}  // namespace
}  // namespace orvanite::test
