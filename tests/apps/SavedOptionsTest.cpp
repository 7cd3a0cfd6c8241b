// SPDX-License-Identifier: BSD-3-Clause
//
// `orvanite key --save-script` with every option that `key` has: the script renders the key's
// bytes, or the option is refused by its name, or it says nothing about pixels. The options are
// those of the help: one that is not in this list fails.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include "tests/apps/Images.h"
#include "tests/apps/Program.h"

namespace orvanite::test {
namespace {

// What becomes of an option.
enum Fate {
  kHeld,     // the script renders the same bytes
  kRefused,  // by its name
  kAside     // changes neither the script nor the bytes
};

struct Option {
  const char* name;
  Fate fate;
  const char* words;  // @ is the folder
};

const Option options[] = {
    {"--bg", kHeld, "--bg @bg.png"},
    {"--bg-fit", kRefused, "--bg @large.png --bg-fit stretch"},
    {"--bg-colourspace", kRefused, "--bg @bg.png --bg-colourspace linear"},
    {"--hold-out", kHeld, "--hold-out @matte.png"},
    {"--garbage", kHeld, "--garbage @plate.png"},  // no alpha: its red channel
    {"--masks", kRefused, "--masks @masks.json"},
    {"--garbage-rect", kRefused, "--garbage-rect 1,1,4,4"},
    {"--garbage-polygon", kRefused, "--garbage-polygon 1,1,4,4,1,4"},
    {"--garbage-soft", kRefused, "--garbage-rect 1,1,4,4 --garbage-soft 2"},
    {"--garbage-outside", kRefused, "--garbage-rect 1,1,4,4 --garbage-outside"},
    {"--reference", kRefused, "--reference @bg.png"},
    {"--matte-output", kRefused, "--matte-output @m.png"},
    {"--status-output", kRefused, "--status-output @m.png"},
    {"--foreground-output", kRefused, "--foreground-output @m.png"},
    {"--save-reference", kRefused, "--estimate codes --save-reference @m.png PLATE @screen.png"},
    {"--save-hold-out", kRefused, "--estimate codes --save-hold-out @m.png PLATE @screen.png"},
    {"--save-garbage", kRefused, "--estimate codes --save-garbage @m.png PLATE @screen.png"},
    {"--alpha", kHeld, "--output unpremultiplied --alpha premultiplied"},
    {"--premultiply", kHeld, "--output unpremultiplied --premultiply"},
    {"--preset", kHeld, "--preset @preset.json"},
    {"--save-preset", kAside, "--save-preset @saved.json"},
    {"--save-script", kAside, ""},
    {"--codec", kHeld, "--codec ffv1 -o @out.mkv"},
    {"--fps", kHeld, "--fps 30000/1001 -o @out.mov"},
    {"--quality", kHeld, "--quality 8 -o @out.mov"},
    {"--bitrate", kHeld, "--codec vp9 --bitrate 400k -o @out.mkv"},
    {"--sound", kHeld, "--sound none -o @out.mov"},
    {"--matrix", kHeld, "--matrix 601 --frames 1 PLATE @m.mov"},
    {"--deinterlace", kHeld, "--deinterlace --frames 1 PLATE @m.mov"},
    {"--fps", kHeld, "--fps 12 --frames 1 PLATE @m.mov"},
    {"--part", kHeld, "--part 0 PLATE @plate.exr"},
    {"--layer", kHeld, "--layer beauty PLATE @plate.exr"},
    {"--frames", kAside, "--frames 1"},
    {"--bg-frame-offset", kHeld, "--bg @bg.png --bg-frame-offset 2"},
    {"--hold-out-frame-offset", kHeld, "--hold-out @matte.png --hold-out-frame-offset 2"},
    {"--garbage-frame-offset", kHeld, "--garbage @matte.png --garbage-frame-offset 2"},
    {"--reference-frame-offset", kAside, "--reference-frame-offset 2"},
    {"--bg-time", kHeld, "--bg @bg.png --bg-time loop"},
    {"--skip-existing", kAside, "--skip-existing"},
    {"--keep-going", kAside, "--keep-going"},
    {"--threads", kAside, "--threads 2"},
    {"--in-flight", kAside, "--in-flight 2"},
    {"--memory", kAside, "--memory 1G"},
    {"--progress", kAside, "--progress none"},
    {"--json", kAside, "--json"},
    {"--no-key", kRefused, "--no-key"},
    {"--quiet", kAside, ""},
    {"--output", kHeld, "--output status"},
    {"--colourspace", kHeld, "--colourspace log"},
    {"--background-colour", kRefused, "--output compOnColour --background-colour 0.2"},
    {"--estimate", kRefused, "--estimate video PLATE @screen.png"},
    {"--screen", kHeld, "--screen 0.3,0.2,0.7"},
    {"--screen-range", kHeld, "--screen-range linear(time,0@0.1,2@0.3)"},
    {"--fg-bias", kHeld, "--fg-bias 0.4,0.5,0.6"},
    {"--auto", kRefused, "--auto PLATE @screen.png"},
    {"--screen-at", kHeld, "--screen-at 3,3,2,2"},
    {"--screen-average", kHeld, "--screen-at 3,3,2,2 --screen-average mean"},
    {"--screen-frame", kHeld, "--screen-at 3,3,2,2 --screen-frame 1 PLATE @shot.1.png"},
    {"--shadow-balance", kHeld, "--shadow-balance 0.3"},
    {"--midtone-balance", kHeld, "--midtone-balance 0.3"},
    {"--highlight-balance", kHeld, "--highlight-balance 0.3"},
    {"--shadow-gain", kHeld, "--shadow-gain 0.3"},
    {"--midtone-gain", kHeld, "--midtone-gain 0.3"},
    {"--highlight-gain", kHeld, "--highlight-gain 0.3"},
    {"--mid-tones-at", kHeld, "--mid-tones-at 0.3"},
    {"--mid-tones-at", kRefused, "--mid-tones-at 0.3,0.4,0.5"},
    {"--replace", kHeld, "--output compOnReplace --replace 0.3,0.4,0.5"},
    {"--exposure", kHeld, "--exposure smooth(t,0@0.5,1@0.7,2@0.6)"},
    {"--gamma", kHeld, "--gamma 1,1.2,1.1"},
    {"--offset", kRefused, "--offset 0.1"},
    {"--saturation", kHeld, "--saturation 0.5"},
    {"--bg-exposure", kRefused, "--bg @bg.png --bg-exposure 0.5"},
    {"--bg-gamma", kRefused, "--bg @bg.png --bg-gamma 0.5"},
    {"--bg-offset", kRefused, "--bg @bg.png --bg-offset 0.5"},
    {"--bg-saturation", kRefused, "--bg @bg.png --bg-saturation 0.5"},
    {"--use-hold-out-matte", kHeld, "--hold-out @matte.png --use-hold-out-matte off"},
    {"--hold-out-channel", kHeld, "--hold-out @matte.png --hold-out-channel g"},
    {"--use-garbage-matte", kHeld, "--garbage @matte.png --use-garbage-matte off"},
    {"--garbage-channel", kHeld, "--garbage @matte.png --garbage-channel B"},
    {"--use-reference", kHeld, "--reference @bg.png --use-reference off"},
    {"--matte-black", kRefused, "--matte-black 0.1"},
    {"--matte-white", kRefused, "--matte-white 0.9"},
    {"--matte-gamma", kRefused, "--matte-gamma 1.1"},
    {"--refine", kRefused, "--refine 1"},
    {"--islands", kRefused, "--islands 2"},
    {"--pinholes", kRefused, "--pinholes 2"},
    {"--shrink", kRefused, "--shrink 1"},
    {"--soften", kRefused, "--soften 1"},
    {"--edge-colour", kRefused, "--edge-colour 0.5"},
    {"--edge-reach", kRefused, "--edge-reach 5"},
    {"--spill", kRefused, "--spill 0.5"},
    {"--spill-limit", kRefused, "--spill-limit 0.3"},
    {"--spill-replace", kRefused, "--spill-replace grey"},
    {"--light-wrap", kRefused, "--light-wrap 0.5"},
    {"--wrap-reach", kRefused, "--wrap-reach 5"},
    {"--ocio", kRefused, "OCIO"},
    {"--input-space", kRefused, "OCIO"},
    {"--bg-space", kRefused, "OCIO --bg @bg.png --bg-space linear"},
    {"--working-space", kRefused, "OCIO"},
    {"--output-space", kRefused, "OCIO --output-space linear"},
};

// The long names of the options in the help, the first of each.
std::set<std::string> optionsOfHelp() {
  const Outcome help = orvanite({"key", "--help"});
  std::set<std::string> names;
  std::istringstream lines(help.out);
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("  -")) continue;
    const std::size_t at = line.find("--");
    const auto end = std::find_if(line.begin() + static_cast<std::ptrdiff_t>(at) + 2, line.end(),
                                  [](char c) { return c != '-' && !std::isalnum(c); });
    names.insert(line.substr(at, static_cast<std::size_t>(end - line.begin()) - at));
  }
  return names;
}

constexpr const char* config = R"(ocio_profile_version: 2
roles: {default: linear}
colorspaces:
  - !<ColorSpace> {name: linear}
  - !<ColorSpace> {name: gamma, to_scene_reference: !<ExponentTransform> {value: [2.2, 2.2, 2.2, 1]}}
)";

class SavedOptions : public testing::Test {
 protected:
  void SetUp() override {
    const auto picture = [](int width, int height, int channels, unsigned seed) {
      return randomImage(width, height, channels, OIIO::TypeDesc::UINT8, seed);
    };
    write(picture(21, 13, 3, 1), folder_ / "plate.png");
    write(picture(21, 13, 3, 1), folder_ / "shot.1.png");
    write(picture(21, 13, 3, 2), folder_ / "bg.png");
    write(picture(31, 19, 3, 3), folder_ / "large.png");
    write(picture(21, 13, 4, 4), folder_ / "matte.png");
    Image layers = randomImage(21, 13, 3, OIIO::TypeDesc::HALF, 5);
    layers.spec.channelnames = {"beauty.R", "beauty.G", "beauty.B"};
    write(layers, folder_ / "plate.exr");
    Image screen = picture(60, 40, 3, 6);
    for (std::size_t i = 0; i < screen.samples.size(); ++i) {
      const bool subject = i / 3 % 60 > 25 && i / 3 % 60 < 35;
      screen.samples[i] = subject ? 150 : i % 3 == 2 ? 200 : 40;
    }
    write(screen, folder_ / "screen.png");
    const Outcome movie = orvanite(folder_,
                                   "key -q --screen 0.1,0.2,0.8 --output status "
                                   "@plate.png --frames 1-3 -o @m.mov");
    ASSERT_EQ(movie.code, 0) << movie.err;
    std::ofstream(folder_ / "preset.json")
        << R"({"orvanite": "preset", "version": 1, "parameters": {"screenRange": 0.2}})";
    std::ofstream(folder_ / "masks.json") << R"({"orvanite": "masks", "version": 1, "shapes": []})";
    std::ofstream(folder_ / "config.ocio") << config;
  }

  // The words of a key with an option's.
  std::vector<std::string> wordsOf(const Option& option) const {
    std::string more = option.words;
    std::string plate = "@plate.png";
    if (const auto at = more.find(" PLATE "); at != std::string::npos) {
      plate = more.substr(at + 7);
      more.resize(at);
    }
    if (more.starts_with("OCIO")) {
      more.replace(0, 4, "--ocio @config.ocio --input-space gamma --working-space linear");
    }
    std::string line = "key -q " + plate + " --save-script @s.orv ";
    if (!more.starts_with("--screen ") && !more.starts_with("--screen-at") &&
        !more.starts_with("--auto"))
      line += "--screen 0.1,0.2,0.8 ";
    if (more.find("-o ") == std::string::npos) line += "-o @out.png ";
    return words(folder_, line + more);
  }

  Folder folder_;
};

TEST_F(SavedOptions, AreHeldByTheScriptOrRefusedByTheirNames) {
  const Outcome plain = orvanite(wordsOf({"", kAside, ""}));
  ASSERT_EQ(plain.code, 0) << plain.err;
  const std::string plainScript = contents(folder_ / "s.orv");
  const std::string plainBytes = contents(folder_ / "out.png");
  std::set<std::string> walked{"--help", "--out"};
  for (const Option& option : options) {
    SCOPED_TRACE(std::string(option.name) + ": " + option.words);
    walked.insert(option.name);
    for (const char* const name : {"s.orv", "out.png", "out.mov", "out.mkv"}) {
      std::filesystem::remove(folder_ / name);
    }
    const Outcome keyed = orvanite(wordsOf(option));
    if (option.fate == kRefused) {
      EXPECT_EQ(keyed.code, 2);
      EXPECT_NE(keyed.err.find("--save-script: a script cannot hold "), std::string::npos)
          << keyed.err;
      EXPECT_NE(keyed.err.find(option.name), std::string::npos) << keyed.err;
      EXPECT_FALSE(std::filesystem::exists(folder_ / "s.orv"));
      continue;
    }
    ASSERT_EQ(keyed.code, 0) << keyed.err;
    if (option.fate == kAside) {
      EXPECT_EQ(contents(folder_ / "s.orv"), plainScript);
      EXPECT_EQ(contents(folder_ / "out.png"), plainBytes);
      continue;
    }
    for (const char* const name : {"out.png", "out.mov", "out.mkv"}) {
      const std::string file = folder_ / name;
      if (!std::filesystem::exists(file)) continue;
      const std::string bytes = contents(file);
      std::filesystem::remove(file);
      const Outcome ran = orvanite({"run", "-q", folder_ / "s.orv"});
      ASSERT_EQ(ran.code, 0) << ran.err;
      EXPECT_TRUE(contents(file) == bytes) << contents(folder_ / "s.orv");
    }
  }
  std::vector<std::string> forgotten;
  const std::set<std::string> all = optionsOfHelp();
  ASSERT_GT(all.size(), 80u);
  std::set_symmetric_difference(all.begin(), all.end(), walked.begin(), walked.end(),
                                std::back_inserter(forgotten));
  EXPECT_EQ(forgotten, std::vector<std::string>()) << "walked or there, and not both";
}

}  // namespace
}  // namespace orvanite::test
