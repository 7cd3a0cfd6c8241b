// SPDX-License-Identifier: BSD-3-Clause
//
// What the tests of the OpenFX plug-in set up alike: a loaded plug-in with one instance, settings
// handed to it, pictures of noise.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>

#include "tests/plugins/FlatModel.h"
#include "tests/plugins/OfxHost.h"

namespace ofxTest {
inline constexpr const char* filter = "OfxImageEffectContextFilter";
inline constexpr const char* general = "OfxImageEffectContextGeneral";

// Hands settings to an instance's parameters, as a host that loads a project does.
inline void give(EffectState& effect, const orvanite::Settings& settings) {
  using orvanite::ParameterType;
  for (const orvanite::Parameter& parameter : orvanite::parameters()) {
    const auto at = effect.params.find(std::string(parameter.name));
    if (at == effect.params.end()) {
      // Three sliders, or a host that never heard of it.
      for (int c = 0; c < 3; ++c) {
        const auto slider = effect.params.find(std::string(parameter.name) + "RGB"[c]);
        if (slider != effect.params.end()) {
          slider->second.value = {static_cast<double>(settings.number(parameter.name, c))};
        }
      }
      continue;
    }
    std::vector<Value>& value = at->second.value;
    const auto number = [&](int c) {
      return static_cast<double>(settings.number(parameter.name, c));
    };
    const bool text = at->second.type == "OfxParamTypeStrChoice";
    switch (parameter.type) {
      case ParameterType::choice:
      case ParameterType::toggle:
        value = {static_cast<int>(number(0))};
        if (text) value = {settings.text(parameter.name)};
        break;
      case ParameterType::channel:
        value = {static_cast<int>(std::string("RGBA").find(settings.text(parameter.name)))};
        if (text) value = {settings.text(parameter.name)};
        break;
      case ParameterType::number:
        value = {number(0)};
        break;
      default:
        value = {number(0), number(1), number(2)};
    }
  }
}

// What the panel adds, as a host hands it over. Letters are the settings' own.
inline void give(EffectState& effect, const Panel& panel) {
  const auto choose = [&](const char* name, int index, const char* id) {
    const auto at = effect.params.find(name);
    if (at == effect.params.end()) return;
    at->second.value = {index};
    if (at->second.type == "OfxParamTypeStrChoice") at->second.value = {std::string(id)};
  };
  const auto matte = [&](const char* name, Panel::Matte kind) {
    if (kind == Panel::luminance) choose(name, 4, "luminance");
    if (kind == Panel::automatic) choose(name, 5, "automatic");
  };
  matte("holdOutChannel", panel.hold);
  matte("garbageChannel", panel.garbage);
  const char* const alphas[] = {"ignore", "insideMask", "multiply"};
  choose("sourceAlpha", panel.sourceAlpha, alphas[panel.sourceAlpha]);
  choose("premultiplication", panel.premultiplied ? 1 : 0,
         panel.premultiplied ? "premultiplied" : "straight");
  if (panel.intermediate) choose("output", 7, "intermediate");
}

inline std::shared_ptr<HostImage> randomImage(std::mt19937& random, const Layout& layout) {
  auto image = std::make_shared<HostImage>(layout);
  std::uniform_real_distribution<double> wide(-0.2, 1.3);
  for (int y = layout.bounds.y1; y < layout.bounds.y2; ++y) {
    for (int x = layout.bounds.x1; x < layout.bounds.x2; ++x) {
      for (int c = 0; c < layout.channels; ++c) {
        const bool real = layout.depth == 4 || layout.half;
        const double value =
            real ? wide(random) : static_cast<double>(random() % (layout.depth == 1 ? 256 : 65536));
        // Plain zeros and full ones are where kernels take other roads.
        const auto kind = random() % 8;
        const double full = real ? 1 : layout.depth == 1 ? 255 : 65535;
        image->setCode(x, y, c, kind == 0 ? 0 : kind == 1 ? full : value);
      }
    }
  }
  return image;
}

inline ofx::RectI randomRect(std::mt19937& random, int reach) {
  const auto from = [&] {
    return static_cast<int>(random() % static_cast<unsigned>(reach)) - reach / 2;
  };
  const int x = from(), y = from();
  return {x, y, x + 1 + static_cast<int>(random() % static_cast<unsigned>(reach)),
          y + 1 + static_cast<int>(random() % static_cast<unsigned>(reach))};
}

inline Layout randomLayout(std::mt19937& random, int channels, int depth) {
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

}  // namespace ofxTest
