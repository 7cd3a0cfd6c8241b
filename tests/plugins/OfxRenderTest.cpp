// SPDX-License-Identifier: BSD-3-Clause
//
// What the OpenFX plug-in renders, byte for byte, whatever a host hands over and on how many
// threads.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <thread>

#include "tests/plugins/OfxScene.h"

namespace ofxTest {

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
    manners.textChoices = random() % 4 == 0;
    manners.name = random() % 4 == 0 ? "MLT" : "test";
    Loaded loaded(manners, inFilter ? filter : general);

    orvanite::Settings settings = randomSettings(random);
    const bool half = random() % 4 == 0;
    const int depth = half ? 2 : 1 << (random() % 3);
    const auto colourChannels = [&] { return random() % 2 == 0 ? 4 : 3; };
    const int sourceChannels = colourChannels();
    Pictures in;
    const auto layoutOf = [&](int channels) {
      Layout layout = randomLayout(random, channels, depth);
      layout.half = half;
      return layout;
    };
    const Layout dstLayout = layoutOf(inFilter ? sourceChannels : 4);
    // Half of the pictures cover the output, as most do; the others lie anywhere.
    const auto picture = [&](int channels) {
      Layout layout = layoutOf(channels);
      const ofx::RectI d = dstLayout.bounds;
      if (random() % 2 == 0) layout.bounds = {d.x1 - 3, d.y1, d.x2, d.y2 + 2};
      return randomImage(random, layout);
    };
    const auto maybe = [&](int oneIn, int channels) {
      return random() % static_cast<unsigned>(oneIn) != 0 ? nullptr : picture(channels);
    };
    Panel panel;
    panel.sourceAlpha = static_cast<int>(random() % 3);
    panel.intermediate = random() % 8 == 0;
    panel.premultiplied = random() % 2 == 0;
    const auto matteFor = [&](const char* channel, Panel::Matte& kind) {
      const int counts[] = {1, 3, 4};
      const int channels = counts[random() % 3];
      const Panel::Matte kinds[] = {Panel::letter, Panel::luminance, Panel::automatic};
      kind = kinds[random() % 3];
      if (channels == 3 && kind == Panel::letter && settings.text(channel) == "A") {
        settings.setText(channel, "G");
      }
      auto image = maybe(2, channels);
      const bool grey = kind == Panel::automatic && channels == 4 && random() % 2 == 0;
      if (image && grey) {  // an alpha that says nothing
        const ofx::RectI& at = image->layout().bounds;
        for (int y = at.y1; y < at.y2; ++y) {
          for (int x = at.x1; x < at.x2; ++x) {
            image->setCode(x, y, 3, image->isReal() ? 1 : depth == 1 ? 255 : 65535);
          }
        }
      }
      if (channels == 3 && kind == Panel::automatic) kind = Panel::luminance;
      return image;
    };
    in.source = picture(sourceChannels);
    in.bg = maybe(2, colourChannels());
    in.hold = matteFor("holdOutChannel", panel.hold);
    in.garbage = matteFor("garbageChannel", panel.garbage);
    in.reference = maybe(3, colourChannels());
    // Floats and halves are keyed as floats, and beside a clean plate as words.
    const bool real = half || depth == 4;
    const bool cleanPlate = in.reference && settings.toggle("useReference");
    const int working = real ? (cleanPlate ? 2 : 4) : depth;

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
    give(*loaded.effect, panel);
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
    const auto keyed = flatKey(settings, in, window, working, panel);
    ASSERT_TRUE(keyed);
    // The same in the output's own samples, with the plate's colours where they are asked for.
    Layout wide{window, 4, depth};
    wide.half = half;
    HostImage made(wide);
    HostImage* const expected = &made;
    const ofx::RectI s = in.source->layout().bounds;
    for (int y = window.y1; y < window.y2; ++y) {
      for (int x = window.x1; x < window.x2; ++x) {
        const bool inside = x >= s.x1 && x < s.x2 && y >= s.y1 && y < s.y2;
        for (int c = 0; c < 4; ++c) {
          double value = keyed->code(x, y, c);
          if (real && working == 2) {
            value = static_cast<double>(static_cast<float>(value) / 65535.0f);
          }
          if (panel.intermediate && inside && c < 3) value = in.source->code(x, y, c);
          made.setCode(x, y, c, value);
        }
      }
    }
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
    ++covered[half ? "half" : "depth " + std::to_string(depth)];
    ++covered[panel.intermediate ? "intermediate" : std::string(settings.choice("output"))];
    if (cleanPlate) ++covered[real ? "clean plate, real" : "clean plate"];
  }
  // The sweep is no good if chance left most of it out.
  EXPECT_GT(rendered, ORVANITE_SWEEP / 2);
  EXPECT_EQ(covered.size(), 4U + 8U + 2U);
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
        parameter.type == orvanite::ParameterType::toggle || parameter.meaning.ofWholeFrames()) {
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

// Two hundred instances with settings of their own, made, rendered twice and ended by eight
// threads: none has anything of another's.
TEST(OfxRender, KeepsTwoHundredInstancesOnEightThreadsApart) {
  Manners manners;
  manners.threadsFail = true;
  OfxHost host(manners);
  ASSERT_EQ(host.load(), ofx::ok);
  const auto descriptor = host.describe(general);
  std::mt19937 random(21);
  const ofx::RectI frame{0, 0, 24, 16};
  Pictures in;
  in.source = randomImage(random, {frame, 4, 1});
  constexpr std::size_t kinds = 20, instances = 200;
  std::vector<orvanite::Settings> settings;
  std::vector<std::shared_ptr<HostImage>> wanted;
  while (settings.size() < kinds) {
    settings.push_back(randomSettings(random));
    settings.back().setText("output", "compOnReplace");
    wanted.push_back(flatKey(settings.back(), in, frame, 1));
    if (!wanted.back()) settings.pop_back(), wanted.pop_back();
  }
  const auto same = [&](HostImage& one, HostImage& other) {
    bool all = true;
    for (int y = 0; y < 16; ++y) {
      all = all && std::memcmp(one.pixel(0, y), other.pixel(0, y), 24 * 4) == 0;
    }
    return all;
  };
  ASSERT_FALSE(same(*wanted[0], *wanted[1]));
  std::vector<std::unique_ptr<EffectState>> effects(instances);
  std::vector<std::shared_ptr<HostImage>> outputs(instances);
  for (std::size_t i = 0; i < instances; ++i) {
    effects[i] = host.instantiate(*descriptor, general);
    outputs[i] = std::make_shared<HostImage>(Layout{frame, 4, 1});
    give(*effects[i], settings[i % kinds]);
    connect(*effects[i], "Source", in.source);
    connect(*effects[i], "Output", outputs[i]);
  }
  // All are made before the first is rendered, and all are rendered before the first goes.
  const auto onThreads = [&](const std::function<bool(std::size_t)>& work) {
    std::atomic<std::size_t> next = 0;
    std::atomic<int> failures = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
      threads.emplace_back([&] {
        for (std::size_t i = next++; i < instances; i = next++) failures += work(i) ? 0 : 1;
      });
    }
    for (std::thread& thread : threads) thread.join();
    return failures.load();
  };
  EXPECT_EQ(onThreads([&](std::size_t i) { return host.create(*effects[i]) == ofx::ok; }), 0);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(onThreads([&](std::size_t i) {
                return host.render(*effects[i], frame) == ofx::ok &&
                       same(*outputs[i], *wanted[i % kinds]);
              }),
              0);
  }
  EXPECT_EQ(onThreads([&](std::size_t i) { return host.destroy(*effects[i]) == ofx::ok; }), 0);
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

}  // namespace ofxTest
