// SPDX-License-Identifier: BSD-3-Clause
//
// The OpenFX plug-in as a host meets it: the loaded binary, every action, good hosts and bad ones.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <thread>

#include "plugins/ofx/ofxApi.h"
#include "tests/plugins/FlatModel.h"
#include "tests/plugins/OfxHost.h"

namespace ofxTest {
namespace {

constexpr const char* filter = "OfxImageEffectContextFilter";
constexpr const char* general = "OfxImageEffectContextGeneral";

// Hands settings to an instance's parameters, as a host that loads a project does.
void give(EffectState& effect, const orvanite::Settings& settings) {
  using orvanite::ParameterType;
  for (const orvanite::Parameter& parameter : orvanite::parameters()) {
    const auto at = effect.params.find(std::string(parameter.name));
    if (at == effect.params.end()) continue;  // a host that never heard of it
    std::vector<Value>& value = at->second.value;
    const auto number = [&](int c) {
      return static_cast<double>(settings.number(parameter.name, c));
    };
    switch (parameter.type) {
      case ParameterType::choice:
      case ParameterType::toggle:
        value = {static_cast<int>(number(0))};
        break;
      case ParameterType::channel:
        value = {static_cast<int>(std::string("RGBA").find(settings.text(parameter.name)))};
        break;
      case ParameterType::number:
        value = {number(0)};
        break;
      default:
        value = {number(0), number(1), number(2)};
    }
  }
}

std::shared_ptr<HostImage> randomImage(std::mt19937& random, const Layout& layout) {
  auto image = std::make_shared<HostImage>(layout);
  std::uniform_real_distribution<double> wide(-0.2, 1.3);
  for (int y = layout.bounds.y1; y < layout.bounds.y2; ++y) {
    for (int x = layout.bounds.x1; x < layout.bounds.x2; ++x) {
      for (int c = 0; c < layout.channels; ++c) {
        const double value =
            layout.depth == 4 ? wide(random)
                              : static_cast<double>(random() % (layout.depth == 1 ? 256 : 65536));
        // Plain zeros and full ones are where kernels take other roads.
        const auto kind = random() % 8;
        const double full = layout.depth == 4 ? 1 : layout.depth == 1 ? 255 : 65535;
        image->setCode(x, y, c, kind == 0 ? 0 : kind == 1 ? full : value);
      }
    }
  }
  return image;
}

ofx::RectI randomRect(std::mt19937& random, int reach) {
  const auto from = [&] {
    return static_cast<int>(random() % static_cast<unsigned>(reach)) - reach / 2;
  };
  const int x = from(), y = from();
  return {x, y, x + 1 + static_cast<int>(random() % static_cast<unsigned>(reach)),
          y + 1 + static_cast<int>(random() % static_cast<unsigned>(reach))};
}

Layout randomLayout(std::mt19937& random, int channels, int depth) {
  Layout layout;
  layout.bounds = randomRect(random, 60);
  layout.channels = channels;
  layout.depth = depth;
  const int pads[] = {0, 0, 4 * depth, 1, 7};
  layout.padBytes = pads[random() % 5];
  layout.shiftBytes = random() % 6 == 0 ? 1 : 0;
  layout.upsideDown = random() % 2 == 0;
  return layout;
}

struct Loaded {
  explicit Loaded(Manners manners = {}, const char* context = general) : host(manners) {
    EXPECT_EQ(host.load(), ofx::ok);
    descriptor = host.describe(context);
    effect = host.instantiate(*descriptor, context);
  }
  ~Loaded() {
    EXPECT_TRUE(effect->lent.empty()) << "images were not released";
    if (made) {
      EXPECT_EQ(host.destroy(*effect), ofx::ok);
    }
  }
  void create() {
    ASSERT_EQ(host.create(*effect), ofx::ok);
    made = true;
  }
  OfxHost host;
  std::unique_ptr<EffectState> descriptor, effect;
  bool made = false;
};

}  // namespace

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
    ASSERT_TRUE(params.count(name)) << name;
    const ParamState& state = params.at(name);
    EXPECT_EQ(state.type, types.at(parameter.type)) << name;
    EXPECT_EQ(state.props.text("OfxPropLabel"), parameter.label);
    EXPECT_FALSE(state.props.text("OfxParamPropHint").empty()) << name;
    const std::string group = state.props.text("OfxParamPropParent");
    ASSERT_TRUE(params.count(group)) << name << " in " << group;
    EXPECT_EQ(params.at(group).type, "OfxParamTypeGroup");
    EXPECT_EQ(params.at(group).props.text("OfxPropLabel"), parameter.group);
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
    EXPECT_EQ(state.props.count("OfxParamPropChoiceOption"),
              parameter.type == orvanite::ParameterType::channel ? 4 : parameter.choices.size())
        << name;
  }
  EXPECT_EQ(params.at("sampleScreen").type, "OfxParamTypePushButton");
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

// Random settings, depths, channels, bounds, row bytes, windows, fields, threads: the plug-in's
// bytes are those of one call of the flat interface, and nothing else changes.
TEST(OfxRender, GivesTheFlatInterfacesBytesWhateverTheHostHandsOver) {
  int rendered = 0;
  std::map<std::string, int> covered;
  for (unsigned seed = 1; seed <= ORVANITE_SWEEP; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    Manners manners;
    manners.cpus = 1 + random() % 4;
    manners.fewerThreads = random() % 2;
    manners.threadSuite = random() % 5 != 0;
    manners.threadsFail = random() % 7 == 0;
    const bool inFilter = random() % 3 == 0;
    Loaded loaded(manners, inFilter ? filter : general);

    orvanite::Settings settings = randomSettings(random);
    const int depth = 1 << (random() % 3);
    const auto colourChannels = [&] { return random() % 2 == 0 ? 4 : 3; };
    const int sourceChannels = colourChannels();
    Pictures in;
    const Layout dstLayout = randomLayout(random, inFilter ? sourceChannels : 4, depth);
    // Half of the pictures cover the output, as most do; the others lie anywhere.
    const auto picture = [&](int channels) {
      Layout layout = randomLayout(random, channels, depth);
      const ofx::RectI d = dstLayout.bounds;
      if (random() % 2 == 0) layout.bounds = {d.x1 - 3, d.y1, d.x2, d.y2 + 2};
      return randomImage(random, layout);
    };
    const auto maybe = [&](int oneIn, int channels) {
      return random() % static_cast<unsigned>(oneIn) != 0 ? nullptr : picture(channels);
    };
    const auto matteFor = [&](const char* channel) {
      const int counts[] = {1, 3, 4};
      const int channels = counts[random() % 3];
      if (channels == 3 && settings.text(channel) == "A") settings.setText(channel, "G");
      return maybe(2, channels);
    };
    in.source = picture(sourceChannels);
    in.bg = maybe(2, colourChannels());
    in.hold = matteFor("holdOutChannel");
    in.garbage = matteFor("garbageChannel");
    if (depth != 4) in.reference = maybe(3, colourChannels());

    auto dst = randomImage(random, dstLayout);
    const HostImage before = *dst;
    // Hosts may ask beyond the image they hand over.
    const ofx::RectI b = dstLayout.bounds;
    ofx::RectI asked = randomRect(random, 60);
    if (random() % 10 != 0) {
      const auto upTo = [&](int n) {
        return static_cast<int>(random() % static_cast<unsigned>(n));
      };
      asked.x1 = b.x1 - 5 + upTo(b.x2 - b.x1);
      asked.y1 = b.y1 - 5 + upTo(b.y2 - b.y1);
      asked.x2 = asked.x1 + 5 + upTo(60);
      asked.y2 = asked.y1 + 5 + upTo(60);
    }
    const ofx::RectI window = {std::max(asked.x1, b.x1), std::max(asked.y1, b.y1),
                               std::min(asked.x2, b.x2), std::min(asked.y2, b.y2)};

    give(*loaded.effect, settings);
    connect(*loaded.effect, "Source", in.source);
    connect(*loaded.effect, "Output", dst);
    if (in.bg) connect(*loaded.effect, "Bg", in.bg);
    if (in.hold) connect(*loaded.effect, "HoldOutMatte", in.hold);
    if (in.garbage) connect(*loaded.effect, "GarbageMatte", in.garbage);
    if (in.reference) connect(*loaded.effect, "Reference", in.reference);
    loaded.create();

    const char* const fields[] = {"OfxFieldNone", "OfxFieldBoth", "OfxFieldLower", "OfxFieldUpper"};
    const auto field = random() % 4;
    ASSERT_EQ(loaded.host.render(*loaded.effect, asked, 3, fields[field]), ofx::ok);
    if (window.x1 >= window.x2 || window.y1 >= window.y2) {
      ASSERT_TRUE(dst->guardsHold({0, 0, 0, 0}, before));
      continue;
    }
    const auto expected = flatKey(settings, in, window, depth);
    ASSERT_TRUE(expected);
    ASSERT_TRUE(dst->guardsHold(window, before)) << "written outside the window";
    HostImage old = before;
    for (int y = window.y1; y < window.y2; ++y) {
      const bool ours = field < 2 || (y & 1) == (field == 3 ? 1 : 0);
      for (int x = window.x1; x < window.x2; ++x) {
        const auto n = static_cast<std::size_t>(dstLayout.channels * depth);
        const std::byte* wanted = ours ? expected->pixel(x, y) : old.pixel(x, y);
        ASSERT_EQ(std::memcmp(dst->pixel(x, y), wanted, n), 0)
            << "pixel " << x << ',' << y << " output " << settings.choice("output") << " depth "
            << depth << " is " << dst->code(x, y, 0) << " wanted " << expected->code(x, y, 0);
      }
    }
    ++rendered;
    ++covered["depth " + std::to_string(depth)];
    ++covered[std::string(settings.choice("output"))];
    if (in.reference) ++covered["reference"];
  }
  // The sweep is no good if chance left most of it out.
  EXPECT_GT(rendered, ORVANITE_SWEEP / 2);
  EXPECT_EQ(covered.size(), 3U + 7U + 1U);
}

// Four threads render different frames of one instance whose parameters move: each frame has its
// own settings' bytes. What makes that safe stands in plugins/EnginePool.h.
TEST(OfxRender, ServesConcurrentRendersOfOneInstanceWhileParametersMove) {
  Manners manners;
  manners.threadsFail = true;  // the host's own threads are the ones that call
  Loaded loaded(manners);
  std::mt19937 random(7);
  constexpr int frames = 6;
  std::vector<orvanite::Settings> settings;
  for (int i = 0; i < frames; ++i) {
    settings.push_back(randomSettings(random));
    settings.back().setText("output", "compOnReplace");
    settings.back().setText("colourspace", "linear");
  }
  give(*loaded.effect, settings[0]);
  const auto curve = [&](const char* name) {
    loaded.effect->params.at(name).curve = [&settings, name](double time) {
      const auto& now = settings[static_cast<std::size_t>(time)];
      const auto at = [&](int c) { return static_cast<double>(now.number(name, c)); };
      return orvanite::findParameter(name)->type == orvanite::ParameterType::number
                 ? std::vector<Value>{at(0)}
                 : std::vector<Value>{at(0), at(1), at(2)};
    };
  };
  for (const orvanite::Parameter& parameter : orvanite::parameters()) {
    if (orvanite::valuesOf(parameter.type) == 0 ||
        parameter.type == orvanite::ParameterType::choice ||
        parameter.type == orvanite::ParameterType::toggle) {
      continue;
    }
    curve(parameter.name.data());
  }
  const ofx::RectI frame{0, 0, 40, 40};
  Pictures in;
  in.source = randomImage(random, {frame, 4, 2});
  std::vector<std::shared_ptr<HostImage>> outputs, wanted;
  for (int i = 0; i < frames; ++i) {
    outputs.push_back(std::make_shared<HostImage>(Layout{frame, 4, 2}));
    wanted.push_back(flatKey(settings[static_cast<std::size_t>(i)], in, frame, 2));
    ASSERT_TRUE(wanted.back());
  }
  connect(*loaded.effect, "Source", in.source);
  connect(*loaded.effect, "Output", outputs[0]);
  loaded.effect->clips.at("Output").image = [&](double time) {
    return outputs[static_cast<std::size_t>(time)];
  };
  loaded.create();

  // Every frame in four tiles, tiles of different frames mixed.
  std::atomic<int> next = 0;
  std::atomic<int> failures = 0;
  constexpr int rounds = 8;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int job = next++; job < frames * 4 * rounds; job = next++) {
        const int tile = (job / frames) % 4;
        const ofx::RectI window{0, tile * 10, 40, tile * 10 + 10};
        if (loaded.host.render(*loaded.effect, window, job % frames) != ofx::ok) ++failures;
        if (job % 37 == 0) loaded.host.call("OfxActionPurgeCaches", loaded.effect.get());
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures, 0);
  for (int i = 0; i < frames; ++i) {
    const auto at = static_cast<std::size_t>(i);
    for (int y = 0; y < 40; ++y) {
      ASSERT_EQ(std::memcmp(outputs[at]->pixel(0, y), wanted[at]->pixel(0, y), 40 * 8), 0)
          << "frame " << i << " line " << y;
    }
  }
}

TEST(OfxRender, StopsWhenTheHostAborts) {
  Manners manners;
  manners.threadSuite = false;
  manners.abortAfter = 2;  // two bands of 32 lines, then no more
  Loaded loaded(manners);
  std::mt19937 random(3);
  const ofx::RectI frame{0, 0, 8, 200};
  auto dst = std::make_shared<HostImage>(Layout{frame, 4, 1});
  const HostImage before = *dst;
  connect(*loaded.effect, "Source", randomImage(random, {frame, 4, 1}));
  connect(*loaded.effect, "Output", dst);
  loaded.create();
  EXPECT_EQ(loaded.host.render(*loaded.effect, frame), ofx::ok);
  EXPECT_TRUE(dst->guardsHold({0, 0, 8, 64}, before));
  EXPECT_FALSE(dst->guardsHold({0, 0, 8, 63}, before));
}

TEST(OfxPreferences, TellPremultiplicationByOutput) {
  struct Row {
    const char* output;
    bool background;
    const char* below;
    const char* expected;
  };
  const char* const pre = "OfxImageAlphaPremultiplied";
  const char* const un = "OfxImageAlphaUnPremultiplied";
  const char* const opaque = "OfxImageOpaque";
  for (const Row& row :
       {Row{"composite", false, un, pre}, Row{"composite", true, opaque, opaque},
        Row{"composite", true, pre, pre}, Row{"composite", true, un, un},
        Row{"compOnBlack", true, opaque, pre}, Row{"compOnReplace", false, un, opaque},
        Row{"compOnColour", false, un, opaque}, Row{"unpremultiplied", true, pre, un},
        Row{"status", false, un, opaque}, Row{"matte", false, un, pre}}) {
    for (const char* context : {filter, general}) {
      Loaded loaded({}, context);
      std::mt19937 random(1);
      orvanite::Settings settings;
      settings.setText("output", row.output);
      give(*loaded.effect, settings);
      connect(*loaded.effect, "Source", randomImage(random, {{0, 0, 2, 2}, 3, 1}), un);
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
  EXPECT_EQ(out.count("OfxImageClipPropRoI_Reference"), 0U);
  EXPECT_TRUE(out.refused.empty());
}

TEST(OfxIdentity, IsThePlateWhereTheKeyCannotBeBuiltWithAWordOfWarningThatGoesAway) {
  Loaded loaded;
  std::mt19937 random(5);
  const ofx::RectI frame{0, 0, 9, 70};
  auto source = randomImage(random, {frame, 3, 2});
  auto dst = std::make_shared<HostImage>(Layout{frame, 4, 2});
  connect(*loaded.effect, "Source", source);
  connect(*loaded.effect, "Output", dst);
  loaded.create();
  const auto identity = [&](const ofx::RectI& window) {
    Props in, out;
    in.set("OfxPropTime", 4.0)
        .setInts("OfxImageEffectPropRenderWindow", {window.x1, window.y1, window.x2, window.y2});
    const ofx::Status status =
        loaded.host.call("OfxImageEffectActionIsIdentity", loaded.effect.get(), &in, &out);
    if (status != ofx::ok) return std::string();
    EXPECT_EQ(out.real("OfxPropTime"), 4.0);
    return out.text("OfxPropName");
  };
  EXPECT_EQ(identity(frame), "");
  EXPECT_EQ(identity({3, 3, 3, 9}), "Source");  // nothing to render
  EXPECT_TRUE(loaded.effect->notes.empty());

  auto& screen = loaded.effect->params.at("screen").value;
  screen = {0.5, 0.5, 0.5};
  EXPECT_EQ(identity(frame), "Source");
  ASSERT_EQ(loaded.effect->notes.size(), 1U);
  EXPECT_NE(loaded.effect->notes[0].find("OfxMessageWarning"), std::string::npos);
  EXPECT_NE(loaded.effect->notes[0].find("grey"), std::string::npos) << loaded.effect->notes[0];
  // A host that renders all the same gets the plate, opaque, and no second note.
  EXPECT_EQ(loaded.host.render(*loaded.effect, frame), ofx::ok);
  EXPECT_EQ(loaded.effect->notes.size(), 1U);
  for (int y = 0; y < 70; ++y) {
    for (int x = 0; x < 9; ++x) {
      for (int c = 0; c < 3; ++c) ASSERT_EQ(dst->code(x, y, c), source->code(x, y, c));
      ASSERT_EQ(dst->code(x, y, 3), 65535);
    }
  }
  // A note that stayed would keep hosts from rendering again.
  EXPECT_TRUE(loaded.effect->noteStays);
  screen = {0.0, 0.0, 0.9};
  loaded.host.changed(*loaded.effect, "screen");
  EXPECT_FALSE(loaded.effect->noteStays);
  EXPECT_EQ(identity(frame), "");
}

TEST(OfxScreen, IsMeasuredByTheButtonAndTakesTheBalancesAlong) {
  Loaded loaded;
  std::mt19937 random(11);
  // Two thirds green screen with a little grain, a shadow, and a subject in red.
  auto plate = std::make_shared<HostImage>(Layout{{0, 0, 120, 60}, 4, 1});
  for (int y = 0; y < 60; ++y) {
    for (int x = 0; x < 120; ++x) {
      const int grain = static_cast<int>(random() % 5) - 2;
      const bool shadow = x < 15, subject = x >= 80;
      plate->setCode(x, y, 0, subject ? 180 : (shadow ? 20 : 40) + grain);
      plate->setCode(x, y, 1, subject ? 60 : (shadow ? 90 : 170) + grain);
      plate->setCode(x, y, 2, subject ? 50 : (shadow ? 25 : 60) + grain);
      plate->setCode(x, y, 3, 255);
    }
  }
  connect(*loaded.effect, "Source", plate);
  loaded.effect->params.at("shadowBalance").value = {0.7};  // the artist's own
  loaded.create();
  EXPECT_EQ(loaded.host.changed(*loaded.effect, "sampleScreen"), ofx::ok);
  const auto& screen = loaded.effect->params.at("screen").value;
  // The lit screen is (40, 170, 60) give or take the grain of two codes.
  EXPECT_NEAR(std::get<double>(screen[0]) * 255, 40, 2);
  EXPECT_NEAR(std::get<double>(screen[1]) * 255, 170, 2);
  EXPECT_NEAR(std::get<double>(screen[2]) * 255, 60, 2);
  EXPECT_EQ(std::get<double>(loaded.effect->params.at("shadowBalance").value[0]), 0.7);
  EXPECT_EQ(std::get<double>(loaded.effect->params.at("midtoneBalance").value[0]), 0.5);
  EXPECT_EQ(std::get<double>(loaded.effect->params.at("highlightBalance").value[0]), 0.5);
  EXPECT_TRUE(loaded.effect->notes.empty());

  // No screen, no new colour, but a word.
  const auto kept = screen;
  for (int y = 0; y < 60; ++y) {
    for (int x = 0; x < 120; ++x) {
      for (int c = 0; c < 3; ++c) plate->setCode(x, y, c, 100);
    }
  }
  EXPECT_EQ(loaded.host.changed(*loaded.effect, "sampleScreen"), ofx::ok);
  EXPECT_EQ(screen, kept);
  EXPECT_EQ(loaded.effect->notes.size(), 1U);
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
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    ASSERT_TRUE(host.unloaded()) << "something keeps the binary in the process";
#endif
  }
}

}  // namespace ofxTest
