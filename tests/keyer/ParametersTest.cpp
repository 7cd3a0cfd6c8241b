// SPDX-License-Identifier: BSD-3-Clause
//
// The parameter table: what it promises to whoever makes panels and options from it.
#include "keyer/Parameters.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>

namespace orvanite {
namespace {

bool isHeading(const std::string& words, bool partToo) {
  return std::any_of(parameters().begin(), parameters().end(), [&](const Parameter& parameter) {
    const std::string_view heading = parameter.group.heading;
    return partToo ? heading.find(words) != std::string_view::npos : heading == words;
  });
}

// Whether a line compares a group with a heading or a part of one, or quotes a heading that could
// hardly stand for anything else.
bool readsAHeading(const std::string& line) {
  static const std::regex compares(
      R"(group(\.heading|\.name)?\s*[!=]==?|[!=]==?\s*[\w.]*group|\.test\([^)]*group)"
      R"(|(group|heading)\.(find|starts_with|ends_with|includes|startsWith|match)\()"
      R"(|groups\.(get|has)\()");
  static const std::regex quoted(R"(["'`/|]([A-Za-z ]{3,})(?=["'`/|]))");
  const bool comparing = std::regex_search(line, compares);
  for (std::sregex_iterator word(line.begin(), line.end(), quoted), end; word != end; ++word) {
    const std::string words = (*word)[1];
    const bool rare = words.find(' ') != std::string::npos;
    if (comparing ? isHeading(words, true) : rare && isHeading(words, false)) return true;
  }
  return false;
}

// A heading is words for a reader. Code that compares one breaks when it is renamed.
TEST(Parameters, NoFrontEndReadsAMeaningOutOfAHeading) {
  for (const char* line : {R"(if (p.group == "Mattes"))", R"(p.group.heading != "Screen")",
                           R"(group.find("grade"))", "open: !/grade|Mattes/.test(parameter.group)",
                           "groups.get('Screen')", R"(column({"Foreground grade", "Mattes"}))"}) {
    EXPECT_TRUE(readsAHeading(line)) << line;
  }
  const std::filesystem::path root(ORVANITE_SOURCE_DIR);
  int read = 0;
  for (const char* folder : {"keyer", "shot", "host", "apps", "plugins", "bindings"}) {
    if (!std::filesystem::exists(root / folder)) continue;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root / folder)) {
      const std::string extension = entry.path().extension().string();
      if (extension != ".cpp" && extension != ".h" && extension != ".js") continue;
      if (entry.path() == root / "keyer/Parameters.cpp") continue;
      ++read;
      std::ifstream file(entry.path());
      int number = 0;
      for (std::string line; std::getline(file, line);) {
        ++number;
        EXPECT_FALSE(readsAHeading(line)) << entry.path() << ':' << number << ": " << line;
      }
    }
  }
  EXPECT_GT(read, 100);
}

// Panels open a group when they meet its first parameter.
TEST(Parameters, ThoseOfAGroupStandTogetherAndMayNotBeMistakenForAnother) {
  std::set<std::string_view> names, headings, seen;
  const Group* group = nullptr;
  for (const Parameter& parameter : parameters()) {
    EXPECT_TRUE(names.insert(parameter.name).second) << parameter.name;
    if (&parameter.group == group) continue;
    group = &parameter.group;
    EXPECT_TRUE(seen.insert(group->name).second) << group->name << " begins twice";
    EXPECT_TRUE(headings.insert(group->heading).second) << group->heading;
  }
}

TEST(Parameters, NearestFindsSlipsAndNotOtherWords) {
  const std::string_view words[] = {"screen", "screenRange", "gamma"};
  EXPECT_EQ(nearest("scren", words), "screen");
  EXPECT_EQ(nearest("ScreenRnage", words), "screenRange");
  EXPECT_EQ(nearest("matte", words), "");
}

}  // namespace
}  // namespace orvanite
