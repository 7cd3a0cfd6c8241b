// SPDX-License-Identifier: BSD-3-Clause
//
// Presets of `orvanite key`: what was in force comes back, and what is no preset is refused.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "tests/apps/Images.h"
#include "tests/apps/Program.h"

namespace orvanite::test {
namespace {

TEST(Preset, SavesWhatWasInForceAndOptionsGoOverIt) {
  const Folder folder;
  writeShot(folder, "fg", 1, 1);
  const std::string fg = folder / "fg.0001.png";
  const std::string look = folder / "look.json";
  ASSERT_EQ(orvanite({"key", "-q", fg, "--screen", "0.1234,0.7,0.2", "--midtone-gain", "-0.25",
                      "--output", "unpremultiplied", "--save-preset", look, "-o", folder / "a.png"})
                .code,
            0);
  ASSERT_EQ(orvanite({"key", "-q", fg, "--preset", look, "-o", folder / "b.png"}).code, 0);
  EXPECT_EQ(read(folder / "a.png").samples, read(folder / "b.png").samples);
  ASSERT_EQ(orvanite({"key", "-q", fg, "--preset", look, "--midtone-gain", "0", "--save-preset",
                      folder / "c.json", "-o", folder / "c.png"})
                .code,
            0);
  EXPECT_NE(read(folder / "a.png").samples, read(folder / "c.png").samples);
  std::ifstream file(folder / "c.json");
  const auto saved = nlohmann::json::parse(file);
  EXPECT_EQ(saved["parameters"]["midtoneGain"], 0.0);
  EXPECT_EQ(saved["parameters"]["screen"], (std::vector<double>{0.1234, 0.7, 0.2}));
  // A balance that followed the screen is written as it was.
  EXPECT_EQ(saved["parameters"]["shadowBalance"], 0.5);

  const std::pair<const char*, const char*> wrong[] = {
      {R"({"orvanite": "preset", "version": 1, "parameters": {"scren": 1}})",
       "scren: no parameter has this name; did you mean 'screen'?"},
      {R"({"orvanite": "preset", "version": 1, "parameters": {"saturation": 9}})",
       "saturation: expected a number from 0 to 3, found '9'"},
      {R"({"orvanite": "preset", "version": 1, "parameters": {"screen": [1, 2]}})",
       "screen: expected one number or R,G,B"},
      {R"({"orvanite": "preset", "version": 1, "parameters": {"saturation": 1e999}})",
       "this is no preset"},
      {R"({"orvanite": "preset", "version": 2})",
       "expected a preset of version 1, found version 2"},
      {R"({"orvanite": "preset", "version": 1, "note": 1})",
       "there is no key \"note\" in a preset"},
      {"[1, 2]", "expected a preset, with"},
      {"{", "this is no preset"},
      {"[[[[[[[[[[[[[[[[", "this is no preset"},
      {"", "this is no preset"}};
  for (const auto& [text, message] : wrong) {
    std::ofstream(look) << text;
    const Outcome outcome = orvanite({"key", "-q", fg, "--preset", look, "-o", folder / "d.png"});
    EXPECT_EQ(outcome.code, 1) << text;
    EXPECT_NE(outcome.err.find("look.json: "), std::string::npos) << outcome.err;
    EXPECT_NE(outcome.err.find(message), std::string::npos) << outcome.err;
  }
}

}  // namespace
}  // namespace orvanite::test
