// SPDX-License-Identifier: BSD-3-Clause
//
// The script compiler, on the files in cases/. NAME.orv is compiled; NAME.expected holds the
// script as it is saved again, or the errors, one a line.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "base/TextFile.h"
#include "tests/platform/Scripts.h"

namespace {

namespace fs = std::filesystem;

std::string contents(const fs::path& path) {
  return orvanite::readTextFile(path.string(), "there is no such case");
}

TEST_F(Script, FilesSaveOrFailAsExpectedAndSavingAgainChangesNothing) {
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(ORVANITE_CASES)) {
    if (entry.path().extension() == ".orv") files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  ASSERT_GE(files.size(), 8u);
  for (const fs::path& file : files) {
    SCOPED_TRACE(file.filename().string());
    const std::string expected = contents(fs::path(file).replace_extension(".expected"));
    clear();
    const std::string errors = errorsOf(contents(file), file.filename().string());
    if (!errors.empty()) {
      EXPECT_EQ(errors, expected);
      EXPECT_TRUE(NRiNode::getRoot()->children().empty()) << "something half-made stays";
      continue;
    }
    const std::string once = saved();
    EXPECT_EQ(once, expected);
    clear();
    EXPECT_EQ(errorsOf(once, "saved"), "");
    EXPECT_EQ(saved(), once);
  }
}

TEST_F(Script, BoundsAreErrorsAtTheirPlace) {
  std::string deepCall;
  for (int i = 0; i < 80; ++i) deepCall += "FileOut(";
  EXPECT_EQ(errorsOf(deepCall, "s"),
            "s:1:513: calls that are nested too deeply: expected at most 64 levels\n");
  std::string deepValue = "x = ";
  for (int i = 0; i < 5000; ++i) deepValue += "-";
  EXPECT_NE(errorsOf(deepValue + "1;", "s").find("nested too deeply"), std::string::npos);
  EXPECT_NE(errorsOf(std::string(2000000, ' '), "s").find("too long"), std::string::npos);
  EXPECT_NE(errorsOf("x = " + std::string(100, '1') + ";", "s").find("s:1:5: '1111"),
            std::string::npos);
  std::string many;
  for (int i = 0; i < 100; ++i) many += "x = ;\n";
  const std::string lines = errorsOf(many, "s");
  EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 21);
  std::string wide = "extern image Wide(";
  for (int i = 0; i < 41; ++i) wide += std::string(i ? "," : "") + "int a" + std::to_string(i);
  EXPECT_NE(errorsOf(wide + ");", "s").find("at most 40 arguments"), std::string::npos);
}

TEST_F(Script, AByteOrderMarkIsNoPartOfTheFirstLine) {
  EXPECT_EQ(errorsOf("\xEF\xBB\xBFx = ;", "s"), "s:1:5: expected an expression, found ';'\n");
  EXPECT_EQ(errorsOf("x = 2;\xEF\xBB\xBF", "s"), "s:1:7: '\\xef\\xbb\\xbf' means nothing here\n");
}

TEST_F(Script, ACommentWithANullIsOneLikeOthers) {
  EXPECT_EQ(errorsOf(std::string("x = 1 /* \0 */ + 1;", 18), "s"), "");
  EXPECT_EQ(saved(), "float x = 1 + 1;\n");
}

TEST_F(Script, ADeclaredFunctionHidesOneOfExpressions) {
  EXPECT_EQ(errorsOf("x = abs(-2);", "s"), "");
  EXPECT_EQ(saved(), "float x = abs(-2);\n");
  EXPECT_EQ(errorsOf("extern image abs(float x = 0);\ny = abs(1);", "s"),
            "s:2:5: 'abs' is declared, but no plug-in provides it\n");
}

TEST_F(Script, IncludesCountFromTheFileAndNeverGoRound) {
  const fs::path folder =
      fs::temp_directory_path() / ("orvanite_include_" + std::to_string(getpid()));
  fs::create_directories(folder / "looks");
  const auto write = [&](const char* name, const char* text) {
    std::ofstream(folder / name) << text;
  };
  write("looks/warm.orv", "include \"base.orv\";\nwarm = base * 2;");
  write("looks/base.orv", "base = 0.25; k = Constant(1);");
  write("looks/wrong.orv", "warm = 1;\n\nx = ;");
  write("looks/round.orv", "include \"../looks/round.orv\";");
  const std::string main = (folder / "main.orv").string();
  EXPECT_EQ(errorsOf("include \"looks/warm.orv\"; k.red = warm; include = 3;", main), "");
  EXPECT_EQ(saved(),
            "float base = 0.25;\nfloat warm = base * 2;\nfloat include = 3;\n"
            "k = Constant(1, 576, 1, warm, red, red, 1);\n");
  clear();
  const std::string looks = (folder / "looks").string();
  EXPECT_EQ(errorsOf("include \"looks/wrong.orv\"; y = ;", main),
            looks + "/wrong.orv:3:5: expected an expression, found ';'\n" + main +
                ":1:32: expected an expression, found ';'\n");
  EXPECT_EQ(
      errorsOf("include \"looks/round.orv\";", main),
      looks + "/round.orv:1:9: '\"../looks/round.orv\"' includes itself: expected no circle\n");
  EXPECT_EQ(errorsOf("\n include \"none.orv\";", main),
            main + ":2:10: '\"none.orv\"' cannot be read\n");
  EXPECT_EQ(errorsOf("include \"/dev/zero\";", main),
            main + ":1:9: '\"/dev/zero\"' cannot be read\n");
  fs::remove_all(folder);
}

TEST_F(Script, ALongChainOfVariablesIsAnErrorWhenItIsRead) {
  std::string chain = "x0 = 1;\n";
  for (int i = 1; i < 900; ++i) {
    chain += "x" + std::to_string(i) + " = x" + std::to_string(i - 1) + ";\n";
  }
  EXPECT_EQ(errorsOf(chain, "s"), "");
  NRiNode::getRoot()->getPlug(NRiName("x0"))->set(2.0f);
  EXPECT_EQ(NRiNode::getRoot()->getPlug(NRiName("x899"))->asFloat(), 2.0f);
}

TEST_F(Script, ADeclaredFunctionThatNobodyProvidesCannotBeCalled) {
  EXPECT_EQ(errorsOf("extern image Nobody(image = 0);\nx = Nobody();\n", "s"),
            "s:2:5: 'Nobody' is declared, but no plug-in provides it\n");
}

}  // namespace
