// SPDX-License-Identifier: BSD-3-Clause
//
// `orvanite key` on stills: the bytes are the flat interface's, whatever the formats.
#include <Imath/half.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>

#include "engine/orvanite.h"
#include "tests/Sanitized.h"
#include "tests/apps/Images.h"
#include "tests/apps/Program.h"

namespace orvanite::test {
namespace {

constexpr int width = 37;
constexpr int height = 21;
constexpr std::size_t pixels = std::size_t{width} * height;

// Four interleaved channels of a depth, built from a picture's codes as the command should: grey
// stands for all colours, wider depths are reached by 257 and by division.
struct Pixels {
  int depth;
  std::vector<unsigned char> bytes;

  Pixels(const Image& image, int toDepth, float missingAlpha, int alphaFrom = -1)
      : depth(toDepth), bytes(pixels * 4 * static_cast<std::size_t>(toDepth)) {
    const int channels = image.spec.nchannels;
    const bool integer = !image.spec.format.is_floating_point();
    const float top = !integer ? 1.0f : image.spec.format.basesize() == 1 ? 255.0f : 65535.0f;
    for (std::size_t i = 0; i < pixels; ++i) {
      for (int c = 0; c < 4; ++c) {
        int from = c;
        if (channels < 3) from = c == 3 ? (channels == 2 ? 1 : -1) : 0;
        if (channels == 3 && c == 3) from = -1;
        if (alphaFrom >= 0 && c == 3) from = alphaFrom;
        float value = from < 0 ? missingAlpha * top
                               : image.samples[i * static_cast<std::size_t>(channels) +
                                               static_cast<std::size_t>(from)];
        unsigned char* to =
            &bytes[(i * 4 + static_cast<std::size_t>(c)) * static_cast<std::size_t>(depth)];
        if (depth == 1) {
          *to = static_cast<unsigned char>(top == 65535.0f ? value / 257 + 0.5f : value);
        } else if (depth == 2) {
          const auto code = static_cast<unsigned short>(top == 255.0f ? value * 257 : value);
          std::memcpy(to, &code, 2);
        } else {
          value = integer ? value * (1.0f / top) : value;
          std::memcpy(to, &value, 4);
        }
      }
    }
  }

  OtileImage tile() {
    unsigned char* first = bytes.data();
    return {first, first + depth, first + 2 * depth, first + 3 * depth, 4, 4 * width};
  }

  float sample(std::size_t index) const {
    float value = 0;
    if (depth == 1) return bytes[index];
    if (depth == 4) {
      std::memcpy(&value, &bytes[index * 4], 4);
      return value;
    }
    unsigned short code = 0;
    std::memcpy(&code, &bytes[index * 2], 2);
    return code;
  }
};

struct KeyCase {
  const char* description;
  const char* plate;
  OIIO::TypeDesc plateType;
  int plateChannels;
  const char* background;  // file name, or null
  OIIO::TypeDesc backgroundType;
  int backgroundChannels;
  const char* output;
  const char* outputMode;
  int view;
  int depth;     // that it keys at
  int encoding;  // that it keys in
  OIIO::TypeDesc::BASETYPE outputType;
};

const KeyCase keyCases[] = {
    {"8-bit over 8-bit", "fg.png", OIIO::TypeDesc::UINT8, 3, "bg.png", OIIO::TypeDesc::UINT8, 3,
     "out.png", "composite", 0, 1, 2, OIIO::TypeDesc::UINT8},
    {"alpha of the background is merged", "fg.png", OIIO::TypeDesc::UINT8, 4, "bg.png",
     OIIO::TypeDesc::UINT8, 4, "out.png", "composite", 0, 1, 2, OIIO::TypeDesc::UINT8},
    {"grey plate with alpha", "fg.png", OIIO::TypeDesc::UINT8, 2, "bg.png", OIIO::TypeDesc::UINT8,
     1, "out.png", "composite", 0, 1, 2, OIIO::TypeDesc::UINT8},
    {"no background", "fg.png", OIIO::TypeDesc::UINT8, 3, nullptr, OIIO::TypeDesc::UINT8, 0,
     "out.tif", "composite", 1, 1, 2, OIIO::TypeDesc::UINT8},
    {"straight colour beside alpha in PNG", "fg.png", OIIO::TypeDesc::UINT8, 3, nullptr,
     OIIO::TypeDesc::UINT8, 0, "out.png", "unpremultiplied", 4, 1, 2, OIIO::TypeDesc::UINT8},
    {"8-bit over 16-bit", "fg.png", OIIO::TypeDesc::UINT8, 3, "bg.tif", OIIO::TypeDesc::UINT16, 3,
     "out.tif", "composite", 0, 2, 2, OIIO::TypeDesc::UINT16},
    {"16-bit over 8-bit", "fg.tif", OIIO::TypeDesc::UINT16, 3, "bg.png", OIIO::TypeDesc::UINT8, 4,
     "out.png", "composite", 0, 2, 2, OIIO::TypeDesc::UINT16},
    {"16-bit status", "fg.png", OIIO::TypeDesc::UINT16, 4, nullptr, OIIO::TypeDesc::UINT8, 0,
     "out.tif", "status", 5, 2, 2, OIIO::TypeDesc::UINT16},
    {"8-bit over half", "fg.png", OIIO::TypeDesc::UINT8, 3, "bg.exr", OIIO::TypeDesc::HALF, 4,
     "out.tif", "composite", 0, 4, 2, OIIO::TypeDesc::FLOAT},
    {"float matte", "fg.exr", OIIO::TypeDesc::FLOAT, 3, nullptr, OIIO::TypeDesc::UINT8, 0,
     "out.exr", "matte", 2, 4, 0, OIIO::TypeDesc::FLOAT},
    {"float over 16-bit", "fg.exr", OIIO::TypeDesc::FLOAT, 4, "bg.tif", OIIO::TypeDesc::UINT16, 3,
     "out.exr", "composite", 0, 4, 0, OIIO::TypeDesc::FLOAT},
    {"half over half", "fg.exr", OIIO::TypeDesc::HALF, 3, "bg.exr", OIIO::TypeDesc::HALF, 3,
     "out.exr", "composite", 0, 4, 0, OIIO::TypeDesc::HALF},
};

TEST(KeyCommand, GivesTheFlatInterfacesBytesForEveryPairOfFormats) {
  for (const KeyCase& one : keyCases) {
    SCOPED_TRACE(one.description);
    const Folder folder;
    const Image plate = randomImage(width, height, one.plateChannels, one.plateType, 1);
    const Image mattes = randomImage(width, height, 4, OIIO::TypeDesc::UINT16, 3);
    write(plate, folder / one.plate);
    write(mattes, folder / "mattes.tif");
    std::vector<std::string> arguments{"key",
                                       folder / one.plate,
                                       "--alpha",
                                       "matte",
                                       "--bg-colourspace",
                                       one.plateType.is_floating_point() ? "linear" : "video",
                                       "-o",
                                       folder / one.output,
                                       "--output",
                                       one.outputMode,
                                       "--screen",
                                       "0.2,0.7,0.3",
                                       "--hold-out",
                                       folder / "mattes.tif",
                                       "--hold-out-channel",
                                       "G",
                                       "--garbage",
                                       folder / "mattes.tif"};
    Image background;
    if (one.background != nullptr) {
      background = randomImage(width, height, one.backgroundChannels, one.backgroundType, 2);
      write(background, folder / one.background);
      arguments.insert(arguments.end(), {"--bg", folder / one.background});
    }
    const Outcome outcome = orvanite(arguments);
    ASSERT_EQ(outcome.code, 0) << outcome.err;

    QMXOrvaniteTable* engine = orvanite_new();
    orvanite_useRef(engine, 0);
    orvanite_setView(engine, one.view);
    orvanite_setColourspace(engine, one.encoding);
    orvanite_setScreen(engine, 0.2f, 0.7f, 0.3f);
    orvanite_setNeutral(engine, 0.9f, 0.9f, 0.9f);
    orvanite_setReplace(engine, 0.5f, 0.5f, 0.5f);
    const int maximum = one.depth == 1 ? 255 : one.depth == 2 ? 65535 : 1;
    for (auto set : {orvanite_setFgMax, orvanite_setBgMax, orvanite_setDstMax,
                     orvanite_setHMatteMax, orvanite_setGMatteMax, orvanite_setRefMax}) {
      set(engine, maximum);
    }
    ASSERT_EQ(orvanite_makeLuts(engine), 0);
    Pixels keyed(plate, one.depth, 1);
    Pixels holdOut(mattes, one.depth, 0, 1);
    Pixels garbage(mattes, one.depth, 0, 3);
    Otile tile{};
    tile.fg = tile.dst = keyed.tile();
    tile.hold.alpha = holdOut.tile().alpha;
    tile.garbage.alpha = garbage.tile().alpha;
    tile.hold.pixelStep = tile.garbage.pixelStep = 4;
    tile.hold.lineStep = tile.garbage.lineStep = 4 * width;
    std::vector<Pixels> kept;
    if (one.background != nullptr) {
      kept.emplace_back(background, one.depth, 1.0f);
      tile.bg = kept.back().tile();
    }
    ASSERT_EQ(orvanite_render(engine, one.depth, width, height, &tile), 0);
    orvanite_delete(engine);

    const Image result = read(folder / one.output);
    ASSERT_EQ(result.spec.nchannels, 4);
    ASSERT_EQ(result.spec.format, OIIO::TypeDesc(one.outputType));
    for (std::size_t i = 0; i < result.samples.size(); ++i) {
      float expected = keyed.sample(i);
      if (result.spec.format == OIIO::TypeDesc::HALF) expected = half(expected);
      ASSERT_EQ(result.samples[i], expected) << "sample " << i;
    }
  }
}

TEST(KeyCommand, KeepsWindowsAndMetadataAndLinesUpPicturesByTheirFrames) {
  const Folder folder;
  Image plate = randomImage(width, height, 3, OIIO::TypeDesc::HALF, 1);
  plate.spec.x = 5;
  plate.spec.y = -3;
  plate.spec.full_width = 64;
  plate.spec.full_height = 48;
  plate.spec.attribute("Artist", "somebody");
  write(plate, folder / "fg.exr");
  // The background covers the whole frame, and shows beside the plate's pixels as well.
  const Image background = randomImage(64, 48, 3, OIIO::TypeDesc::HALF, 2);
  write(background, folder / "bg.exr");
  // A garbage matte that is white everywhere leaves nothing but background.
  Image white = randomImage(64, 48, 1, OIIO::TypeDesc::UINT8, 3);
  std::fill(white.samples.begin(), white.samples.end(), 255.0f);
  write(white, folder / "white.png");
  const Outcome outcome = orvanite(folder,
                                   "key @fg.exr --bg @bg.exr --garbage @white.png --screen "
                                   "0.1,0.7,0.1 --alpha matte -o @out.exr");
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  const Image result = read(folder / "out.exr");
  EXPECT_EQ(result.spec.x, 0);
  EXPECT_EQ(result.spec.y, -3);
  ASSERT_EQ(result.spec.width, 64);
  ASSERT_EQ(result.spec.height, 51);
  EXPECT_EQ(result.spec.full_width, 64);
  EXPECT_EQ(result.spec.full_height, 48);
  EXPECT_EQ(result.spec.format, OIIO::TypeDesc(OIIO::TypeDesc::HALF));
  EXPECT_EQ(result.spec.get_string_attribute("Artist"), "somebody");
  // The plate's first three rows lie above the frame, where there is neither matte nor background.
  for (std::size_t pixel = 0; pixel < 64 * 48; ++pixel) {
    for (std::size_t c = 0; c < 3; ++c) {
      ASSERT_EQ(result.samples[(pixel + 64 * 3) * 4 + c], background.samples[pixel * 3 + c])
          << pixel;
    }
  }
}

TEST(KeyCommand, PremultipliesWhenAskedAndOnlyThen) {
  const Folder folder;
  write(randomImage(width, height, 3, OIIO::TypeDesc::UINT8, 1), folder / "fg.png");
  for (const char* name : {"straight.png", "multiplied.png"}) {
    std::vector<std::string> arguments =
        blueKey({folder / "fg.png", "--output", "unpremultiplied", "-o", folder / name});
    if (std::string(name) == "multiplied.png") arguments.push_back("--premultiply");
    ASSERT_EQ(orvanite(arguments).code, 0);
  }
  const Image straight = read(folder / "straight.png");
  const Image multiplied = read(folder / "multiplied.png");
  for (std::size_t i = 0; i < straight.samples.size(); ++i) {
    const double alpha = straight.samples[i | 3];
    const double expected =
        i % 4 == 3 ? alpha : std::floor(straight.samples[i] * alpha / 255 + 0.5);
    ASSERT_EQ(multiplied.samples[i], expected) << i;
  }
}

TEST(KeyCommand, ChoosesTheEncodingFromTheFileAndSaysSo) {
  const Folder folder;
  write(randomImage(8, 8, 3, OIIO::TypeDesc::UINT8, 1), folder / "fg.png");
  write(randomImage(8, 8, 3, OIIO::TypeDesc::FLOAT, 1), folder / "fg.exr");
  Image scan = randomImage(8, 8, 3, OIIO::TypeDesc::UINT16, 1);
  scan.spec.attribute("dpx:Transfer", "Printing density");
  scan.spec.attribute("oiio:BitsPerSample", 10);
  write(scan, folder / "fg.dpx");
  const std::pair<const char*, const char*> cases[] = {
      {"fg.png", "video"}, {"fg.exr", "linear"}, {"fg.dpx", "log"}};
  for (const auto& [plate, encoding] : cases) {
    const Outcome chosen = orvanite(blueKey({folder / plate, "-o", folder / "chosen.tif"}));
    EXPECT_EQ(chosen.err.find(std::string("colourspace: ") + encoding), 0U) << chosen.err;
    const Outcome given =
        orvanite(blueKey({folder / plate, "--cspace", encoding, "-o", folder / "given.tif"}));
    EXPECT_EQ(given.err, "");
    EXPECT_EQ(read(folder / "chosen.tif").samples, read(folder / "given.tif").samples) << plate;
  }
}

TEST(KeyCommand, KeysA4KPictureInThePicturesMemoryAnd64MiB) {
#ifdef ORVANITE_SANITIZED
  GTEST_SKIP() << "sanitizers have memory of their own";
#endif
  const Folder folder;
  // Written row by row: a child starts with its parent's peak.
  for (const char* name : {"fg.tif", "bg.tif"}) {
    std::vector<std::uint16_t> row(4096 * 3);
    auto output = OIIO::ImageOutput::create(folder / name);
    ASSERT_TRUE(
        output->open(folder / name, OIIO::ImageSpec(4096, 2160, 3, OIIO::TypeDesc::UINT16)));
    for (int y = 0; y < 2160; ++y) {
      for (std::size_t i = 0; i < row.size(); ++i)
        row[i] = static_cast<std::uint16_t>(i * 7919 + static_cast<std::size_t>(y));
      ASSERT_TRUE(output->write_scanline(y, 0, OIIO::TypeDesc::UINT16, row.data()));
    }
    ASSERT_TRUE(output->close());
  }
  const Outcome outcome = orvanite(folder, blueKeyWords + "@fg.tif --bg @bg.tif -o @out.tif");
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  // Plate and background, four channels of two bytes each, and 64 MiB, beyond what the libraries
  // take before anything is done.
  const long pictures = 2L * 4096 * 2160 * 4 * 2 / 1024;
  const long libraries = orvanite({"--version"}).peakKilobytes;
  EXPECT_LE(outcome.peakKilobytes - libraries, pictures + 64 * 1024);
  std::printf("peak %ld KiB, of it libraries %ld KiB; pictures %ld KiB\n", outcome.peakKilobytes,
              libraries, pictures);
}

TEST(KeyCommand, HelpNamesEveryParameterWithRangeAndDefault) {
  const Outcome help = orvanite({"key", "--help"});
  EXPECT_EQ(help.code, 0);
  EXPECT_EQ(help.err, "");
  for (const char* part : {"--screen-range X", "distance in colour 0 to 1, default 0",
                           "--bg-saturation X", "Background grade:", "unpremultiplied:",
                           "0.9 for a screen", "--hold-out-channel CHANNEL"}) {
    EXPECT_NE(help.out.find(part), std::string::npos) << part;
  }
  for (std::size_t at = 0, end; (end = help.out.find('\n', at)) != std::string::npos;
       at = end + 1) {
    EXPECT_LE(end - at, 100U) << help.out.substr(at, end - at);
  }
  const Outcome version = orvanite({"--version"});
  EXPECT_EQ(version.code, 0);
  EXPECT_EQ(version.out.rfind("orvanite 1.4.0\n", 0), 0U);
}

}  // namespace
}  // namespace orvanite::test
