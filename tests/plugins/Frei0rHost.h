// SPDX-License-Identifier: BSD-3-Clause
//
// A frei0r host in small: loaded binaries, the table behind their panels, and what their pixels
// must be.
#pragma once

#include <dlfcn.h>
#include <frei0r.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "engine/orvanite.h"
#include "keyer/AutoKey.h"
#include "keyer/BlindKeyer.h"
#include "keyer/Settings.h"
#include "tests/Sanitized.h"
#include "tests/plugins/FlatModel.h"

namespace frei0rTest {

using orvanite::Parameter;
using orvanite::ParameterType;
using orvanite::Settings;

// A loaded binary: the functions that every frei0r host looks up.
struct Binary {
  explicit Binary(const char* path) : handle(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {
    EXPECT_TRUE(handle) << dlerror();
    find(init, "f0r_init");
    find(deinit, "f0r_deinit");
    find(info, "f0r_get_plugin_info");
    find(paramInfo, "f0r_get_param_info");
    find(construct, "f0r_construct");
    find(destruct, "f0r_destruct");
    find(set, "f0r_set_param_value");
    find(get, "f0r_get_param_value");
    find(update, "f0r_update");
    find(update2, "f0r_update2");
    started = init();
    info(&about);
  }
  ~Binary() {
    deinit();
    dlclose(handle);
  }
  template <class F>
  void find(F*& function, const char* name) {
    function = reinterpret_cast<F*>(dlsym(handle, name));
    ASSERT_TRUE(function) << name;
  }
  void* handle;
  decltype(f0r_init)* init = nullptr;
  decltype(f0r_deinit)* deinit = nullptr;
  decltype(f0r_get_plugin_info)* info = nullptr;
  decltype(f0r_get_param_info)* paramInfo = nullptr;
  decltype(f0r_construct)* construct = nullptr;
  decltype(f0r_destruct)* destruct = nullptr;
  decltype(f0r_set_param_value)* set = nullptr;
  decltype(f0r_get_param_value)* get = nullptr;
  decltype(f0r_update)* update = nullptr;
  decltype(f0r_update2)* update2 = nullptr;
  f0r_plugin_info_t about{};
  int started = 0;
};

// The table entry and channel behind a panel's name: the label, the group's word, the channel.
struct Meaning {
  const Parameter* parameter;
  int channel;
};
inline std::vector<Meaning> meanings(bool mixer) {
  std::vector<Meaning> list;
  for (const Parameter& parameter : orvanite::parameters()) {
    const std::string_view name = parameter.name;
    const bool below = name.starts_with("bg");
    const bool matte = name.starts_with("use") || name.ends_with("Channel");
    const bool wholeFrames = parameter.meaning.ofWholeFrames();  // hosts hand over slices
    if (matte || wholeFrames || (below && !mixer)) continue;
    for (int c = 0; c < (parameter.type == ParameterType::triple ? 3 : 1); ++c) {
      list.push_back({&parameter, c});
    }
  }
  return list;
}

// The last two, which the table's other entries go before.
inline int findsScreen(const Binary& binary) { return binary.about.num_params - 2; }
inline int estimate(const Binary& binary) { return binary.about.num_params - 1; }

// Sets every parameter as a host does.
inline void give(const Binary& binary, f0r_instance_t instance, const Settings& settings,
                 bool mixer) {
  const auto list = meanings(mixer);
  for (std::size_t i = 0; i < list.size(); ++i) {
    const Parameter& p = *list[i].parameter;
    const int index = static_cast<int>(i);
    if (p.type == ParameterType::choice) {
      std::string text = settings.text(p.name);
      char* string = text.data();
      binary.set(instance, &string, index);
    } else if (p.type == ParameterType::colour) {
      f0r_param_color_t colour{settings.number(p.name, 0), settings.number(p.name, 1),
                               settings.number(p.name, 2)};
      binary.set(instance, &colour, index);
    } else {
      const double low = static_cast<double>(p.softLow), high = static_cast<double>(p.softHigh);
      double unit =
          (static_cast<double>(settings.number(p.name, list[i].channel)) - low) / (high - low);
      binary.set(instance, &unit, index);
    }
  }
}

// The frame keyed by the flat interface; RGBA bytes.
inline std::vector<std::uint32_t> flat(const Settings& settings,
                                       const std::vector<std::uint32_t>& plate,
                                       const std::vector<std::uint32_t>* below, int width,
                                       int height) {
  std::vector<std::uint32_t> out(plate.size());
  orvanite::Inputs inputs;
  inputs.background = below != nullptr;
  QMXOrvaniteTable* engine = orvanite_new();
  settings.applyTo(engine, orvanite::Depth::bytes, inputs);
  EXPECT_EQ(orvanite_makeLuts(engine), 0);
  const auto image = [&](const std::vector<std::uint32_t>& pixels) {
    auto* at = reinterpret_cast<unsigned char*>(const_cast<std::uint32_t*>(pixels.data()));
    return OtileImage{at, at + 1, at + 2, at + 3, 4, 4 * width};
  };
  Otile tile{};
  tile.dst = image(out);
  tile.fg = image(plate);
  if (below) tile.bg = image(*below);
  EXPECT_EQ(orvanite_render(engine, 1, width, height, &tile), 0);
  orvanite_delete(engine);
  return out;
}

// What the command's keyer makes of a frame with a key that it found in another.
inline std::vector<std::uint32_t> keyedByFirst(const std::vector<std::uint32_t>& first,
                                               const std::vector<std::uint32_t>& plate, int width,
                                               int height, const char* kind) {
  const auto image = [&](const std::vector<std::uint32_t>& pixels) {
    auto* at = reinterpret_cast<unsigned char*>(const_cast<std::uint32_t*>(pixels.data()));
    return OtileImage{at, at + 1, at + 2, at + 3, 4, 4 * width};
  };
  Settings settings;
  const bool automatic = std::string_view(kind) == "automatic";
  if (!automatic) settings.setText("estimate", kind);
  const orvanite::Plate shown{image(first), width, height, orvanite::Depth::bytes},
      now{image(plate), width, height, orvanite::Depth::bytes};
  if (settings.given("estimate") && !orvanite::mixingOf(settings)) {
    orvanite::autoKey(shown, settings, orvanite::CleanPlateUse::never);
    settings.setText("output", "unpremultiplied");
    return flat(settings, plate, nullptr, width, height);
  }
  const orvanite::BlindKey key = orvanite::findKey(shown, settings);
  settings = key.settings;
  settings.setText("output", "unpremultiplied");
  std::vector<std::uint32_t> out(plate.size());
  orvanite::BlindKeyer keyer;
  keyer.prepare(key, settings, orvanite::Depth::bytes, {});
  orvanite::Frame frame{{}, width, height, orvanite::Depth::bytes};
  frame.pictures.fg = image(plate);
  frame.pictures.dst = image(out);
  keyer.render(key.carriedTo(now), frame, orvanite::bandAfterBand);
  return out;
}

inline std::vector<std::uint32_t> noise(std::mt19937& random, int width, int height) {
  std::vector<std::uint32_t> pixels(static_cast<std::size_t>(width * height));
  for (auto& pixel : pixels) pixel = static_cast<std::uint32_t>(random());
  return pixels;
}

// What frei0r cannot set stays at its default.
inline void forgetWhatIsNotCarried(Settings& settings, bool mixer) {
  std::set<std::string_view> carried;
  for (const Meaning& meaning : meanings(mixer)) carried.insert(meaning.parameter->name);
  for (const Parameter& parameter : orvanite::parameters()) {
    if (!carried.count(parameter.name)) settings.reset(parameter.name);
  }
}

inline constexpr const char* binaries[] = {ORVANITE_FREI0R_FILTER, ORVANITE_FREI0R_MIXER};

}  // namespace frei0rTest
