// SPDX-License-Identifier: BSD-3-Clause
//
// What the node decides: defaults, dependencies, counts of evaluations, identity, requests.
#include <gtest/gtest.h>

#include <vector>

#include "platform/NRiClassName.h"
#include "platform/NRiFile.h"
#include "platform/NRiGlobals.h"
#include "tests/host/Probe.h"

namespace {

int changes = 0;
void count(void*) { ++changes; }

class Node : public testing::Test {
 protected:
  Node() {
    node.getInput(0)->connect(fg.getOutput());
    node.getInput(1)->connect(bg.getOutput());
    out->setRequest(15);
    changes = 0;
    orvanite_installCallback(node.engine(), count, nullptr);
  }
  ~Node() override { orvanite_installCallback(node.engine(), nullptr, nullptr); }

  Source fg{40, 30, 1, 15, 1};
  Source bg{80, 60, 2, 14, 2};
  Source matte{40, 30, 1, 15, 3};
  Probe node;
  NRiIPlug* out = node.getOutput();
};

TEST_F(Node, ComesWithItsPlugsInOrderAndTheirDefaults) {
  struct Plug {
    const char* name;
    NRiId type;
    const char* value;
  };
  const Plug expected[] = {{"version", nriString, ""},
                           {"output", nriString, "composite"},
                           {"rScreen", nriFloat, "0"},
                           {"gScreen", nriFloat, "0"},
                           {"bScreen", nriFloat, "0.9"},
                           {"screenRange", nriFloat, "0"},
                           {"rFgBias", nriFloat, "0.5"},
                           {"gFgBias", nriFloat, "0.5"},
                           {"bFgBias", nriFloat, "0.5"},
                           {"shadowBalance", nriFloat, "0.5"},
                           {"midtoneBalance", nriFloat, "0.5"},
                           {"highlightBalance", nriFloat, "0.5"},
                           {"shadowGain", nriFloat, "0"},
                           {"midtoneGain", nriFloat, "0"},
                           {"highlightGain", nriFloat, "0"},
                           {"midTonesAt", nriFloat, "0.5"},
                           {"rReplace", nriFloat, "0.5"},
                           {"gReplace", nriFloat, "0.5"},
                           {"bReplace", nriFloat, "0.5"},
                           {"rExposure", nriFloat, "1"},
                           {"gExposure", nriFloat, "1"},
                           {"bExposure", nriFloat, "1"},
                           {"rGamma", nriFloat, "1"},
                           {"gGamma", nriFloat, "1"},
                           {"bGamma", nriFloat, "1"},
                           {"saturation", nriFloat, "1"},
                           {"colourspace", nriString, "linear"},
                           {"useHoldOutMatte", nriInt, "1"},
                           {"holdOutChannel", nriString, "A"},
                           {"useGarbageMatte", nriInt, "1"},
                           {"garbageChannel", nriString, "A"},
                           {"bgColor", nriInt, "0"},
                           {"clipMode", nriInt, "0"}};
  const Probe fresh;
  const std::vector<NRiPlug*> plugs = fresh.getPublicPlugs();
  ASSERT_EQ(plugs.size(), 34u);
  EXPECT_EQ(plugs[0]->name().view(), "Orvanite");
  for (std::size_t i = 0; i < std::size(expected); ++i) {
    EXPECT_EQ(plugs[i + 1]->name().view(), expected[i].name);
    EXPECT_EQ(plugs[i + 1]->type(), expected[i].type) << expected[i].name;
    EXPECT_EQ(plugs[i + 1]->asString().view(), expected[i].value) << expected[i].name;
  }
  EXPECT_EQ(fresh.plug("bScreen")->asFloat(), 0.9f);
  for (int i = 0; i < 4; ++i) {
    const char* const names[] = {"Fg", "Bg", "HoldOutMatte", "GarbageMatte"};
    EXPECT_EQ(fresh.getInput(i)->name().view(), names[i]);
  }
  EXPECT_EQ(NRiClassName::baseOf(NRiName("Orvanite")).view(), "NRiNadic");
  const std::unique_ptr<NRiNode> made(fresh.create());
  EXPECT_EQ(made->getClassName(), NRxOrvanite::thisClassName);
}

TEST_F(Node, EachPlugInvalidatesWhatDependsOnIt) {
  for (NRiPlug* const plug : node.getPublicPlugs()) {
    const std::string name(plug->name().view());
    for (NRiPlug* const part :
         {out->image(), out->channels(), out->width(), out->height(), out->bPixel()}) {
      part->asVoid();
    }
    if (plug->type() == nriString) {
      plug->set(name == "output" ? "status" : "other");
    } else if (plug->type() == nriInt) {
      plug->set(plug->asInt() + 1);
    } else {
      plug->set(plug->asFloat() + 0.125f);
    }
    const bool inert = name == "Orvanite" || name == "version";
    const bool size = name == "clipMode";
    EXPECT_EQ(out->image()->isUpToDate(), inert) << name;
    EXPECT_EQ(out->width()->isUpToDate(), !size) << name;
    EXPECT_EQ(out->height()->isUpToDate(), !size) << name;
    EXPECT_EQ(out->channels()->isUpToDate(), inert) << name;
    EXPECT_EQ(out->bPixel()->isUpToDate(), inert) << name;
  }
}

TEST_F(Node, UnchangedParametersReachTheEngineAsNoChange) {
  out->image()->asVoid();
  EXPECT_GT(changes, 0);
  changes = 0;
  const long before = out->image()->evaluations();
  out->image()->asVoid();
  EXPECT_EQ(out->image()->evaluations(), before);
  out->image()->invalidate();
  out->image()->asVoid();
  EXPECT_EQ(out->image()->evaluations(), before + 1);
  node.plug("bScreen")->set(0.90001f);  // the same to four decimals
  node.plug("version")->set("9.9");
  out->image()->asVoid();
  EXPECT_EQ(out->image()->evaluations(), before + 2);
  EXPECT_EQ(changes, 0);
  node.plug("bScreen")->set(0.8f);
  out->image()->asVoid();
  EXPECT_EQ(changes, 1);
}

TEST_F(Node, SizeFollowsTheClipModeAndDepthTheDeepestOfBothPictures) {
  EXPECT_EQ(out->width()->asInt(), 40);
  EXPECT_EQ(out->bytes()->asInt(), 2);
  for (const auto& [clip, wide] : {std::pair{-1, 40}, {7, 80}, {0, 40}, {1, 80}}) {
    node.plug("clipMode")->set(clip);
    EXPECT_EQ(out->width()->asInt(), wide) << clip;
    EXPECT_EQ(out->height()->asInt(), wide * 3 / 4) << clip;
  }
  node.getInput(1)->connect(nullptr);
  EXPECT_EQ(out->bytes()->asInt(), 1);
  node.getInput(0)->connect(nullptr);
  EXPECT_EQ(out->bytes()->asInt(), 1);  // no script is open
  NRiPlug* const depth = NRiNode::getRoot()->getPlug(NRiName("defaultBytes"));
  depth->set(4);
  NRiGlobals::setCurrentScript(NRiNode::getRoot());
  out->bytes()->invalidate();
  EXPECT_EQ(out->bytes()->asInt(), 4);
  NRiGlobals::setCurrentScript(nullptr);
  depth->set(1);
  EXPECT_EQ(out->channels()->asInt(), 0);
}

TEST_F(Node, AsksItsInputsForWhatItUses) {
  node.getInput(2)->connect(matte.getOutput());
  const auto requests = [&] {
    return std::vector<int>{
        node.getInput(0)->requested()->asInt(), node.getInput(1)->requested()->asInt(),
        node.getInput(2)->requested()->asInt(), node.getInput(3)->requested()->asInt()};
  };
  out->setRequest(8);
  EXPECT_EQ(requests(), (std::vector<int>{14, 14, 1, 0}));  // a composite needs all of Bg
  node.plug("holdOutChannel")->set("green");
  EXPECT_EQ(requests(), (std::vector<int>{14, 14, 14, 0}));
  node.plug("output")->set("status");
  EXPECT_EQ(requests(), (std::vector<int>{14, 8, 14, 0}));
  EXPECT_EQ(out->channels()->asInt(), 15);
  node.plug("useHoldOutMatte")->set(0);
  EXPECT_EQ(requests(), (std::vector<int>{14, 8, 0, 0}));
  out->setRequest(0);
  EXPECT_EQ(requests(), (std::vector<int>{0, 0, 0, 0}));
  node.plug("output")->set("unpremultiplied");
  EXPECT_EQ(out->channels()->asInt(), 15);
}

TEST_F(Node, IdentityHoldsEveryValueInItsOrder) {
  node.getInput(2)->connect(matte.getOutput());
  const char* const floats[] = {"rScreen",        "gScreen",          "bScreen",    "screenRange",
                                "rFgBias",        "gFgBias",          "bFgBias",    "shadowBalance",
                                "midtoneBalance", "highlightBalance", "midTonesAt", "shadowGain",
                                "midtoneGain",    "highlightGain",    "rReplace",   "gReplace",
                                "bReplace",       "rExposure",        "gExposure",  "bExposure",
                                "rGamma",         "gGamma",           "bGamma",     "saturation"};
  std::string numbers;
  for (int i = 0; i < 24; ++i) {
    const float value = static_cast<float>(i + 1) / 32.0f;  // at most five decimals
    node.plug(floats[i])->set(value);
    char text[32];
    std::snprintf(text, sizeof text, "%g,", std::round(static_cast<double>(value) * 1e4) / 1e4);
    numbers += text;
  }
  node.plug("holdOutChannel")->set("blue");
  node.plug("clipMode")->set(3);
  node.plug("bgColor")->set(2);
  EXPECT_EQ(std::string(out->image()->asString().view()),
            "Orvanite(source1,source2,source3,0,1,composite," + numbers + "linear,1,B,0,A,1)");
  node.plug("useHoldOutMatte")->set(0);
  EXPECT_EQ(std::string(out->image()->asString().view()),
            "Orvanite(source1,source2,0,0,1,composite," + numbers + "linear,0,A,0,A,1)");
}

TEST_F(Node, WhatFollowsAnIdentityWithANullComparesAllOfIt) {
  Probe second;
  second.getInput(0)->connect(out);
  node.getInput(2)->connect(matte.getOutput());
  node.plug("holdOutChannel")->set("");
  const NRiName before = second.getOutput()->image()->asString();
  EXPECT_NE(node.getOutput()->image()->asString().view().find('\0'), std::string_view::npos);
  node.plug("bgColor")->set(1);  // the last value, behind the null
  EXPECT_FALSE(second.getOutput()->image()->asString() == before);
  node.plug("bgColor")->set(0);
  EXPECT_EQ(second.getOutput()->image()->asString(), before);
}

TEST_F(Node, TheDomainIsThatOfWhatShows) {
  Source plate{40, 30, 1, 14, 4, {5, 5, 20, 10}};
  Source wide{40, 30, 1, 15, 5, {-10, -10, 90, 90}};
  node.getInput(0)->connect(plate.getOutput());
  const NRiRect own{5, 5, 20, 10};
  const NRiRect all{-10, -10, 90, 90};
  struct Case {
    int input;
    const char *output, *use;
    int on;
    NRiRect expected;
  };
  const Case cases[] = {
      {1, "composite", "bgColor", 0, all},           {1, "compOnBlack", "bgColor", 0, own},
      {1, "unpremultiplied", "bgColor", 0, own},     {1, "status", "bgColor", 0, own},
      {2, "compOnBlack", "useHoldOutMatte", 1, all}, {2, "compOnBlack", "useHoldOutMatte", 0, own},
      {3, "compOnBlack", "useGarbageMatte", 1, all}, {3, "compOnBlack", "useGarbageMatte", 0, own}};
  for (const Case& one : cases) {
    for (int i = 1; i < 4; ++i) node.getInput(i)->connect(nullptr);
    node.getInput(one.input)->connect(wide.getOutput());
    node.plug("output")->set(one.output);
    node.plug(one.use)->set(one.on);
    EXPECT_EQ(out->getDod(), one.expected) << one.input << one.output << one.on;
    EXPECT_EQ(node.getInput(one.input)->dod()->isUpToDate(), one.expected == all);
    node.renderWhole({0, 0, 40, 30});
    EXPECT_EQ(node.getInput(one.input)->dod()->isUpToDate(), one.expected == all || one.input == 1);
  }
}

TEST_F(Node, BackgroundPixelIsTheForegroundsOrKeyed) {
  bg.setBackground({0.5f, 0.5f, 0.25f, 0.502f, 0});
  fg.setBackground({0.25f, 0.9f, 0.1f, 0.1f, 0});
  NRiBPixel pixel;
  out->getBPixel(pixel);
  EXPECT_EQ(pixel, (NRiBPixel{0.25f, 0.9f, 0.1f, 0.1f, 0}));

  node.plug("bgColor")->set(1);
  node.getInput(1)->connect(nullptr);
  node.plug("output")->set("compOnReplace");
  node.getInput(1)->connect(bg.getOutput());
  for (const int depth : {1, 2, 4}) {
    fg.getOutput()->bytes()->set(depth);
    bg.getOutput()->bytes()->set(depth);
    out->getBPixel(pixel);
    // The same through the engine by hand; 0.502 * 255 = 128.01 and 0.5 * 255 = 127.5, to even
    // 128; 0.9f * 65535 = 58981.5, to even 58982.
    float expected[4];
    Otile tile{};
    if (depth == 1) {
      std::uint8_t f[4] = {64, 230, 26, 26}, b[4] = {128, 128, 64, 128};
      tile.fg = {f + 3, f + 2, f + 1, f, 0, 0};
      tile.bg = tile.dst = {b + 3, b + 2, b + 1, b, 0, 0};
      f[1] = 230;  // 229.5, to even
      ASSERT_EQ(orvanite_render(node.engine(), 1, 1, 1, &tile), 0);
      for (int i = 0; i < 4; ++i) expected[i] = static_cast<float>(b[i]) / 255.0f;
    } else if (depth == 2) {
      // 16383.75, 58981.5, 6553.5 twice; 32767.5, 32767.5, 16383.75, 32898.57
      std::uint16_t f[4] = {16384, 58982, 6554, 6554}, b[4] = {32768, 32768, 16384, 32899};
      tile.fg = {f + 3, f + 2, f + 1, f, 0, 0};
      tile.bg = tile.dst = {b + 3, b + 2, b + 1, b, 0, 0};
      ASSERT_EQ(orvanite_render(node.engine(), 2, 1, 1, &tile), 0);
      for (int i = 0; i < 4; ++i) expected[i] = static_cast<float>(b[i]) / 65535.0f;
    } else {
      float f[4] = {0.25f, 0.9f, 0.1f, 0.1f}, b[4] = {0.5f, 0.5f, 0.25f, 0.502f};
      tile.fg = {f + 3, f + 2, f + 1, f, 0, 0};
      tile.bg = tile.dst = {b + 3, b + 2, b + 1, b, 0, 0};
      ASSERT_EQ(orvanite_render(node.engine(), 4, 1, 1, &tile), 0);
      for (int i = 0; i < 4; ++i) expected[i] = b[i];
    }
    for (int i = 0; i < 4; ++i) EXPECT_EQ(pixel.component(i), expected[i]) << depth << " " << i;
  }
}

TEST_F(Node, SavesItsVersionAndNeverItsBanner) {
  node.plug("version")->set("1.4");
  node.setName(NRiName("k"));
  fg.setName(NRiName("f"));
  bg.setName(NRiName("b"));
  NRiFile file;
  EXPECT_EQ(node.serialize(file, 0), 0);
  EXPECT_EQ(
      file.text(),
      "k = Orvanite(f, b, 0, 0, \"1.4\", \"composite\", 0, 0, 0.9, 0, 0.5, 0.5, 0.5, 0.5, "
      "0.5, 0.5, 0, 0, 0,\n"
      "    0.5, 0.5, 0.5, 0.5, 1, 1, 1, 1, 1, 1, 1, \"linear\", 1, \"A\", 1, \"A\", 0, 0);\n");
  EXPECT_TRUE(node.plug("version")->hasFlag(4));
  EXPECT_FALSE(node.plug("Orvanite")->hasFlag(4));
}

}  // namespace
