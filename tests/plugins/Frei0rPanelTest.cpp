// SPDX-License-Identifier: BSD-3-Clause
//
// The panels of the frei0r plug-ins: the table in their terms, what follows the screen, what is
// found.
#include "tests/plugins/Frei0rHost.h"

using namespace frei0rTest;

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
    if (std::string_view(kind) == "off") {
      EXPECT_EQ(found, Pair(0U, 255U));
    }
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
