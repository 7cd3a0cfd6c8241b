// SPDX-License-Identifier: BSD-3-Clause
//
// The language's document says what the program does: its reference is what the program prints, and
// its examples render, in whatever order, as do the scripts that they are saved as.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

#include "tests/apps/Images.h"
#include "tests/apps/Program.h"

namespace orvanite::test {
namespace {

namespace fs = std::filesystem;

const fs::path source(ORVANITE_SOURCE);

TEST(ScriptReference, IsWhatTheDocumentHolds) {
  const Outcome printed = orvanite({"run", "--functions"});
  ASSERT_EQ(printed.code, 0) << printed.err;
  const std::string document = contents(source / "docs/script.md");
  const std::string block = "<!-- functions -->\n```\n" + printed.out + "```\n<!-- end -->\n";
  EXPECT_NE(document.find(block), std::string::npos)
      << "docs/script.md holds another reference than this:\n"
      << block;
}

TEST(ScriptReference, SaysSomethingOfEveryArgument) {
  const Outcome printed = orvanite({"run", "--functions"});
  std::istringstream lines(printed.out);
  std::string argument, line;
  int arguments = 0;
  while (std::getline(lines, line)) {
    // The help stands from the 39th column on, on the argument's line or on the next.
    if (!argument.empty()) {
      EXPECT_TRUE(line.starts_with(std::string(38, ' '))) << argument;
    }
    argument.clear();
    for (const char* const type : {"image", "text", "number", "whole"}) {
      if (!line.starts_with("    " + (std::string(type) + std::string(7, ' ')).substr(0, 7)))
        continue;
      ++arguments;
      if (line.size() < 39) argument = line;
    }
  }
  EXPECT_GE(arguments, 7 + 2 + 3 + 37);  // of Constant, FileIn, FileOut and Orvanite
  const Outcome one = orvanite({"run", "--functions", "clamp"});
  EXPECT_EQ(one.out, "clamp(x, low, high)\n    x, but no less than low and no more than high.\n");
  const Outcome none = orvanite({"run", "--functions", "clmp"});
  EXPECT_EQ(none.code, 2);
  EXPECT_NE(none.err.find("expected one of Constant, FileIn, FileOut, Orvanite, "),
            std::string::npos)
      << none.err;
}

std::string samplesOf(const std::string& path) {
  const Image image = read(path);
  return {reinterpret_cast<const char*>(image.samples.data()),
          image.samples.size() * sizeof image.samples[0]};
}

// The files of a folder by name, without those that were there before.
std::map<std::string, std::string> made(const Folder& folder, const std::vector<std::string>& old) {
  std::map<std::string, std::string> files;
  for (const std::string& name : folder.names()) {
    if (std::find(old.begin(), old.end(), name) == old.end()) {
      // OpenEXR files hold the time at which they were written.
      files[name] = name.ends_with(".exr") ? samplesOf(folder / name) : contents(folder / name);
      fs::remove(folder / name);
    }
  }
  return files;
}

TEST(ScriptExamples, RenderTheSameInEveryOrderAndAsSaved) {
  std::vector<fs::path> examples;
  for (const auto& entry : fs::directory_iterator(source / "examples/scripts")) {
    examples.push_back(entry.path());
  }
  std::sort(examples.begin(), examples.end());
  ASSERT_EQ(examples.size(), 10u);
  std::map<std::string, std::string> all;
  for (const fs::path& example : examples) {
    const std::string name = example.filename().string();
    SCOPED_TRACE(name);
    const Folder folder;
    unsigned seed = 1;
    for (const char* const file : {"plate.png", "background.png", "matte.png", "shot.1001.png",
                                   "shot.1002.png", "shot.1003.png"}) {
      write(randomImage(31, 17, 3, OIIO::TypeDesc::UINT8, seed++), folder / file);
    }
    fs::copy_file(example, folder / name);
    const std::string path = folder / name;
    const bool isShot = contents(example).find("####") != std::string::npos;
    const std::vector<std::string> inputs = folder.names();
    const Outcome once = orvanite({"run", path, "-q", "--frames", isShot ? "1001-1003" : "1"});
    ASSERT_EQ(once.code, 0) << once.err;
    EXPECT_EQ(once.err, "");
    const auto expected = made(folder, inputs);
    ASSERT_GE(expected.size(), isShot ? 3u : 1u);

    std::ofstream(folder / "saved.orv") << orvanite({"run", path, "--print"}).out;
    const std::string saved = folder / "saved.orv";
    EXPECT_EQ(orvanite({"run", saved, "-q", "--frames", isShot ? "1003,1001,1002" : "1"}).code, 0);
    fs::remove(saved);
    EXPECT_TRUE(made(folder, inputs) == expected);
    if (isShot) {
      EXPECT_EQ(orvanite({"run", path, "-q", "--frames", "1003"}).code, 0);
      EXPECT_EQ(orvanite({"run", path, "-q", "--frames", "1001,1002", "--threads", "3"}).code, 0);
      EXPECT_TRUE(made(folder, inputs) == expected);
    }
    for (const auto& [file, bytes] : expected) {
      EXPECT_TRUE(all.emplace(bytes, file).second) << file << " is no picture of its own";
    }
  }
}

}  // namespace
}  // namespace orvanite::test
