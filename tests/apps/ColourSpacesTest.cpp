// SPDX-License-Identifier: BSD-3-Clause
//
// Keys in a working space. The test's spaces are powers of two apart, so that every conversion is
// exact and keys must agree to the last bit with keys of pictures that were scaled by hand.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "media/ColourSpaces.h"
#include "tests/apps/Images.h"
#include "tests/apps/Program.h"

namespace orvanite::test {
namespace {

/// "twice" holds light / 2, "quadruple" light / 4, "root" the square root of light.
void writeConfig(const std::string& path) {
  std::ofstream(path) << R"(ocio_profile_version: 2
roles: {scene_linear: light, default: light}
file_rules: [!<Rule> {name: Default, colorspace: default}]
displays: {none: [!<View> {name: none, colorspace: light}]}
colorspaces:
  - !<ColorSpace> {name: light}
  - !<ColorSpace>
    name: twice
    to_scene_reference: !<MatrixTransform> {matrix: [2,0,0,0, 0,2,0,0, 0,0,2,0, 0,0,0,1]}
  - !<ColorSpace>
    name: quadruple
    to_scene_reference: !<MatrixTransform> {matrix: [4,0,0,0, 0,4,0,0, 0,0,4,0, 0,0,0,1]}
  - !<ColorSpace>
    name: root
    to_scene_reference: !<ExponentTransform> {value: [2, 2, 2, 1]}
  - !<ColorSpace>
    name: film
    encoding: log
    to_scene_reference: !<LogTransform> {base: 2, direction: inverse}
)";
}

constexpr char onlyLight[] = R"(ocio_profile_version: 2
roles: {scene_linear: light, default: light}
colorspaces:
  - !<ColorSpace> {name: light}
)";

/// "s0" holds light / 2; every further one goes to light through the one before, twice.
void writeTower(const std::string& path, int height) {
  std::ofstream file(path);
  file << onlyLight << "  - !<ColorSpace> {name: s0, to_scene_reference: !<MatrixTransform> "
       << "{matrix: [2,0,0,0, 0,2,0,0, 0,0,2,0, 0,0,0,1]}}\n";
  for (int i = 1; i <= height; ++i) {
    const std::string way =
        "!<ColorSpaceTransform> {src: s" + std::to_string(i - 1) + ", dst: light}";
    file << "  - !<ColorSpace> {name: s" << i
         << ", to_scene_reference: !<GroupTransform> {children: [" << way << ", " << way << "]}}\n";
  }
}

/// Random multiples of 1/256 in 0..1, colours scaled by a power of two.
Image floats(unsigned seed, float scale) {
  Image image = randomImage(40, 30, 4, OIIO::TypeDesc::UINT8, seed);
  image.spec.set_format(OIIO::TypeDesc::FLOAT);
  for (std::size_t i = 0; i < image.samples.size(); ++i)
    image.samples[i] *= (i % 4 == 3 ? 1 : scale) / 256;
  return image;
}

TEST(ColourSpaces, PicturesAreKeyedInTheWorkingSpaceAndWrittenInTheOutputSpace) {
  const Folder folder;
  writeConfig(folder / "config.ocio");
  write(floats(1, 0.5f), folder / "plate.exr");
  write(floats(2, 0.25f), folder / "bg.exr");
  write(floats(1, 1), folder / "light.exr");
  write(floats(2, 1), folder / "lightbg.exr");
  const std::vector<std::string> look = {"--screen", "0.1,0.7,0.2", "--screen-range",
                                         "0.1",      "--alpha",     "matte"};
  const auto key = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "key");
    arguments.insert(arguments.end(), look.begin(), look.end());
    return orvanite(arguments, {"OCIO=" + folder / "config.ocio"});
  };
  ASSERT_EQ(key({folder / "light.exr", "--bg", folder / "lightbg.exr", "-o", folder / "hand.exr",
                 "--matte-output", folder / "handmatte.exr"})
                .code,
            0);
  // The working space is light, and linear; the plate's own space is where it is written.
  const Outcome told =
      key({folder / "plate.exr", "--input-space", "twice", "--bg", folder / "bg.exr", "--bg-space",
           "quadruple", "-o", folder / "key.exr", "--matte-output", folder / "matte.exr"});
  ASSERT_EQ(told.code, 0) << told.err;
  EXPECT_NE(told.err.find("colourspace: linear (working space light"), std::string::npos)
      << told.err;
  const Image hand = read(folder / "hand.exr"), own = read(folder / "key.exr");
  ASSERT_EQ(hand.samples.size(), own.samples.size());
  for (std::size_t i = 0; i < own.samples.size(); ++i)
    ASSERT_EQ(own.samples[i], hand.samples[i] * (i % 4 == 3 ? 1 : 0.5f)) << i;
  EXPECT_EQ(read(folder / "matte.exr").samples, read(folder / "handmatte.exr").samples);

  ASSERT_EQ(key({folder / "light.exr", "--input-space", "root", "--output-space", "scene_linear",
                 "--no-key", "-o", folder / "squared.exr"})
                .code,
            0);
  const Image light = read(folder / "light.exr"), squared = read(folder / "squared.exr");
  for (std::size_t i = 0; i < light.samples.size(); ++i)
    ASSERT_NEAR(squared.samples[i],
                i % 4 == 3 ? light.samples[i] : light.samples[i] * light.samples[i], 1e-6)
        << i;
}

TEST(ColourSpaces, AnEightBitPlateIsKeyedInFloatAndWrittenToHalf) {
  const Folder folder;
  writeConfig(folder / "config.ocio");
  write(randomImage(16, 16, 3, OIIO::TypeDesc::UINT8, 3), folder / "plate.png");
  ASSERT_EQ(
      orvanite(folder, blueKeyWords +
                           "@plate.png --ocio @config.ocio --input-space root --output-space light "
                           "--no-key -o @out.exr")
          .code,
      0);
  const Image plate = read(folder / "plate.png"), out = read(folder / "out.exr");
  EXPECT_EQ(out.spec.format, OIIO::TypeDesc::HALF);
  for (std::size_t p = 0; p < 256; ++p) {
    for (std::size_t c = 0; c < 3; ++c) {
      const double code = plate.samples[3 * p + c] / 255;
      ASSERT_NEAR(out.samples[4 * p + c], code * code, 0.0005) << p;  // half: 2^-11 of 1
    }
  }
}

TEST(ColourSpaces, ASpaceThatIsLogIsKeyedSoAndAPresetRemembersItsSpaces) {
  const Folder folder;
  writeConfig(folder / "config.ocio");
  write(floats(1, 1), folder / "plate.exr");
  const std::string key = "key --screen=0.1,0.7,0.2 @plate.exr -o @out.exr ";
  const std::string film = "--ocio @config.ocio --input-space light --working-space film ";
  const Outcome log = orvanite(folder, key + film + "--save-preset @p.json");
  ASSERT_EQ(log.code, 0) << log.err;
  EXPECT_NE(log.err.find("colourspace: log (working space film"), std::string::npos) << log.err;

  const Outcome same = orvanite(folder, key + film + "--preset @p.json");
  ASSERT_EQ(same.code, 0) << same.err;
  EXPECT_EQ(same.err.find("preset"), std::string::npos) << same.err;

  const Outcome other = orvanite(folder, key + "--preset @p.json");
  ASSERT_EQ(other.code, 0) << other.err;
  for (const char* said :
       {"colourspace: log, the preset's; the plate is linear (float samples)",
        "--working-space: the preset was made with film, this is keyed without"}) {
    EXPECT_NE(other.err.find(said), std::string::npos) << said << '\n' << other.err;
  }
}

TEST(ColourSpaces, LeadThroughOthers) {
  const Folder folder;
  writeTower(folder / "config.ocio", 2);
  write(floats(1, 1), folder / "plate.exr");
  const Outcome outcome = orvanite(folder, blueKeyWords +
                                               "@plate.exr --ocio @config.ocio --input-space s2 "
                                               "--output-space light --no-key -o @out.exr");
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  const Image plate = read(folder / "plate.exr"), out = read(folder / "out.exr");
  for (std::size_t i = 0; i < plate.samples.size(); ++i)
    ASSERT_EQ(out.samples[i], plate.samples[i] * (i % 4 == 3 ? 1 : 16)) << i;  // (2 * 2)^2
}

// A page or a program that runs on sees a table that was written anew.
TEST(ColourSpaces, ReadTablesAsTheyAreWhenAConfigurationIsOpened) {
  const Folder folder;
  std::ofstream(folder / "config.ocio")
      << onlyLight << "  - !<ColorSpace> {name: table, to_scene_reference: "
      << "!<FileTransform> {src: table.spi1d, interpolation: linear}}\n";
  for (const float top : {2.0f, 4.0f}) {
    std::ofstream(folder / "table.spi1d") << "Version 1\nFrom 0 1\nLength 2\nComponents 1\n{\n0\n"
                                          << top << "\n}\n";
    media::Picture picture =
        media::Picture::make({0, 0, 1, 1}, Depth::floats, media::Samples::float32);
    auto* const samples = reinterpret_cast<float*>(picture.pixels.get());
    std::fill_n(samples, 4, 0.25f);
    media::ColourSpaces(folder / "config.ocio").conversion("table", "light").apply(picture);
    EXPECT_EQ(samples[0], 0.25f * top);
  }
}

TEST(ColourSpaces, SayWhatIsWrong) {
  const Folder folder;
  writeConfig(folder / "config.ocio");
  std::ofstream(folder / "broken.ocio") << "no: [configuration";
  // Tables that never end, deep in a look; and a name of two lines.
  std::ofstream(folder / "endless.ocio") << R"(ocio_profile_version: 2
roles: {scene_linear: light, default: light}
colorspaces: [!<ColorSpace> {name: light}, !<ColorSpace> {name: "two\nlines"}]
looks: [!<Look> {name: l, process_space: light, transform: !<GroupTransform> {children: [
  !<FileTransform> {src: /dev/zero}]}}]
)";
  std::string lines = contents(folder / "endless.ocio");
  lines.erase(lines.find("looks"));
  std::ofstream(folder / "lines.ocio") << lines;
  // A look that is wanted by the space that it works in.
  std::ofstream(folder / "circle.ocio") << onlyLight << R"(
  - !<ColorSpace> {name: a, to_scene_reference: !<LookTransform> {src: light, dst: light, looks: "-x"}}
looks: [!<Look> {name: X, process_space: A, transform: !<CDLTransform> {sat: 2}}]
)";
  writeTower(folder / "tower.ocio", 16);
  write(floats(1, 1), folder / "plate.exr");
  const struct {
    std::string options;
    int code;
    std::string says;
  } cases[] = {
      {"--ocio @config.ocio --input-space twize", 2,
       "--input-space: expected a colour space of " + folder / "config.ocio" +
           " (light, twice, quadruple, root, film), found 'twize'"},
      {"--input-space twice", 2, "--input-space: expected an OpenColorIO configuration"},
      {"--ocio @config.ocio", 2, "--ocio: expected --input-space"},
      {"--output-space twice", 2, "--output-space: expected --input-space"},
      {"--ocio @none.ocio --input-space twice", 1, "there is no such"},
      {"--ocio /dev/zero --input-space twice", 1, "expected a file of at most 67108864"},
      {"--ocio @endless.ocio --input-space light", 1,
       "/dev/zero: expected a table of colours in a file, found a device"},
      {"--ocio @circle.ocio --input-space a", 1, "colour space a leads back to itself"},
      {"--ocio @tower.ocio --input-space s1", 1,
       // 4 * 2^n - 3 transforms to space n
       "colour space s12 leads through more than 32 names or 10000 transforms"},
      {"--ocio @lines.ocio --input-space twice", 2, "(light, two lines), found 'twice'"},
      {"--ocio @broken.ocio --input-space twice", 1, "no OpenColorIO configuration"},
      {"--ocio @config.ocio --input-space twice --save-script @s.orv", 2,
       "a script cannot hold --input-space"},
  };
  for (const auto& c : cases) {
    const Outcome outcome =
        orvanite(words(folder, blueKeyWords + "-q @plate.exr -o @out.exr " + c.options), {"OCIO="});
    EXPECT_EQ(outcome.code, c.code) << c.says << '\n' << outcome.err;
    EXPECT_NE(outcome.err.find(c.says), std::string::npos) << c.says << '\n' << outcome.err;
    EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
  }
  EXPECT_EQ(folder.names(),
            (std::vector<std::string>{"broken.ocio", "circle.ocio", "config.ocio", "endless.ocio",
                                      "lines.ocio", "plate.exr", "tower.ocio"}));
}

}  // namespace
}  // namespace orvanite::test
