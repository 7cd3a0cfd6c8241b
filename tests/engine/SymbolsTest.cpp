// SPDX-License-Identifier: BSD-3-Clause
//
// What the shared library shows to the world: the 29 functions, under its soname, and no more.
// Read with nm and readelf from the library as it was linked.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <sstream>
#include <string>

namespace {

std::string outputOf(const std::string& command) {
  std::string text;
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return text;
  char buffer[4096];
  for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) text.append(buffer, n);
  EXPECT_EQ(pclose(pipe), 0) << command;
  return text;
}

}  // namespace

TEST(SharedLibrary, ExportsTheFlatInterfaceAndNothingElse) {
  const std::set<std::string> expected = {
      "orvanite_new",           "orvanite_delete",         "orvanite_setColourspace",
      "orvanite_setScreen",     "orvanite_setNeutral",     "orvanite_setReplace",
      "orvanite_setBackground", "orvanite_setBalance",     "orvanite_setGain",
      "orvanite_setMp",         "orvanite_setScreenRange", "orvanite_setExposure",
      "orvanite_setGamma",      "orvanite_setOffset",      "orvanite_setSaturation",
      "orvanite_setView",       "orvanite_getView",        "orvanite_setFgMax",
      "orvanite_setBgMax",      "orvanite_setGMatteMax",   "orvanite_setHMatteMax",
      "orvanite_setDstMax",     "orvanite_setRefMax",      "orvanite_useHold",
      "orvanite_useGarbage",    "orvanite_useRef",         "orvanite_makeLuts",
      "orvanite_render",        "orvanite_installCallback"};
  ASSERT_EQ(expected.size(), 29u);
  // nm -P: name, type, value and size, one symbol a line.
  std::istringstream lines(outputOf("nm -D -P --defined-only '" ORVANITE_SHARED_LIBRARY "'"));
  std::set<std::string> exported;
  for (std::string line; std::getline(lines, line);)
    exported.insert(line.substr(0, line.find(' ')));
  EXPECT_EQ(exported, expected);
}

TEST(SharedLibrary, CarriesASoname) {
  const std::string dynamic = outputOf("readelf -d -W '" ORVANITE_SHARED_LIBRARY "'");
  EXPECT_NE(dynamic.find("Library soname: [liborvanite.so.1]"), std::string::npos) << dynamic;
}
