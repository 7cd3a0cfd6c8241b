// SPDX-License-Identifier: BSD-3-Clause
//
// The frei0r plug-ins as a host meets them: the loaded binaries, their panels, their pixels.
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

namespace {

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
std::vector<Meaning> meanings(bool mixer) {
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
int findsScreen(const Binary& binary) { return binary.about.num_params - 2; }
int estimate(const Binary& binary) { return binary.about.num_params - 1; }

// Sets every parameter as a host does.
void give(const Binary& binary, f0r_instance_t instance, const Settings& settings, bool mixer) {
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
std::vector<std::uint32_t> flat(const Settings& settings, const std::vector<std::uint32_t>& plate,
                                const std::vector<std::uint32_t>* below, int width, int height) {
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
std::vector<std::uint32_t> keyedByFirst(const std::vector<std::uint32_t>& first,
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

std::vector<std::uint32_t> noise(std::mt19937& random, int width, int height) {
  std::vector<std::uint32_t> pixels(static_cast<std::size_t>(width * height));
  for (auto& pixel : pixels) pixel = static_cast<std::uint32_t>(random());
  return pixels;
}

// What frei0r cannot set stays at its default.
void forgetWhatIsNotCarried(Settings& settings, bool mixer) {
  std::set<std::string_view> carried;
  for (const Meaning& meaning : meanings(mixer)) carried.insert(meaning.parameter->name);
  for (const Parameter& parameter : orvanite::parameters()) {
    if (!carried.count(parameter.name)) settings.reset(parameter.name);
  }
}

constexpr const char* binaries[] = {ORVANITE_FREI0R_FILTER, ORVANITE_FREI0R_MIXER};

}  // namespace

TEST(Frei0rPanel, ShowsTheTableInFrei0rsTerms) {
  for (const bool mixer : {false, true}) {
    const Binary binary(binaries[mixer]);
    EXPECT_EQ(binary.about.plugin_type, mixer ? F0R_PLUGIN_TYPE_MIXER2 : F0R_PLUGIN_TYPE_FILTER);
    EXPECT_EQ(binary.about.color_model, F0R_COLOR_MODEL_RGBA8888);
    EXPECT_EQ(binary.about.frei0r_version, 1);
    const auto list = meanings(mixer);
    ASSERT_EQ(binary.about.num_params, static_cast<int>(list.size()) + 2);
    f0r_instance_t instance = binary.construct(4, 4);
    std::set<std::string> names;
    f0r_param_info_t last{};
    binary.paramInfo(&last, findsScreen(binary));
    EXPECT_EQ(last.type, F0R_PARAM_BOOL);
    double on = 0;
    binary.get(instance, &on, findsScreen(binary));
    EXPECT_EQ(on, 1) << last.name;
    binary.paramInfo(&last, estimate(binary));
    EXPECT_EQ(last.type, F0R_PARAM_STRING);
    char* automatic = nullptr;
    binary.get(instance, &automatic, estimate(binary));
    EXPECT_STREQ(automatic, "automatic") << last.name;
    for (int i = 0; i < static_cast<int>(list.size()); ++i) {
      const Parameter& p = *list[static_cast<std::size_t>(i)].parameter;
      f0r_param_info_t info{};
      binary.paramInfo(&info, i);
      EXPECT_TRUE(names.insert(info.name).second) << info.name << " stands twice in the panel";
      EXPECT_FALSE(std::string(info.explanation).empty());
      const int type = p.type == ParameterType::choice   ? F0R_PARAM_STRING
                       : p.type == ParameterType::colour ? F0R_PARAM_COLOR
                                                         : F0R_PARAM_DOUBLE;
      ASSERT_EQ(info.type, type) << info.name;
      if (type == F0R_PARAM_DOUBLE) {
        double unit = -1;
        binary.get(instance, &unit, i);
        const double span = static_cast<double>(p.softHigh) - static_cast<double>(p.softLow);
        EXPECT_NEAR(unit,
                    (static_cast<double>(p.defaults[0]) - static_cast<double>(p.softLow)) / span,
                    1e-6)
            << info.name;
        EXPECT_GE(unit, 0) << info.name;
        EXPECT_LE(unit, 1) << info.name;
      } else if (type == F0R_PARAM_STRING) {
        char* text = nullptr;
        binary.get(instance, &text, i);
        EXPECT_STREQ(text,
                     p.name == "output" ? (mixer ? "composite" : "unpremultiplied") : "linear");
      }
    }
    EXPECT_TRUE(names.count("Screen colour"));
    EXPECT_TRUE(names.count("Exposure red"));
    EXPECT_EQ(names.count("Background exposure red"), mixer ? 1U : 0U);
    binary.destruct(instance);
  }
}

TEST(Frei0rFrame, HasTheFlatInterfacesBytesInAndOutOfPlace) {
  for (const bool mixer : {false, true}) {
    const Binary binary(binaries[mixer]);
    for (unsigned seed = 1; seed <= 60; ++seed) {
      std::mt19937 random(seed);
      const int width = 1 + static_cast<int>(random() % 70),
                height = 1 + static_cast<int>(random() % 40);
      Settings settings = ofxTest::randomSettings(random);
      forgetWhatIsNotCarried(settings, mixer);
      const auto plate = noise(random, width, height), below = noise(random, width, height);
      f0r_instance_t instance =
          binary.construct(static_cast<unsigned>(width), static_cast<unsigned>(height));
      give(binary, instance, settings, mixer);
      const auto expected = flat(settings, plate, mixer ? &below : nullptr, width, height);
      const auto update = [&](const std::uint32_t* in, std::uint32_t* out) {
        if (mixer) {
          binary.update2(instance, 0.5, below.data(), in, nullptr, out);
        } else {
          binary.update(instance, 0.5, in, out);
        }
      };
      std::vector<std::uint32_t> out(plate.size());
      update(plate.data(), out.data());
      ASSERT_EQ(out, expected) << "seed " << seed << (mixer ? " mixer" : " filter");
      out = plate;
      update(out.data(), out.data());
      ASSERT_EQ(out, expected) << "in place, seed " << seed;
      binary.destruct(instance);
    }
  }
}

// Some hosts cut a frame into slices and update one instance from several threads; a parameter may
// move meanwhile. Each slice has the old value or the new one.
TEST(Frei0rFrame, MayBeCutIntoSlicesOnThreads) {
  const Binary binary(ORVANITE_FREI0R_FILTER);
  std::mt19937 random(9);
  Settings settings = ofxTest::randomSettings(random);
  forgetWhatIsNotCarried(settings, false);
  settings.setText("output", "matte");
  constexpr int width = 32, slice = 8, slices = 8;
  const auto plate = noise(random, width, slice * slices);
  f0r_instance_t instance = binary.construct(width, slice);
  give(binary, instance, settings, false);
  Settings moved = settings;
  moved.setNumber("screenRange", 0.25);
  const auto was = flat(settings, plate, nullptr, width, slice * slices);
  const auto is = flat(moved, plate, nullptr, width, slice * slices);
  ASSERT_NE(was, is);
  std::vector<std::uint32_t> out(plate.size());
  std::vector<std::thread> threads;
  std::atomic<int> next = 0;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int s = next++; s < slices; s = next++) {
        const auto at = static_cast<std::size_t>(s * slice * width);
        binary.update(instance, 0, plate.data() + at, out.data() + at);
      }
    });
  }
  double half = 0.5;  // of 0 to 0.5
  binary.set(instance, &half, 4);
  for (std::thread& thread : threads) thread.join();
  for (int s = 0; s < slices; ++s) {
    const auto at = static_cast<std::size_t>(s * slice * width);
    const auto same = [&](const std::vector<std::uint32_t>& wanted) {
      return std::memcmp(out.data() + at, wanted.data() + at, slice * width * 4) == 0;
    };
    EXPECT_TRUE(same(was) || same(is)) << "slice " << s;
  }
  binary.destruct(instance);
}

TEST(Frei0rSettings, LetTheBalancesFollowTheScreenUntilTheyAreMoved) {
  const Binary binary(ORVANITE_FREI0R_FILTER);
  std::mt19937 random(3);
  const auto plate = noise(random, 16, 16);
  f0r_instance_t instance = binary.construct(16, 16);
  f0r_param_color_t green{0.1f, 0.7f, 0.2f};
  binary.set(instance, &green, 3);
  Settings settings;
  settings.setText("output", "unpremultiplied");
  settings.setText("screen", "0.1,0.7,0.2");
  const auto check = [&](const char* when) {
    std::vector<std::uint32_t> out(plate.size());
    binary.update(instance, 0, plate.data(), out.data());
    EXPECT_EQ(out, flat(settings, plate, nullptr, 16, 16)) << when;
  };
  EXPECT_EQ(settings.number("midtoneBalance"), 0.5f);
  check("left alone");
  // Hosts read what a new instance shows and set it again.
  f0r_param_info_t info{};
  for (int i = 0; i < binary.about.num_params; ++i) {
    binary.paramInfo(&info, i);
    if (info.type != F0R_PARAM_DOUBLE) continue;
    double unit = 0;
    binary.get(instance, &unit, i);
    binary.set(instance, &unit, i);
  }
  check("read and set again");
  double own = 0.8;
  binary.set(instance, &own, 7);
  settings.setNumber("midtoneBalance", 0.8);
  check("moved");
  binary.destruct(instance);
}

// A green plate with a subject in red keys without a word, and later frames with what the first one
// showed; what the host reads and sets again changes nothing, what a user sets does.
TEST(Frei0rScreen, IsFoundInTheFirstFrameThatShowsOneUnlessItIsSet) {
  const Binary binary(ORVANITE_FREI0R_FILTER);
  constexpr unsigned width = 96, height = 64;
  std::mt19937 random(4);
  const auto pixel = [](std::uint32_t r, std::uint32_t g, std::uint32_t b) {
    return r | g << 8 | b << 16 | 0xFF000000U;
  };
  std::vector<std::uint32_t> black(width * height, 0xFF000000U), plate(width * height), out(plate);
  for (unsigned i = 0; i < plate.size(); ++i) {
    const auto grain = static_cast<std::uint32_t>(random() % 5);
    plate[i] = i % width < 64 ? pixel(38 + grain, 168 + grain, 58 + grain) : pixel(180, 60, 50);
  }
  const auto alphas = [&](f0r_instance_t instance, const std::vector<std::uint32_t>& frame) {
    binary.update(instance, 0, frame.data(), out.data());
    return std::pair{out[10] >> 24, out[80] >> 24};  // of the screen, of the subject
  };
  using Pair = std::pair<std::uint32_t, std::uint32_t>;
  f0r_instance_t instance = binary.construct(width, height);
  alphas(instance, black);  // the shot fades in
  alphas(instance, plate);
  // The key that the command finds in that frame, to the byte.
  const auto wanted = keyedByFirst(plate, plate, width, height, "automatic");
  EXPECT_EQ(out, wanted);
  // Hosts of eight bits write what they read with codes: 0.9 becomes 230/255.
  f0r_param_info_t info{};
  for (int i = 0; i < binary.about.num_params; ++i) {
    binary.paramInfo(&info, i);
    if (info.type == F0R_PARAM_COLOR) {
      f0r_param_color_t colour{};
      binary.get(instance, &colour, i);
      for (float* value : {&colour.r, &colour.g, &colour.b}) {
        *value = std::round(*value * 255) / 255;
      }
      binary.set(instance, &colour, i);
    } else if (info.type == F0R_PARAM_DOUBLE) {
      double value = 0;
      binary.get(instance, &value, i);
      binary.set(instance, &value, i);
    }
  }
  // A later frame of darker light: keyed as the first one was, not anew.
  std::vector<std::uint32_t> later = plate;
  for (unsigned i = 0; i < later.size(); i += 3) later[i] = pixel(34, 150, 52);
  alphas(instance, later);
  EXPECT_EQ(out, keyedByFirst(plate, later, width, height, "automatic"));
  // Estimates of another kind are those of a shot keyed by them; without any it is one colour.
  for (const char* kind : {"codes", "light", "off"}) {
    std::string text = kind;
    char* at = text.data();
    binary.set(instance, &at, estimate(binary));
    const auto found = alphas(instance, plate);
    if (std::string_view(kind) == "off") EXPECT_EQ(found, Pair(0U, 255U));
    EXPECT_EQ(out, keyedByFirst(plate, plate, width, height, kind)) << kind;
  }
  std::string automatic = "automatic";
  char* text = automatic.data();
  binary.set(instance, &text, estimate(binary));
  // Switched off, the table's blue screen is keyed: green stays.
  double off = 0, on = 1;
  binary.set(instance, &off, findsScreen(binary));
  EXPECT_EQ(alphas(instance, plate).first, 255U);
  binary.set(instance, &on, findsScreen(binary));
  alphas(instance, plate);
  EXPECT_EQ(out, wanted);
  // A screen of the user's: the bytes of the flat interface, with nothing found beside it.
  f0r_param_color_t green{0.2f, 0.7f, 0.2f};
  binary.set(instance, &green, 3);
  alphas(instance, plate);
  Settings settings;
  settings.setText("output", "unpremultiplied");
  settings.setText("screen", "0.2,0.7,0.2");
  EXPECT_EQ(out, flat(settings, plate, nullptr, width, height));
  binary.destruct(instance);
}

TEST(Frei0rSettings, TakeChoicesByNumberToo) {
  const Binary binary(ORVANITE_FREI0R_FILTER);
  f0r_instance_t instance = binary.construct(4, 4);
  const auto outputAfter = [&](const char* words) {
    std::string text = words;
    char* at = text.data();
    binary.set(instance, &at, 0);
    char* now = nullptr;
    binary.get(instance, &now, 0);
    return std::string(now);
  };
  EXPECT_EQ(outputAfter("6"), "matte");
  EXPECT_EQ(outputAfter("7"), "matte") << "there is no such choice";
  EXPECT_EQ(outputAfter("-1"), "matte");
  EXPECT_EQ(outputAfter("status"), "status");
  EXPECT_EQ(outputAfter("0"), "composite");
  binary.destruct(instance);
}

TEST(Frei0rHosts, MayAskForNonsenseWithoutHarm) {
  const Binary binary(ORVANITE_FREI0R_MIXER);
  std::mt19937 random(3);
  const auto plate = noise(random, 4, 4);
  std::vector<std::uint32_t> out(plate.size());
  for (const auto& [w, h] : {std::pair{0U, 0U}, {0U, 5U}, {5U, 0U}}) {
    f0r_instance_t empty = binary.construct(w, h);
    binary.update2(empty, 0, plate.data(), plate.data(), nullptr, out.data());
    EXPECT_EQ(out, std::vector<std::uint32_t>(plate.size()));
    binary.destruct(empty);
  }
  EXPECT_EQ(binary.construct(std::numeric_limits<unsigned>::max(), 4), nullptr);

  f0r_instance_t instance = binary.construct(4, 4);
  double number = std::nan("");
  f0r_param_color_t colour{std::nanf(""), 0, 0};
  std::string words = "no such output";
  char* text = words.data();
  char* nothing = nullptr;
  for (int i = -2; i < binary.about.num_params + 2; ++i) {
    f0r_param_info_t info{};
    binary.paramInfo(&info, i);
    if (!info.name) {
      binary.set(instance, &number, i);
      binary.get(instance, &number, i);
      continue;
    }
    binary.set(instance, nullptr, i);
    binary.get(instance, nullptr, i);
    if (info.type == F0R_PARAM_STRING) binary.set(instance, &text, i);
    if (info.type == F0R_PARAM_STRING) binary.set(instance, &nothing, i);
    if (info.type == F0R_PARAM_COLOR) binary.set(instance, &colour, i);
    number = std::nan("");
    if (info.type == F0R_PARAM_DOUBLE) binary.set(instance, &number, i);
  }
  binary.update2(nullptr, 0, plate.data(), plate.data(), nullptr, out.data());
  binary.update2(instance, 0, plate.data(), nullptr, nullptr, out.data());
  binary.update2(instance, 0, plate.data(), plate.data(), nullptr, nullptr);
  binary.info(nullptr);
  binary.paramInfo(nullptr, 0);
  binary.destruct(nullptr);
  // None of it took: the frame is that of the defaults. Without a lower clip it lies over black.
  Settings settings;
  binary.update2(instance, 0, plate.data(), plate.data(), nullptr, out.data());
  EXPECT_EQ(out, flat(settings, plate, &plate, 4, 4));
  binary.update2(instance, 0, nullptr, plate.data(), nullptr, out.data());
  EXPECT_EQ(out, flat(settings, plate, nullptr, 4, 4));
  // A grey screen keys nothing: the plate comes through.
  f0r_param_color_t grey{0.5f, 0.5f, 0.5f};
  binary.set(instance, &grey, 3);
  binary.update2(instance, 0, nullptr, plate.data(), nullptr, out.data());
  EXPECT_EQ(out, plate);
  binary.destruct(instance);
}

// frei0r has no place for a message: a host that starts the plug-in is told no, and the standard
// error stream says why, once.
TEST(Frei0rErrors, SayOnceWhichTargetTheMachineDoesNotHave) {
  for (const char* path : binaries) {
    setenv("ORVANITE_TARGET", "abacus", 1);
    testing::internal::CaptureStderr();
    {
      const Binary binary(path);
      EXPECT_EQ(binary.started, 0);
      std::uint32_t pixel = 0x800000FFU;
      f0r_instance_t instance = binary.construct(1, 1);
      for (int frame = 0; frame < 3; ++frame) binary.update(instance, 0, &pixel, &pixel);
      binary.destruct(instance);
      EXPECT_EQ(pixel, 0x800000FFU) << "frames stay as they are";
    }
    unsetenv("ORVANITE_TARGET");
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(said.rfind("orvanite: ORVANITE_TARGET=abacus: ", 0), 0U) << said;
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
    const Binary well(path);
    EXPECT_EQ(well.started, 1);
  }
}

TEST(Frei0rHosts, MayLoadAndUnloadAHundredTimes) {
  for (int i = 0; i < 100; ++i) {
    for (const char* path : binaries) {
      {
        const Binary binary(path);
        std::uint32_t pixel = 0x800000FFU;
        f0r_instance_t instance = binary.construct(1, 1);
        binary.update(instance, 0, &pixel, &pixel);
        binary.destruct(instance);
      }
#ifndef ORVANITE_SANITIZED
      void* const still = dlopen(path, RTLD_NOW | RTLD_NOLOAD);
      ASSERT_FALSE(still) << "something keeps " << path << " in the process";
#endif
    }
  }
}
