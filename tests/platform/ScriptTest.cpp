// SPDX-License-Identifier: BSD-3-Clause
//
// The script compiler, on the files in cases/. NAME.orv is compiled; NAME.expected holds the
// script as it is saved again, or the errors, one a line.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/NRiCmplr.h"
#include "platform/NRiFile.h"
#include "platform/NRiNode.h"
#include "platform/nodes/NRiNodes.h"

namespace {

namespace fs = std::filesystem;

std::string contents(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

void clear() {
  NRiNode* const root = NRiNode::getRoot();
  root->deleteChildren();
  for (NRiPlug* const plug : root->getPublicPlugs()) {
    const auto name = plug->name().view();
    if (name == "time") continue;
    if (name == "defaultBytes") {
      plug->set(1);
    } else {
      root->deletePlug(plug);
    }
  }
}

std::string saved() {
  NRiFile file;
  NRiNode::getRoot()->serialize(file, 0);
  return file.text();
}

std::string errorsOf(const std::string& text, const std::string& name) {
  NRiCmplr compiler;
  NRiValue value;
  compiler.execute(NRiScope::getGlobal(), NRiType::null, value, NRiName(std::string_view(text)),
                   NRiName(std::string_view(name)));
  std::string lines;
  for (const std::string& line : compiler.errors()) lines += line + "\n";
  return lines;
}

class Script : public testing::Test {
 protected:
  void SetUp() override {
    NRiNodes::declare();
    clear();
  }
  void TearDown() override { clear(); }
};

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
