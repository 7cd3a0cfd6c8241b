// SPDX-License-Identifier: BSD-3-Clause
//
// What the OpenFX plug-in tells its host: clips, parameters, preferences, regions; and what it
// makes of settings and of the screen's button.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>

#include "tests/plugins/OfxScene.h"

namespace ofxTest {

TEST(OfxDescription, SaysWhatTheEffectCanDoInTheStandardsWords) {
  Loaded loaded;
  const Props& effect = loaded.descriptor->props;
  EXPECT_STREQ(loaded.host.plugin->api, "OfxImageEffectPluginAPI");
  EXPECT_EQ(loaded.host.plugin->apiVersion, 1);
  EXPECT_EQ(effect.text("OfxPropLabel"), "Orvanite");
  EXPECT_EQ(effect.text("OfxImageEffectPluginPropGrouping"), "Keyer");
  EXPECT_EQ(effect.text("OfxImageEffectPropSupportedContexts", 0), filter);
  EXPECT_EQ(effect.text("OfxImageEffectPropSupportedContexts", 1), general);
  EXPECT_EQ(effect.text("OfxImageEffectPropSupportedPixelDepths", 0), "OfxBitDepthByte");
  EXPECT_EQ(effect.text("OfxImageEffectPropSupportedPixelDepths", 1), "OfxBitDepthShort");
  EXPECT_EQ(effect.text("OfxImageEffectPropSupportedPixelDepths", 2), "OfxBitDepthFloat");
  EXPECT_EQ(effect.text("OfxImageEffectPropSupportedPixelDepths", 3), "OfxBitDepthHalf");
  EXPECT_EQ(effect.text("OfxImageEffectPluginRenderThreadSafety"), "OfxImageEffectRenderFullySafe");
  EXPECT_EQ(effect.integer("OfxImageEffectPropSupportsTiles"), 1);
  EXPECT_EQ(effect.integer("OfxImageEffectPropSupportsMultiResolution"), 1);
  EXPECT_EQ(effect.integer("OfxImageEffectPropTemporalClipAccess"), 0);

  struct Row {
    const char* clip;
    int optional, mask, components;
  };
  for (const Row& row :
       {Row{"Source", 0, 0, 2}, Row{"Output", 0, 0, 2}, Row{"Bg", 1, 0, 2},
        Row{"Reference", 1, 0, 2}, Row{"HoldOutMatte", 1, 1, 3}, Row{"GarbageMatte", 1, 1, 3}}) {
    const Props& clip = loaded.descriptor->clips.at(row.clip).props;
    EXPECT_EQ(clip.integer("OfxImageClipPropOptional"), row.optional) << row.clip;
    EXPECT_EQ(clip.integer("OfxImageClipPropIsMask"), row.mask) << row.clip;
    EXPECT_EQ(clip.count("OfxImageEffectPropSupportedComponents"),
              static_cast<std::size_t>(row.components))
        << row.clip;
    EXPECT_EQ(clip.text("OfxImageClipPropFieldExtraction"), "OfxFieldBoth") << row.clip;
    EXPECT_TRUE(clip.refused.empty()) << row.clip << ": " << clip.refused.front();
  }
  EXPECT_TRUE(effect.refused.empty()) << effect.refused.front();

  // A filter's output has the plate's channels: there must be a place for the matte.
  const auto inFilter = loaded.host.describe(filter);
  for (const char* clip : {"Source", "Output"}) {
    const Props& props = inFilter->clips.at(clip).props;
    EXPECT_EQ(props.count("OfxImageEffectPropSupportedComponents"), 1U) << clip;
    EXPECT_EQ(props.text("OfxImageEffectPropSupportedComponents"), "OfxImageComponentRGBA") << clip;
  }
}

TEST(OfxDescription, SuitsHostsThatSaveChoicesByTextAndShowTriplesAsRectangles) {
  Manners manners;
  manners.textChoices = true;
  manners.name = "MLT";
  Loaded loaded(manners, filter);
  auto& params = loaded.descriptor->params;
  for (const char* triple : {"midTonesAt", "exposure", "gamma", "offset", "bgExposure"}) {
    EXPECT_EQ(params.count(triple), 0U);
    for (const char* slider : {"R", "G", "B"}) {
      EXPECT_EQ(params.at(std::string(triple) + slider).type, "OfxParamTypeDouble");
    }
  }
  const ParamState& output = params.at("output");
  EXPECT_EQ(output.type, "OfxParamTypeStrChoice");
  EXPECT_EQ(output.props.text("OfxParamPropDefault"), "unpremultiplied");
  EXPECT_EQ(output.props.text("OfxParamPropChoiceEnum", 7), "intermediate");
  EXPECT_EQ(params.at("holdOutChannel").props.text("OfxParamPropDefault"), "automatic");
  for (const auto& [name, param] : params) {
    EXPECT_TRUE(param.props.refused.empty()) << name << ": " << param.props.refused.front();
  }
}

TEST(OfxDescription, MakesAParameterOfEveryEntryOfTheTable) {
  Loaded loaded({}, filter);
  auto& params = loaded.descriptor->params;
  const std::map<orvanite::ParameterType, std::string> types = {
      {orvanite::ParameterType::number, "OfxParamTypeDouble"},
      {orvanite::ParameterType::triple, "OfxParamTypeDouble3D"},
      {orvanite::ParameterType::colour, "OfxParamTypeRGB"},
      {orvanite::ParameterType::choice, "OfxParamTypeChoice"},
      {orvanite::ParameterType::toggle, "OfxParamTypeBoolean"},
      {orvanite::ParameterType::channel, "OfxParamTypeChoice"}};
  for (const orvanite::Parameter& parameter : orvanite::parameters()) {
    const std::string name(parameter.name);
    ASSERT_EQ(params.count(name), 1U) << name;
    const ParamState& state = params.at(name);
    EXPECT_EQ(state.type, types.at(parameter.type)) << name;
    EXPECT_EQ(state.props.text("OfxPropLabel"), parameter.label);
    EXPECT_FALSE(state.props.text("OfxParamPropHint").empty()) << name;
    const std::string group = state.props.text("OfxParamPropParent");
    ASSERT_TRUE(params.count(group)) << name << " in " << group;
    EXPECT_EQ(params.at(group).type, "OfxParamTypeGroup");
    EXPECT_EQ(params.at(group).props.text("OfxPropLabel"), parameter.group.heading);
    if (parameter.type == orvanite::ParameterType::number ||
        parameter.type == orvanite::ParameterType::triple) {
      for (std::size_t i = 0; i < (parameter.type == orvanite::ParameterType::triple ? 3U : 1U);
           ++i) {
        EXPECT_EQ(state.props.real("OfxParamPropMin", i), static_cast<double>(parameter.low));
        EXPECT_EQ(state.props.real("OfxParamPropMax", i), static_cast<double>(parameter.high));
        EXPECT_EQ(state.props.real("OfxParamPropDisplayMin", i),
                  static_cast<double>(parameter.softLow));
        EXPECT_EQ(state.props.real("OfxParamPropDisplayMax", i),
                  static_cast<double>(parameter.softHigh));
      }
    }
    const std::size_t own = name == "output" ? 1 : 0;
    EXPECT_EQ(
        state.props.count("OfxParamPropChoiceOption"),
        parameter.type == orvanite::ParameterType::channel ? 6 : parameter.choices.size() + own)
        << name;
    // Saved by what options and presets say, whatever a panel shows.
    for (std::size_t i = 0; i < parameter.choices.size(); ++i) {
      EXPECT_EQ(state.props.text("OfxParamPropChoiceEnum", i), parameter.choices[i].text);
      EXPECT_EQ(state.props.text("OfxParamPropChoiceOption", i), parameter.choices[i].label);
    }
  }
  // A clip by itself is laid over the track below by its straight alpha; a node composites.
  EXPECT_EQ(params.at("output").props.integer("OfxParamPropDefault"), 4);
  EXPECT_EQ(loaded.host.describe(general)->params.at("output").props.integer("OfxParamPropDefault"),
            0);
  for (const char* button : {"sampleScreen", "autoKey", "loadPreset", "savePreset"}) {
    EXPECT_EQ(params.at(button).type, "OfxParamTypePushButton") << button;
  }
  EXPECT_EQ(params.at("version").props.text("OfxParamPropDefault"), ORVANITE_VERSION);
  for (const auto& [name, param] : params) {
    EXPECT_TRUE(param.props.refused.empty()) << name << ": " << param.props.refused.front();
  }
  // What a page lists exists, and no group or page is on one.
  const Props& page = params.at("Controls").props;
  for (std::size_t i = 0; i < page.count("OfxParamPropPageChild"); ++i) {
    const auto child = params.find(page.text("OfxParamPropPageChild", i));
    ASSERT_NE(child, params.end());
    EXPECT_NE(child->second.type, "OfxParamTypeGroup");
  }
}

TEST(OfxPreferences, TellPremultiplicationByOutput) {
  struct Row {
    const char* output;
    bool background;
    const char* below;
    const char* expected;
    bool premultiplied = false;
  };
  const char* const pre = "OfxImageAlphaPremultiplied";
  const char* const un = "OfxImageAlphaUnPremultiplied";
  const char* const opaque = "OfxImageOpaque";
  for (const Row& row :
       {Row{"composite", false, un, pre}, Row{"composite", true, opaque, opaque},
        Row{"composite", true, pre, pre}, Row{"composite", true, un, un},
        Row{"compOnBlack", true, opaque, pre}, Row{"compOnReplace", false, un, opaque},
        Row{"compOnColour", false, un, opaque}, Row{"unpremultiplied", true, pre, un},
        Row{"status", false, un, opaque}, Row{"matte", false, un, pre},
        Row{"unpremultiplied", false, un, pre, true}, Row{"intermediate", false, un, un, true}}) {
    for (const char* context : {filter, general}) {
      Loaded loaded({}, context);
      std::mt19937 random(1);
      orvanite::Settings settings;
      Panel panel;
      panel.premultiplied = row.premultiplied;
      panel.intermediate = std::string(row.output) == "intermediate";
      if (!panel.intermediate) settings.setText("output", row.output);
      give(*loaded.effect, settings);
      give(*loaded.effect, panel);
      connect(*loaded.effect, "Source", randomImage(random, {{0, 0, 2, 2}, 4, 1}), un);
      if (row.background) {
        connect(*loaded.effect, "Bg", randomImage(random, {{0, 0, 2, 2}, 4, 1}), row.below);
      }
      loaded.create();
      Props out;
      EXPECT_EQ(loaded.host.call("OfxImageEffectActionGetClipPreferences", loaded.effect.get(),
                                 nullptr, &out),
                ofx::ok);
      EXPECT_EQ(out.text("OfxImageEffectPropPreMultiplication"), row.expected)
          << row.output << (row.background ? " over a background" : "");
      EXPECT_EQ(out.integer("OfxImageEffectFrameVarying"), 0);
      // An RGB plate gets its matte where we may say so, and stays RGB where we may not.
      EXPECT_EQ(out.count("OfxImageClipPropComponents_Output"), context == general ? 1U : 0U);
      EXPECT_TRUE(out.refused.empty());
      connect(*loaded.effect, "Source", randomImage(random, {{0, 0, 2, 2}, 3, 1}), un);
      Props rgb;
      loaded.host.call("OfxImageEffectActionGetClipPreferences", loaded.effect.get(), nullptr,
                       &rgb);
      EXPECT_EQ(rgb.text("OfxImageEffectPropPreMultiplication"),
                context == general ? row.expected : opaque);
    }
  }
}

TEST(OfxRegions, FollowTheClipModeAndAskOnlyForWhatIsUsed) {
  Loaded loaded;
  std::mt19937 random(1);
  orvanite::Settings settings;
  settings.setText("useGarbageMatte", "off");
  give(*loaded.effect, settings);
  connect(*loaded.effect, "Source", randomImage(random, {{-2, 1, 5, 9}, 4, 1}));
  connect(*loaded.effect, "Bg", randomImage(random, {{0, 0, 30, 20}, 4, 1}));
  connect(*loaded.effect, "HoldOutMatte", randomImage(random, {{0, 0, 3, 3}, 1, 1}));
  connect(*loaded.effect, "GarbageMatte", randomImage(random, {{0, 0, 3, 3}, 1, 1}));
  loaded.effect->clips.at("HoldOutMatte").region = {-9, -9, 90, 90};
  loaded.create();

  const auto region = [&] {
    Props in, out;
    in.set("OfxPropTime", 0.0);
    EXPECT_EQ(loaded.host.call("OfxImageEffectActionGetRegionOfDefinition", loaded.effect.get(),
                               &in, &out),
              ofx::ok);
    const char* name = "OfxImageEffectPropRegionOfDefinition";
    return std::vector<double>{out.real(name, 0), out.real(name, 1), out.real(name, 2),
                               out.real(name, 3)};
  };
  EXPECT_EQ(region(), (std::vector<double>{-2, 1, 5, 9}));
  loaded.effect->params.at("clipMode").value = {1};
  EXPECT_EQ(region(), (std::vector<double>{0, 0, 30, 20}));
  loaded.effect->clips.at("Bg").props.set("OfxImageClipPropConnected", 0);
  EXPECT_EQ(region(), (std::vector<double>{-2, 1, 5, 9}));  // no background: the plate's size
  loaded.effect->clips.at("Bg").props.set("OfxImageClipPropConnected", 1);

  Props in, out;
  in.set("OfxPropTime", 0.0).setDoubles("OfxImageEffectPropRegionOfInterest", {1, 2, 3, 4});
  EXPECT_EQ(
      loaded.host.call("OfxImageEffectActionGetRegionsOfInterest", loaded.effect.get(), &in, &out),
      ofx::ok);
  for (const char* used : {"Source", "Bg", "HoldOutMatte"}) {
    EXPECT_EQ(out.real(std::string("OfxImageClipPropRoI_") + used, 2), 3.0) << used;
    EXPECT_EQ(out.real(std::string("OfxImageClipPropRoI_") + used, 3), 4.0) << used;
  }
  EXPECT_EQ(out.real("OfxImageClipPropRoI_GarbageMatte", 2), 1.0);  // from 1 to 1: nothing
  // Which channel of a matte counts is decided by all of it, unless it is chosen.
  loaded.effect->params.at("holdOutChannel").value = {5};
  Props automatic;
  loaded.host.call("OfxImageEffectActionGetRegionsOfInterest", loaded.effect.get(), &in,
                   &automatic);
  EXPECT_EQ(automatic.real("OfxImageClipPropRoI_HoldOutMatte", 2), 90.0);
  EXPECT_EQ(out.count("OfxImageClipPropRoI_Reference"), 0U);
  EXPECT_TRUE(out.refused.empty());
}

TEST(OfxSettings, OfOlderVersionsLoadAndAreStampedWhenSaved) {
  Loaded loaded;
  // A project that knows neither offsets nor clean plates, saved by another version.
  loaded.effect->params.at("version").value = {std::string("1.3")};
  for (const char* later : {"offset", "bgOffset", "useReference", "clipMode"}) {
    loaded.effect->params.erase(later);
  }
  std::mt19937 random(2);
  const ofx::RectI frame{0, 0, 16, 16};
  orvanite::Settings settings = randomSettings(random);
  for (const char* later : {"offset", "bgOffset", "useReference"}) settings.reset(later);
  give(*loaded.effect, settings);
  Pictures in;
  in.source = randomImage(random, {frame, 4, 1});
  auto dst = std::make_shared<HostImage>(Layout{frame, 4, 1});
  connect(*loaded.effect, "Source", in.source);
  connect(*loaded.effect, "Output", dst);
  loaded.create();
  EXPECT_EQ(loaded.host.render(*loaded.effect, frame), ofx::ok);
  const auto wanted = flatKey(settings, in, frame, 1);
  for (int y = 0; y < 16; ++y) {
    ASSERT_EQ(std::memcmp(dst->pixel(0, y), wanted->pixel(0, y), 64), 0) << "line " << y;
  }
  EXPECT_EQ(loaded.host.call("OfxActionSyncPrivateData", loaded.effect.get()), ofx::ok);
  EXPECT_EQ(std::get<std::string>(loaded.effect->params.at("version").value[0]), ORVANITE_VERSION);
}

}  // namespace ofxTest
