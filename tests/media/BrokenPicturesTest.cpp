// SPDX-License-Identifier: BSD-3-Clause
//
// Pictures in: every format on the list is read whole and refused cut off; everything else is
// refused by name before a library opens it; memory is bounded.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "media/InputFile.h"
#include "media/PictureFormats.h"
#include "tests/media/Files.h"

namespace orvanite::test {
namespace {

TEST(BrokenPictures, EveryFormatIsReadWholeAndRefusedWhenItIsCutOff) {
  const Folder folder;
  ffmpeg(folder, "-f lavfi -i testsrc2=s=62x43 -frames:v 1 -pix_fmt rgb24 @s.png");
  ffmpeg(folder, "-i @s.png -pix_fmt rgb48be @deep.png");
  const char* const byOiiotool[] = {"@deep.png -d uint8 -o @8.dpx",
                                    "@deep.png -d uint10 -o @10.dpx",
                                    "@deep.png -d uint12 -o @12.dpx",
                                    "@deep.png -d uint16 -o @16.dpx",
                                    "@s.png -o @a.tga",
                                    "@s.png -o @a.bmp",
                                    "@s.png -o @a.ppm",
                                    "@deep.png -o @b.ppm",
                                    "@s.png -o @a.hdr",
                                    "@s.png -o @a.sgi",
                                    "@deep.png -d uint16 -o @b.sgi",
                                    "@s.png -o @a.tif",
                                    "@deep.png --compression none -o @n.tif",
                                    "@deep.png -d float --tile 16 16 -o @t.tif",
                                    "@s.png -o @a.jp2",
                                    "@s.png -o @a.webp",
                                    "@s.png -d half -o @a.exr",
                                    "@s.png --compression none --tile 16 16 -o @t.exr",
                                    "@s.png -o @a.jpg",
                                    "@deep.png -d uint16 -o @b.png"};
  for (const char* line : byOiiotool) oiiotool(folder, line);
  const char* const byFfmpeg[] = {
      "-i @deep.png -pix_fmt gbrp10be @f10.dpx", "-i @deep.png -pix_fmt gbrp12be @f12.dpx",
      "-i @s.png -pix_fmt rgb24 @r.sgi",         "-i @s.png -pix_fmt gray @f.pgm",
      "-i @s.png -pix_fmt monob @f.pbm",         "-i @s.png -rle 0 @f.tga"};
  for (const char* line : byFfmpeg) ffmpeg(folder, line);
  int cuts = 0;
  for (const std::string& name : folder.names()) {
    const std::string whole = bytesOf(folder / name);
    EXPECT_EQ(readThrough(folder / name).error, "") << name;
    // TGA's last bytes are a footer that no reader needs.
    const std::size_t tail = name.ends_with(".tga") ? 700 : 1;
    for (const std::size_t size : {whole.size() / 20, whole.size() / 2, whole.size() - tail}) {
      const std::string cut = folder / ("cut-" + name);
      writeBytes(cut, whole.substr(0, size));
      const ReadThrough read = readThrough(cut);
      EXPECT_NE(read.error, "") << name << " cut to " << size << " of " << whole.size();
      std::filesystem::remove(cut);
      ++cuts;
    }
  }
  EXPECT_EQ(cuts, 3 * 28);
}

// 2048 bytes of DPX that claim 16384 x 16384 pixels of 10 bits: 16384 words of 4 bytes a row.
TEST(BrokenPictures, AHeaderWithoutPixelsIsRefusedByWhatItPromises) {
  const Folder folder;
  ffmpeg(folder, "-f lavfi -i testsrc2=s=64x32 -frames:v 1 -pix_fmt gbrp10be @s.dpx");
  std::string bytes = bytesOf(folder / "s.dpx").substr(0, 1664);
  bytes.resize(2048);
  for (const std::size_t at : {772U, 776U}) bytes.replace(at, 4, std::string("\0\0\x40\0", 4));
  writeBytes(folder / "claim.dpx", bytes);
  const std::string error = readThrough(folder / "claim.dpx").error;
  // 1664 + 16384 * 16384 * 4 bytes.
  EXPECT_NE(error.find("promises at least 1073743488 bytes, the file ends after 2048"),
            std::string::npos)
      << error;
}

// A text in a header of OpenEXR that says it has 2 GiB less one byte, in a file of one part and of
// two.
TEST(BrokenPictures, ATextOfAHeaderIsNoLongerThanTheFile) {
  const Folder folder;
  ffmpeg(folder, "-f lavfi -i testsrc2=s=16x16 -frames:v 1 -pix_fmt rgb24 @s.png");
  const std::string text = " --attrib:type=string note 0123456789 ";
  oiiotool(folder, "@s.png -d half" + text + "-o @one.exr");
  oiiotool(folder,
           "@s.png -d half --attrib oiio:subimagename a @s.png -d half --attrib "
           "oiio:subimagename b" +
               text + "--siappend -o @two.exr");
  for (const char* name : {"one.exr", "two.exr"}) {
    EXPECT_EQ(readThrough(folder / name).error, "") << name;
    std::string bytes = bytesOf(folder / name);
    const std::string attribute("note\0string", 12);  // then four bytes of length, then the text
    ASSERT_NE(bytes.find(attribute), std::string::npos);
    const std::size_t at = bytes.find(attribute) + attribute.size() + 4;
    bytes.replace(at - 4, 4, "\xFF\xFF\xFF\x7F");
    writeBytes(folder / name, bytes);
    const std::string error = readThrough(folder / name).error;
    EXPECT_NE(error.find("promises at least " + std::to_string(at + 0x7FFFFFFF) + " bytes"),
              std::string::npos)
        << error;
  }
}

// libpng would take and clear as much memory as the chunk says.
TEST(BrokenPictures, AChunkBeforeThePictureIsNoLongerThanTheFile) {
  const Folder folder;
  ffmpeg(folder, "-f lavfi -i testsrc2=s=24x16 -frames:v 1 -pix_fmt rgb24 @s.png");
  const std::string whole = bytesOf(folder / "s.png");
  // After the header, which ends with its 33rd byte.
  std::string bytes = whole;
  bytes.insert(33, std::string("\x70\0\0\0tEXtk\0long", 14));
  writeBytes(folder / "long.png", bytes);
  const std::string error = readThrough(folder / "long.png").error;
  EXPECT_NE(error.find("promises at least 1879048249 bytes"), std::string::npos) << error;
  EXPECT_EQ(readThrough(folder / "s.png").error, "");
}

// An SGI file of one row in runs, whose header tells of 29817 rows and 28776 channels that a
// picture of one dimension has not: 29817 * 28776 places and lengths of 4 bytes each behind 512
// bytes.
TEST(BrokenPictures, TablesOfRowsAreNoLongerThanTheFile) {
  const Folder folder;
  std::string bytes("\x01\xDA\1\1\0\1\0\x10\x74\x79\x70\x68", 12);
  bytes.resize(600);
  writeBytes(folder / "row.sgi", bytes);
  const std::string error = readThrough(folder / "row.sgi").error;
  EXPECT_NE(error.find("promises at least 6864112448 bytes"), std::string::npos) << error;
}

// Bytes 30 to 33 of a BMP tell its compression: 1 is runs of 8 bits, 2 of 4.
TEST(BrokenPictures, ABmpOf24BitsHasNoRuns) {
  const Folder folder;
  ffmpeg(folder, "-f lavfi -i testsrc2=s=24x16 -frames:v 1 -pix_fmt bgr24 @s.bmp");
  ffmpeg(folder, "-f lavfi -i testsrc2=s=24x16 -frames:v 1 -pix_fmt gray @grey.bmp");
  EXPECT_EQ(readThrough(folder / "grey.bmp").error, "");
  for (const int compression : {1, 2, 4, 127}) {
    std::string bytes = bytesOf(folder / "s.bmp");
    bytes[30] = static_cast<char>(compression);
    writeBytes(folder / "s.bmp", bytes);
    const std::string error = readThrough(folder / "s.bmp").error;
    EXPECT_NE(error.find("a compression that its pixels cannot have"), std::string::npos) << error;
  }
}

TEST(BrokenPictures, WhatIsNotOnTheListIsRefusedByName) {
  const Folder folder;
  ffmpeg(folder, "-f lavfi -i testsrc2=s=32x32 -frames:v 1 @s.gif");
  oiiotool(folder, "@s.gif -o @s.png");
  for (const char* ending : {"ico", "dds.iff", "fits", "rla"}) {
    oiiotool(folder, std::string("@s.png -o @s.") + ending);
  }
  writeBytes(folder / "s.psd", "8BPS" + std::string(100, '\0'));
  writeBytes(folder / "s.cr2", std::string("II*\0\x10\0\0\0CR\2\0", 12) + std::string(100, '\0'));
  writeBytes(folder / "any.null", "x");
  std::filesystem::copy_file(folder / "s.gif", folder / "gif.png");
  const std::pair<const char*, const char*> cases[] = {{"s.gif", "found GIF"},
                                                       {"gif.png", "found GIF"},
                                                       {"s.ico", "found ICO"},
                                                       {"s.dds.iff", "found IFF"},
                                                       {"s.fits", "found FITS"},
                                                       {"s.rla", "found the ending of rla"},
                                                       {"s.psd", "found a Photoshop document"},
                                                       {"s.cr2", "found a camera's raw file"},
                                                       {"any.null", "found the ending of null"}};
  for (const auto& [name, message] : cases) {
    const std::string error = readThrough(folder / name).error;
    EXPECT_NE(error.find(": cannot be read: expected PNG, JPEG, OpenEXR, "), std::string::npos)
        << error;
    EXPECT_NE(error.find(message), std::string::npos) << error;
  }
  // A picture is what it holds, whatever its name.
  std::filesystem::copy_file(folder / "s.png", folder / "png.exr");
  EXPECT_EQ(readThrough(folder / "png.exr").error, "");
}

TEST(BrokenPictures, PipesDevicesAndSocketsAreRefusedWithoutBeingOpened) {
  const Folder folder;
  for (const char* name : {"pipe.png", "pipe.mov"}) {
    ASSERT_EQ(::mkfifo((folder / name).c_str(), 0600), 0);
    EXPECT_NE(readThrough(folder / name).error.find(" in a file, found a pipe"), std::string::npos);
  }
  const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  (folder / "s.png").copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_NE(
      readThrough(folder / "s.png").error.find("expected a picture in a file, found a socket"),
      std::string::npos);
  ::close(listener);
  EXPECT_NE(readThrough("/dev/zero").error.find("found a device"), std::string::npos);
}

TEST(BrokenPictures, MemoryIsInProportionToTheFileAndBounded) {
  const Folder folder;
  // A PNG header of 16384 x 8192 pixels and the end: half a gibibyte of red, green, blue and alpha.
  writeBytes(
      folder / "flat.png",
      std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\x40\0\0\0\x20\0\x08\2\0\0\0\0\0\0\0", 33) +
          std::string("\0\0\0\0IEND\xAE\x42\x60\x82", 12));
  const auto opens = [&] {
    try {
      media::PictureReader reader(folder / "flat.png");
      return std::string();
    } catch (const Error& error) {
      return std::string(error.what());
    }
  };
  EXPECT_NE(opens().find("whose header asks for 512 MiB of memory; where that is meant say"),
            std::string::npos)
      << opens();
  media::setMemoryBound(std::uint64_t{1} << 30);
  EXPECT_EQ(opens().find("memory"), std::string::npos) << opens();
  media::setMemoryBound(std::uint64_t{1} << 28);
  EXPECT_NE(opens().find("asks for 512 MiB of memory, and this process may take 256 MiB"),
            std::string::npos)
      << opens();
  media::setMemoryBound(0);
  const std::pair<const char*, std::uint64_t> amounts[] = {
      {"800M", 838860800}, {"1.5GiB", 1610612736}, {"4g", 4294967296}, {"2000000", 2000000}};
  for (const auto& [text, bytes] : amounts) EXPECT_EQ(media::parseMemory(text, "--memory"), bytes);
  for (const char* text : {"", "G", "-1G", "4X", "4GB!", "nan", "1e999", "100K"}) {
    EXPECT_THROW(media::parseMemory(text, "--memory"), Error) << text;
  }
}

}  // namespace
}  // namespace orvanite::test
