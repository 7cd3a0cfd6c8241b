// SPDX-License-Identifier: BSD-3-Clause
//
// The node as users get it: loaded from its library, called from scripts of every version.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>

#include "platform/NRiClassName.h"
#include "platform/NRiCmplr.h"
#include "platform/NRiFile.h"
#include "platform/NRiNode.h"
#include "platform/NRiPlugins.h"
#include "platform/nodes/NRiNodes.h"

namespace {

namespace fs = std::filesystem;

class Plugin : public testing::Test {
 protected:
  void SetUp() override {
    NRiNodes::declare();
    const NRiPlugins::Report report = NRiPlugins::load(ORVANITE_PLUGIN);
    ASSERT_TRUE(report.loaded) << report.message;
  }
  void TearDown() override { NRiNode::getRoot()->deleteChildren(); }

  static std::string run(const std::string& text, NRiValue& value) {
    NRiCmplr compiler;
    compiler.execute(NRiScope::getGlobal(), NRiType::null, value, NRiName(std::string_view(text)),
                     NRiName("s"));
    return compiler.errors().empty() ? "" : compiler.errors().front();
  }

  // A node made by one statement.
  static const NRiNode& made(const std::string& call) {
    NRiValue value;
    EXPECT_EQ(run("a = Constant(8, 8, 1, 0.1);\nb = Constant(8, 8, 1, 0.2);\nc = Constant();\n"
                  "k = " +
                      call + ";",
                  value),
              "");
    return *value.image->owner();
  }

  static float number(const NRiNode& node, const char* plug) {
    return node.getPlug(NRiName(plug))->asFloat();
  }
  static std::string text(const NRiNode& node, const char* plug) {
    return std::string(node.getPlug(NRiName(plug))->asString().view());
  }
  static std::string input(const NRiNode& node, int i) {
    const NRiIPlug* const source = node.getInput(i)->imageSource();
    return source ? std::string(source->owner()->name().view()) : "none";
  }
  static std::string saved() {
    NRiFile file;
    NRiNode::getRoot()->serialize(file, 0);
    return file.text();
  }
};

TEST_F(Plugin, CurrentDefaultsFollowTheScreenColour) {
  const NRiNode& node = made("Orvanite(a, b)");
  EXPECT_EQ(text(node, "version"), "1.4");
  EXPECT_EQ(input(node, 0) + input(node, 1) + input(node, 2), "abnone");
  for (const char* const band : {"shadowBalance", "midtoneBalance", "highlightBalance"}) {
    EXPECT_EQ(number(node, band), 0.9f) << band;
  }
  EXPECT_EQ(number(node, "rFgBias"), 0.9f);
  EXPECT_EQ(number(node, "bgColor"), 0.0f);
  node.getPlug(NRiName("gScreen"))->set(0.95f);
  EXPECT_EQ(number(node, "midtoneBalance"), 0.5f);
  node.getPlug(NRiName("rExposure"))->set(1.5f);
  EXPECT_EQ(number(node, "gExposure") + number(node, "bExposure"), 3.0f);
}

TEST_F(Plugin, Version13TakesTheBackgroundFirstAndItsMidtonesFollowTheShadows) {
  const NRiNode& node =
      made("Orvanite_1v3(a, b, c, \"status\", 0, 0, 0.8, 0.1, 0.5, 0.5, 0.5, 0.7)");
  EXPECT_EQ(input(node, 0) + input(node, 1) + input(node, 2) + input(node, 3), "bacnone");
  EXPECT_EQ(text(node, "version"), "");
  EXPECT_EQ(text(node, "output"), "status");
  EXPECT_EQ(number(node, "midtoneBalance"), 0.7f);
  node.getPlug(NRiName("shadowBalance"))->set(0.25f);
  EXPECT_EQ(number(node, "midtoneBalance"), 0.25f);
  node.getPlug(NRiName("midtoneBalance"))->set(0.6f);
  node.getPlug(NRiName("shadowBalance"))->set(0.1f);
  EXPECT_EQ(number(node, "midtoneBalance"), 0.6f);
  EXPECT_EQ(number(node, "highlightBalance"), 0.1f);
  node.getPlug(NRiName("shadowGain"))->set(0.2f);
  EXPECT_EQ(number(node, "highlightGain"), 0.2f);
  EXPECT_EQ(number(node, "useGarbageMatte"), 1.0f);
  EXPECT_EQ(text(node, "garbageChannel"), "A");
}

// Every argument has a value of its own, so that a swapped pair shows.
TEST_F(Plugin, EveryArgumentOfEveryVersionReachesItsPlug) {
  const char* const floats[] = {"rScreen",        "gScreen",          "bScreen",    "screenRange",
                                "rFgBias",        "gFgBias",          "bFgBias",    "shadowBalance",
                                "midtoneBalance", "highlightBalance", "shadowGain", "midtoneGain",
                                "highlightGain",  "midTonesAt",       "rReplace",   "gReplace",
                                "bReplace",       "rExposure",        "gExposure",  "bExposure",
                                "rGamma",         "gGamma",           "bGamma",     "saturation"};
  std::string numbers;
  for (int i = 0; i < 24; ++i) numbers += std::to_string(i + 1) + "/64, ";
  const std::pair<const char*, std::string> calls[] = {
      {"1.4",
       "Orvanite(a, b, c, a, \"1.4\", \"o\", " + numbers + "\"log\", 3, \"R\", 4, \"G\", 5, 6)"},
      {"1.4", "Orvanite_1v4(a, b, c, a, \"o\", " + numbers + "\"log\", 3, \"R\", 4, \"G\", 5, 6)"},
      {"", "Orvanite_1v3(b, a, c, \"o\", " + numbers + "\"log\", 3, \"R\", 5, 6)"}};
  for (const auto& [version, call] : calls) {
    SCOPED_TRACE(call.substr(0, 13));
    const NRiNode& node = made(call);
    const bool old = *version == '\0';
    EXPECT_EQ(input(node, 0).substr(0, 1) + input(node, 1).substr(0, 1), "ab");
    EXPECT_EQ(text(node, "version"), version);
    EXPECT_EQ(text(node, "output") + text(node, "colourspace"), "olog");
    for (int i = 0; i < 24; ++i) {
      EXPECT_EQ(number(node, floats[i]), static_cast<float>(i + 1) / 64.0f) << floats[i];
    }
    EXPECT_EQ(number(node, "useHoldOutMatte"), 3);
    EXPECT_EQ(number(node, "useGarbageMatte"), old ? 1 : 4);
    EXPECT_EQ(text(node, "holdOutChannel") + text(node, "garbageChannel"), old ? "RA" : "RG");
    EXPECT_EQ(number(node, "bgColor") * 10 + number(node, "clipMode"), 56);
    NRiNode::getRoot()->deleteChildren();
  }
}

TEST_F(Plugin, ScriptsSaveLoadAndSaveTheSameText) {
  for (const char* const call :
       {"Orvanite()", "Orvanite(a, b, 0, c, \"1.4\", \"status\", 0.1, 0.2)",
        "Orvanite_1v4(a, 0, c)", "Orvanite_1v3(a, b, c)",
        "Orvanite_1v3(a, b, c, \"composite\", 0, 0, time / 100, 0, a.red)"}) {
    SCOPED_TRACE(call);
    made(call);
    const std::string once = saved();
    NRiNode::getRoot()->deleteChildren();
    NRiValue value;
    ASSERT_EQ(run(once, value), "") << once;
    EXPECT_EQ(saved(), once);
    NRiNode::getRoot()->deleteChildren();
  }
}

TEST_F(Plugin, AnErrorInAnArgumentPointsAtItAndLeavesNoNode) {
  NRiValue value;
  EXPECT_EQ(run("k = Orvanite(0, 0, 0, 0, \"1.4\", \"composite\",\n  nowhere);", value),
            "s:2:3: 'nowhere' in 'k.rScreen' refers to nothing: expected the name of a plug");
  EXPECT_TRUE(NRiNode::getRoot()->children().empty());
  EXPECT_EQ(run("k = Orvanite_1v3(0, 0);", value),
            "s:1:22: expected an image for argument 3 of 'Orvanite_1v3', found ')'");
}

TEST_F(Plugin, LoadsAndUnloadsAHundredTimes) {
  EXPECT_THROW((made("Orvanite()"), NRiPlugins::unload(ORVANITE_PLUGIN)), NRiError);
  NRiNode::getRoot()->deleteChildren();
  NRiPlugins::unload(ORVANITE_PLUGIN);
  EXPECT_EQ(NRiScope::getGlobal()->function(NRiName("Orvanite")), nullptr);
  EXPECT_EQ(dlopen(ORVANITE_PLUGIN, RTLD_NOW | RTLD_NOLOAD), nullptr) << "it stayed in memory";
  const std::size_t names = NRiName::interned();
  for (int i = 0; i < 100; ++i) {
    const NRiPlugins::Report report = NRiPlugins::load(ORVANITE_PLUGIN);
    ASSERT_TRUE(report.loaded) << report.message;
    ASSERT_NE(report.message.find("1.4"), std::string::npos);
    EXPECT_EQ(number(made("Orvanite(a, b)"), "shadowBalance"), 0.9f);
    NRiNode::getRoot()->deleteChildren();
    NRiPlugins::unload(ORVANITE_PLUGIN);
    ASSERT_EQ(NRiName::interned(), names) << "after " << i;
  }
  EXPECT_TRUE(NRiClassName::baseOf(NRiName("Orvanite")).empty());
}

TEST_F(Plugin, WhatIsNoPluginSaysWhy) {
  EXPECT_NE(NRiPlugins::load("/nowhere/None.so").message.find("No such file"), std::string::npos);
  const fs::path folder = fs::temp_directory_path() / ("plugins_" + std::to_string(::getpid()));
  fs::create_directories(folder);
  std::ofstream(folder / "Text.so") << "no library";
  const NRiPlugins::Report text = NRiPlugins::load((folder / "Text.so").string());
  EXPECT_FALSE(text.loaded);
  EXPECT_FALSE(text.message.empty());
  const NRiPlugins::Report library = NRiPlugins::load("libm.so.6");
  EXPECT_NE(library.message.find("is no plug-in"), std::string::npos) << library.message;

  // The first folder of the search path wins, and a broken file there is reported.
  NRiPlugins::unload(ORVANITE_PLUGIN);
  setenv("ORVANITE_PLUGIN_PATH",
         (folder.string() + "::" + fs::path(ORVANITE_PLUGIN).parent_path().string()).c_str(), 1);
  std::string seen;
  for (const NRiPlugins::Report& report : NRiPlugins::loadAll()) {
    seen += fs::path(report.path).filename().string() + (report.loaded ? "+" : "-");
  }
  unsetenv("ORVANITE_PLUGIN_PATH");
  EXPECT_EQ(seen.substr(0, 18), "Text.so-Orvanite.s");
  EXPECT_EQ(std::count(seen.begin(), seen.end(), '+'), 1);
  fs::remove_all(folder);
}

}  // namespace
