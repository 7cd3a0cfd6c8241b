// SPDX-License-Identifier: BSD-3-Clause
//
// Settings: what is accepted, what is refused and how it is said, and that every parameter of the
// table reaches an engine.
#include "keyer/Settings.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <tuple>

#include "base/Error.h"
#include "keyer/Preset.h"

namespace orvanite {
namespace {

struct Delete {
  void operator()(QMXOrvaniteTable* engine) const { orvanite_delete(engine); }
};
using Engine = std::unique_ptr<QMXOrvaniteTable, Delete>;

constexpr Inputs everything{true, true, true, true};

// A value of the parameter other than the one in force.
void change(Settings& settings, const Parameter& parameter) {
  switch (parameter.type) {
    case ParameterType::channel:
      settings.setText(parameter.name, "R");
      break;
    case ParameterType::choice:
      settings.setNumber(parameter.name, 1);
      break;
    case ParameterType::toggle:
      settings.setText(parameter.name, "off");
      break;
    default:
      settings.setNumber(parameter.name, 0.3);
      break;
  }
}

TEST(Settings, EveryParameterReachesTheEngineAndAnUnchangedOneCausesNoWork) {
  for (const Parameter& parameter : parameters()) {
    // Channels say which samples a matte is read from; the engine never hears of them.
    if (parameter.type == ParameterType::channel) continue;
    // What comes before and after the engine is for others.
    if (parameter.meaning.ofWholeFrames()) continue;
    Settings settings;
    // The flat colour matters in one output alone.
    if (parameter.name == "backgroundColour") settings.setText("output", "compOnColour");
    Engine engine(orvanite_new());
    settings.applyTo(engine.get(), Depth::shorts, everything);
    int changes = 0;
    orvanite_installCallback(
        engine.get(), [](void* count) { ++*static_cast<int*>(count); }, &changes);
    settings.applyTo(engine.get(), Depth::shorts, everything);
    EXPECT_EQ(changes, 0) << parameter.name;
    change(settings, parameter);
    settings.applyTo(engine.get(), Depth::shorts, everything);
    EXPECT_GE(changes, 1) << parameter.name;
    orvanite_installCallback(engine.get(), nullptr, nullptr);
  }
}

// The defaults that the node's script function declares, by plug.
TEST(Settings, DefaultsAreTheScriptFunctionsOwn) {
  const std::map<std::string_view, float> declared = {
      {"rScreen", 0.0f},         {"gScreen", 0.0f},          {"bScreen", 0.9f},
      {"screenRange", 0.0f},     {"rFgBias", 0.9f},          {"gFgBias", 0.9f},
      {"bFgBias", 0.9f},         {"shadowBalance", 0.9f},    {"midtoneBalance", 0.9f},
      {"shadowGain", 0.0f},      {"highlightBalance", 0.9f}, {"midtoneGain", 0.0f},
      {"highlightGain", 0.0f},   {"midTonesAt", 0.5f},       {"rReplace", 0.5f},
      {"gReplace", 0.5f},        {"bReplace", 0.5f},         {"rExposure", 1.0f},
      {"gExposure", 1.0f},       {"bExposure", 1.0f},        {"rGamma", 1.0f},
      {"gGamma", 1.0f},          {"bGamma", 1.0f},           {"saturation", 1.0f},
      {"useHoldOutMatte", 1.0f}, {"useGarbageMatte", 1.0f}};
  const Settings settings;
  std::size_t seen = 0;
  for (const Parameter& parameter : parameters()) {
    for (int channel = 0; channel < 3; ++channel) {
      const auto found = declared.find(parameter.plugs[static_cast<std::size_t>(channel)]);
      if (found == declared.end()) continue;
      ++seen;
      EXPECT_EQ(settings.number(parameter.name, channel), found->second) << found->first;
    }
  }
  EXPECT_EQ(seen, declared.size());
  EXPECT_EQ(settings.text("output"), "composite");
  EXPECT_EQ(settings.text("colourspace"), "linear");
  EXPECT_EQ(settings.text("holdOutChannel"), "A");
}

TEST(Settings, BalancesFollowTheScreenUntilOneIsGiven) {
  Settings settings;
  settings.setText("screen", "0.1,0.8,0.2");
  EXPECT_EQ(settings.number("shadowBalance"), 0.5f);
  settings.setText("midtoneBalance", "0.7");
  settings.setText("screen", "0.1,0.2,0.8");
  EXPECT_EQ(settings.number("shadowBalance"), 0.9f);
  EXPECT_EQ(settings.number("midtoneBalance"), 0.7f);
  settings.reset("midtoneBalance");
  EXPECT_EQ(settings.number("midtoneBalance"), 0.9f);
}

TEST(Settings, TextGivesTheSameValueBack) {
  const std::pair<const char*, const char*> cases[] = {
      {"screen", "0.1,0.8,0.25"}, {"screen", "0.5"},       {"shadowGain", "-0.25"},
      {"output", "status"},       {"useReference", "off"}, {"holdOutChannel", "mask.Z"},
      {"bgOffset", "0,-0.125,0"}, {"exposure", "1000"},    {"fgBias", "0.001"}};
  for (const auto& [name, text] : cases) {
    Settings settings;
    settings.setText(name, text);
    EXPECT_EQ(settings.text(name), text) << name;
    EXPECT_TRUE(settings.given(name));
  }
}

TEST(Settings, NumbersAreKeptToFourDecimals) {
  Settings settings;
  settings.setText("screen", "+0.123449, 0.99996 ,1e-1");
  EXPECT_EQ(settings.text("screen"), "0.1234,1,0.1");
}

TEST(Settings, NumbersMoveByCurvesAndStandStillAtAFrame) {
  Settings settings;
  // As it is given, and as it is told.
  const std::pair<const char*, const char*> texts[] = {
      {"linear(t,1@0,5@.2)", "linear(time, 1@0, 5@0.2)"},
      {" smooth ( time , -2.5 @ 0.12345 , 3@1 ) ", "smooth(time, -2.5@0.1235, 3@1)"},
      {"linear(time, 4@0.5)", "linear(time, 4@0.5)"}};
  for (const auto& [given, told] : texts) {
    settings.setText("screenRange", given);
    EXPECT_EQ(settings.text("screenRange"), told);
    EXPECT_TRUE(settings.moves("screenRange") && settings.moves());
  }
  settings.setText("screenRange", "linear(time, 1@0, 5@0.2)");
  settings.setText("screen", "0.1,linear(time, 1@0.8, 3@0.2),smooth(t, 1@0.2, 2@0.2, 3@0.8)");
  EXPECT_EQ(settings.number("screenRange"), 0.0f);  // the first key's
  const std::tuple<int, float, float, float> frames[] = {
      {0, 0.0f, 0.8f, 0.2f},
      {2, 0.05f, 0.5f, 0.2f},  // a quarter of the way, a half, a key
      {3, 0.1f, 0.2f, 0.8f},
      {9, 0.2f, 0.2f, 0.8f}};
  for (const auto& [frame, range, green, blue] : frames) {
    const Settings still = settings.at(frame);
    EXPECT_FALSE(still.moves());
    EXPECT_EQ(still.number("screenRange"), range) << frame;
    EXPECT_EQ(still.number("screen", 0), 0.1f);
    EXPECT_EQ(still.number("screen", 1), green) << frame;
    EXPECT_EQ(still.number("screen", 2), blue) << frame;
    // The balance goes with the screen of the frame.
    EXPECT_EQ(still.number("midtoneBalance"), blue > green ? 0.9f : 0.5f) << frame;
    EXPECT_NO_THROW(still.expectStill());
  }
  EXPECT_THROW(settings.expectStill(), Error);
  const Settings again = settingsFromPreset(presetText(settings), "preset");
  EXPECT_EQ(again.text("screen"), settings.text("screen"));
  EXPECT_EQ(presetText(again), presetText(settings));
  settings.setNumber("screenRange", 0.3);
  EXPECT_FALSE(settings.moves("screenRange"));
}

// A smooth curve through 0, 0 and 3 dips below 0 between the first two.
TEST(Settings, NumbersOfTheFinishStayInTheirRangeBetweenKeys) {
  Settings settings;
  settings.setText("soften", "smooth(time, 1@0, 2@0, 9@3)");
  for (double frame = 1; frame <= 9; frame += 0.25) {
    EXPECT_GE(settings.at(frame).number("soften"), 0) << frame;
  }
  EXPECT_GT(settings.at(5).number("soften"), 0);
}

TEST(Settings, RefusesWhatIsNoValueAndSaysWhatWasExpected) {
  struct Case {
    const char* name;
    const char* text;
    const char* message;
  };
  const Case cases[] = {
      {"screenRange", "wide", "screenRange: expected a number from 0 to 1, found 'wide'"},
      {"screenRange", "1.5", "screenRange: expected a number from 0 to 1, found '1.5'"},
      {"screenRange", "0.5x", "screenRange: expected a number from 0 to 1, found '0.5x'"},
      {"screenRange", "", "screenRange: expected a number from 0 to 1, found ''"},
      {"shadowGain", "nan", "shadowGain: expected a number from -1 to 1, found 'nan'"},
      {"shadowGain", "-inf", "shadowGain: expected a number from -1 to 1, found '-inf'"},
      {"shadowGain", "+-0.5", "shadowGain: expected a number from -1 to 1, found '+-0.5'"},
      {"shadowGain", "0.1,0.1,0.1",
       "shadowGain: expected a number from -1 to 1, found '0.1,0.1,0.1'"},
      {"screen", "0,1", "screen: expected one number or R,G,B, each from 0 to 64, found '0,1'"},
      {"screen", "0,1,0,1",
       "screen: expected one number or R,G,B, each from 0 to 64, found '0,1,0,1'"},
      {"screen", "0,1,", "screen: expected one number or R,G,B, each from 0 to 64, found '0,1,'"},
      {"screen", "0,-0.1,0",
       "screen: expected one number or R,G,B, each from 0 to 64, found '0,-0.1,0'"},
      {"screen", "0,1e400,0",
       "screen: expected one number or R,G,B, each from 0 to 64, found '0,1e400,0'"},
      {"colourspace", "Log", "colourspace: expected linear, log or video, found 'Log'"},
      {"useReference", "2", "useReference: expected on or off, found '2'"},
      {"holdOutChannel", "",
       "holdOutChannel: expected a channel's name, such as R, G, B or A, found ''"},
      {"screnRange", "0", "screnRange: no parameter has this name; did you mean 'screenRange'?"},
      {"zzz", "0", "zzz: no parameter has this name"},
  };
  for (const Case& wrong : cases) {
    Settings settings;
    try {
      settings.setText(wrong.name, wrong.text);
      ADD_FAILURE() << wrong.name << " took '" << wrong.text << "'";
    } catch (const Error& error) {
      EXPECT_STREQ(error.what(), wrong.message);
      EXPECT_EQ(error.fault(), Fault::wrongUse);
    }
    EXPECT_EQ(settings, Settings()) << wrong.name << " changed for '" << wrong.text << "'";
  }
  EXPECT_THROW(Settings().setNumber("output", 7), Error);
  EXPECT_THROW(Settings().setNumber("output", 0.5), Error);
}

TEST(Settings, SeesScreensThatTheEngineRefusesAndNoOthers) {
  struct Case {
    const char *screen, *balance;
    int result;  // of the engine's table build
  };
  const Case cases[] = {{"0", "0.5", 2},         {"0.5", "0.5", 2},   {"0,0.9,0.9", "1", 2},
                        {"0,0.9,0.9", "0.5", 0}, {"0,0.9,0", "1", 0}, {"0.2,0.2,0.21", "0.9", 0}};
  for (const Case& screen : cases) {
    Settings settings;
    settings.setText("screen", screen.screen);
    settings.setText("midtoneBalance", screen.balance);
    EXPECT_EQ(settings.screenProblem().empty(), screen.result == 0) << screen.screen;
    for (int depth : {1, 2, 4}) {
      Engine engine(orvanite_new());
      settings.applyTo(engine.get(), Depth{depth}, {});
      EXPECT_EQ(orvanite_makeLuts(engine.get()), screen.result)
          << screen.screen << " depth " << depth;
    }
  }
}

}  // namespace
}  // namespace orvanite
