// SPDX-License-Identifier: BSD-3-Clause
//
// Hosts that go wrong, lack things or ask for nonsense, and what the user hears of it.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>

#include "tests/Sanitized.h"
#include "tests/plugins/OfxScene.h"

namespace ofxTest {

TEST(OfxErrors, ReachTheUserAndLeaveTheOutputAlone) {
  struct Row {
    const char* what;
    std::function<void(Loaded&, std::mt19937&)> spoil;
    ofx::Status status;
    const char* says;
  };
  const ofx::RectI frame{0, 0, 5, 5};
  const Row rows[] = {
      {"a matte without alpha",
       [&](Loaded& l, std::mt19937& r) {
         connect(*l.effect, "HoldOutMatte", randomImage(r, {frame, 3, 1}));
         l.effect->params.at("holdOutChannel").value = {3};
       },
       ofx::failed, "HoldOutMatte: the picture has no alpha"},
      {"a matte of another depth",
       [&](Loaded& l, std::mt19937& r) {
         connect(*l.effect, "GarbageMatte", randomImage(r, {frame, 4, 2}));
       },
       ofx::failed, "GarbageMatte: expected the output's depth"},
      {"a parameter that is no number",
       [&](Loaded& l, std::mt19937&) { l.effect->params.at("screenRange").value = {std::nan("")}; },
       ofx::failed, "screenRange"},
      {"rows too short",
       [&](Loaded& l, std::mt19937& r) {
         auto image = randomImage(r, {frame, 4, 1});
         image->props.set("OfxImagePropRowBytes", 19);
         connect(*l.effect, "Source", image);
       },
       ofx::failed, "fewer bytes a row"},
      {"no pixels",
       [&](Loaded& l, std::mt19937& r) {
         auto image = randomImage(r, {frame, 4, 1});
         image->props.set<void*>("OfxImagePropData", nullptr);
         connect(*l.effect, "Source", image);
       },
       ofx::failed, "no pixels"},
      {"an alpha plate",
       [&](Loaded& l, std::mt19937& r) {
         connect(*l.effect, "Source", randomImage(r, {frame, 1, 1}));
       },
       ofx::badImageFormat, nullptr},
      {"an output without an image",
       [&](Loaded& l, std::mt19937&) { l.effect->clips.at("Output").image = nullptr; }, ofx::failed,
       nullptr},
  };
  for (const int version : {2, 1, 0}) {
    for (const Row& row : rows) {
      SCOPED_TRACE(row.what);
      Manners manners;
      manners.messageSuite = version > 0;
      manners.messageVersion = version;
      Loaded loaded(manners);
      std::mt19937 random(4);
      auto dst = randomImage(random, {frame, 4, 1});
      const HostImage before = *dst;
      connect(*loaded.effect, "Source", randomImage(random, {frame, 4, 1}));
      connect(*loaded.effect, "Output", dst);
      row.spoil(loaded, random);
      loaded.create();
      EXPECT_EQ(loaded.host.render(*loaded.effect, frame), row.status);
      EXPECT_TRUE(dst->guardsHold({0, 0, 0, 0}, before));
      if (row.says && version > 0) {
        ASSERT_EQ(loaded.effect->notes.size(), 1U);
        EXPECT_NE(loaded.effect->notes[0].find(row.says), std::string::npos)
            << loaded.effect->notes[0];
      } else {
        EXPECT_TRUE(loaded.effect->notes.empty());
      }
    }
  }
}

TEST(OfxErrors, SayWhichTargetTheMachineDoesNotHave) {
  setenv("ORVANITE_TARGET", "abacus", 1);
  {
    Loaded loaded;
    std::mt19937 random(4);
    auto dst = randomImage(random, {{0, 0, 5, 5}, 4, 1});
    const HostImage before = *dst;
    connect(*loaded.effect, "Source", randomImage(random, {{0, 0, 5, 5}, 4, 1}));
    connect(*loaded.effect, "Output", dst);
    loaded.create();
    EXPECT_EQ(loaded.host.render(*loaded.effect, {0, 0, 5, 5}), ofx::failed);
    EXPECT_TRUE(dst->guardsHold({0, 0, 0, 0}, before));
    ASSERT_EQ(loaded.effect->notes.size(), 1U);
    EXPECT_NE(loaded.effect->notes[0].find("abacus"), std::string::npos) << loaded.effect->notes[0];
  }
  unsetenv("ORVANITE_TARGET");
}

TEST(OfxHosts, ThatLackSuitesAreRefusedAtLoad) {
  for (int missing = 0; missing < 3; ++missing) {
    Manners manners;
    (missing == 0   ? manners.propertySuite
     : missing == 1 ? manners.effectSuite
                    : manners.parameterSuite) = false;
    OfxHost host(manners);
    EXPECT_EQ(host.load(), ofx::missingHostFeature);
    EffectState effect;
    EXPECT_EQ(host.call("OfxActionDescribe", &effect), ofx::failed);
    EXPECT_EQ(host.call("OfxActionCreateInstance", &effect), ofx::failed);
  }
}

TEST(OfxHosts, ThatLackAKindOfParameterKeyWithItsDefault) {
  for (const char* type : {"OfxParamTypeDouble3D", "OfxParamTypePushButton", "OfxParamTypeGroup",
                           "OfxParamTypePage", "OfxParamTypeString", "OfxParamTypeBoolean"}) {
    SCOPED_TRACE(type);
    Manners manners;
    manners.lacksParamType = type;
    Loaded loaded(manners);
    std::mt19937 random(8);
    const ofx::RectI frame{0, 0, 7, 5};
    Pictures in;
    in.source = randomImage(random, {frame, 4, 2});
    auto dst = std::make_shared<HostImage>(Layout{frame, 4, 2});
    connect(*loaded.effect, "Source", in.source);
    connect(*loaded.effect, "Output", dst);
    loaded.create();
    ASSERT_EQ(loaded.host.render(*loaded.effect, frame), ofx::ok);
    EXPECT_EQ(loaded.host.call("OfxActionSyncPrivateData", loaded.effect.get()), ofx::ok);
    const auto wanted = flatKey(orvanite::Settings(), in, frame, 2);
    for (int y = 0; y < 5; ++y) {
      ASSERT_EQ(std::memcmp(dst->pixel(0, y), wanted->pixel(0, y), 7 * 8), 0) << "line " << y;
    }
  }
}

TEST(OfxHosts, MayAskForNonsenseWithoutHarm) {
  Loaded loaded;
  OfxHost& host = loaded.host;
  EffectState& effect = *loaded.effect;
  EXPECT_EQ(host.call(nullptr, nullptr), ofx::failed);
  EXPECT_EQ(host.call("OfxActionWeNeverHeardOf", &effect), ofx::replyDefault);
  EXPECT_EQ(host.call("OfxActionLoad", nullptr), ofx::ok);  // twice
  const char* const instanceActions[] = {"OfxImageEffectActionRender",
                                         "OfxImageEffectActionIsIdentity",
                                         "OfxActionDestroyInstance",
                                         "OfxImageEffectActionGetClipPreferences",
                                         "OfxImageEffectActionGetRegionOfDefinition",
                                         "OfxImageEffectActionGetRegionsOfInterest",
                                         "OfxActionInstanceChanged",
                                         "OfxActionPurgeCaches",
                                         "OfxActionSyncPrivateData",
                                         "OfxImageEffectActionBeginSequenceRender",
                                         "OfxImageEffectActionEndSequenceRender"};
  for (const char* action : instanceActions) {
    EXPECT_EQ(host.call(action, nullptr), ofx::badHandle) << action;
    EXPECT_EQ(host.call(action, &effect), ofx::badHandle) << action << " before create";
  }
  for (const char* action :
       {"OfxActionDescribe", "OfxImageEffectActionDescribeInContext", "OfxActionCreateInstance"}) {
    EXPECT_EQ(host.call(action, nullptr), ofx::badHandle) << action;
  }
  // Describe again, in both contexts, and in one that is not ours.
  EXPECT_EQ(host.call("OfxActionDescribe", loaded.descriptor.get()), ofx::ok);
  Props in;
  for (const char* context : {filter, general, filter}) {
    in.set("OfxImageEffectPropContext", std::string(context));
    EXPECT_EQ(host.call("OfxImageEffectActionDescribeInContext", loaded.descriptor.get(), &in),
              ofx::ok);
  }
  in.set("OfxImageEffectPropContext", std::string("OfxImageEffectContextRetimer"));
  EXPECT_EQ(host.call("OfxImageEffectActionDescribeInContext", loaded.descriptor.get(), &in),
            ofx::unsupported);

  // An effect without clips is no instance of ours; one created twice is one.
  EffectState stranger;
  EXPECT_EQ(host.create(stranger), ofx::failed);
  EXPECT_EQ(host.create(effect), ofx::ok);
  EXPECT_EQ(host.create(effect), ofx::ok);
  EXPECT_EQ(host.call("OfxImageEffectActionRender", &effect), ofx::failed);  // no arguments at all
  Props nothing;
  EXPECT_EQ(host.call("OfxImageEffectActionIsIdentity", &effect, nullptr, &nothing),
            ofx::replyDefault);
  EXPECT_EQ(host.call("OfxActionInstanceChanged", &effect), ofx::ok);
  EXPECT_EQ(host.changed(effect, "noSuchParameter"), ofx::ok);
  EXPECT_EQ(host.changed(effect, "sampleScreen"), ofx::ok);  // no plate
  EXPECT_EQ(host.destroy(effect), ofx::ok);
  EXPECT_EQ(host.destroy(effect), ofx::badHandle);

  host.manners.forgetInstanceData = true;
  EXPECT_EQ(host.create(effect), ofx::failed);
}

TEST(OfxHosts, MayLoadAndUnloadAHundredTimes) {
  for (int i = 0; i < 100; ++i) {
    OfxHost host;
    ASSERT_EQ(host.load(), ofx::ok);
    auto descriptor = host.describe(general);
    auto effect = host.instantiate(*descriptor, general);
    std::mt19937 random(1);
    auto dst = std::make_shared<HostImage>(Layout{{0, 0, 4, 4}, 4, 1});
    connect(*effect, "Source", randomImage(random, {{0, 0, 4, 4}, 4, 1}));
    connect(*effect, "Output", dst);
    ASSERT_EQ(host.create(*effect), ofx::ok);
    ASSERT_EQ(host.render(*effect, {0, 0, 4, 4}), ofx::ok);
    ASSERT_EQ(host.destroy(*effect), ofx::ok);
    host.unload();
#ifndef ORVANITE_SANITIZED
    ASSERT_TRUE(host.unloaded()) << "something keeps the binary in the process";
#endif
  }
}

}  // namespace ofxTest
