// SPDX-License-Identifier: BSD-3-Clause
//
// See Panel.h. A triple has a setting a channel, named after the table's with the channel's letter;
// a colour is OBS's number, red in the lowest byte.
#include "plugins/obs/Panel.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace orvanite::obsPlugin {
namespace {

constexpr std::string_view onTop[] = {"output",     "screen", "screenRange", "matteBlack",
                                      "matteWhite", "shrink", "soften",      "spill"};

// What editors and OBS lay over what is below.
constexpr const char* defaultOutput = "unpremultiplied";
// What cameras and movies hold.
constexpr const char* defaultEncoding = "video";

constexpr std::array<const char*, 3> letters = {"R", "G", "B"};
constexpr std::array<const char*, 3> channels = {" red", " green", " blue"};

// The table's texts are literals: they end with a zero.
const char* nameOf(const Parameter& parameter) { return parameter.name.data(); }

std::string channelName(const Parameter& parameter, std::size_t channel) {
  return std::string(parameter.name) + letters[channel];
}

// A "composite" needs a background picture: without one it is what compOnBlack is.
bool isOffered(const Choice& choice) { return choice.text != "composite"; }

double stepOf(const Parameter& parameter) {
  const float span = parameter.softHigh - parameter.softLow;
  if (span <= 2) return 0.001;
  return span <= 12 ? 0.01 : 0.1;
}

long long colourOf(const double values[3]) {
  long long colour = 0xff;
  for (int c = 2; c >= 0; --c) {
    const double unit = std::clamp(std::isfinite(values[c]) ? values[c] : 0.0, 0.0, 1.0);
    colour = colour << 8 | std::lround(unit * 255);
  }
  return colour;
}

void addNumber(obs_properties_t* panel, const Parameter& parameter, const std::string& name,
               const std::string& label) {
  obs_property_t* const made = obs_properties_add_float_slider(
      panel, name.c_str(), label.c_str(), static_cast<double>(parameter.softLow),
      static_cast<double>(parameter.softHigh), stepOf(parameter));
  obs_property_set_long_description(made, parameter.help.data());
  if (parameter.unit.substr(0, 6) == "pixels") obs_property_float_set_suffix(made, " px");
}

void addParameter(obs_properties_t* panel, const Parameter& parameter) {
  obs_property_t* made = nullptr;
  switch (parameter.type) {
    case ParameterType::number:
      return addNumber(panel, parameter, nameOf(parameter), parameter.label.data());
    case ParameterType::triple:
      for (std::size_t c = 0; c < 3; ++c) {
        addNumber(panel, parameter, channelName(parameter, c),
                  std::string(parameter.label) + channels[c]);
      }
      return;
    case ParameterType::colour:
      made = obs_properties_add_color(panel, nameOf(parameter), parameter.label.data());
      break;
    case ParameterType::choice:
      made = obs_properties_add_list(panel, nameOf(parameter), parameter.label.data(),
                                     OBS_COMBO_TYPE_LIST, OBS_COMBO_FORMAT_STRING);
      for (const Choice& choice : parameter.choices) {
        if (isOffered(choice)) {
          obs_property_list_add_string(made, choice.label.data(), choice.text.data());
        }
      }
      break;
    case ParameterType::toggle:
      made = obs_properties_add_bool(panel, nameOf(parameter), parameter.label.data());
      break;
    case ParameterType::channel:  // of mattes, which OBS has not
      return;
  }
  obs_property_set_long_description(made, parameter.help.data());
}

bool isOnTop(const Parameter& parameter) {
  return std::find(std::begin(onTop), std::end(onTop), parameter.name) != std::end(onTop);
}

std::string folderOf(const Group& group) { return "group." + std::string(group.name); }

bool fold(obs_properties_t* panel, obs_property_t*, obs_data_t* settings) {
  const bool all = obs_data_get_bool(settings, setting::all);
  for (const Parameter* parameter : shownParameters()) {
    obs_property_t* const group = obs_properties_get(panel, folderOf(parameter->group).c_str());
    if (group) obs_property_set_visible(group, all);
  }
  return true;
}

void addFolded(obs_properties_t* panel) {
  obs_property_t* const all = obs_properties_add_bool(panel, setting::all, "Show all parameters");
  const auto& list = shownParameters();
  for (auto at = list.begin(); at != list.end();) {
    const Group& group = (*at)->group;
    obs_properties_t* const inside = obs_properties_create();
    for (; at != list.end() && &(*at)->group == &group; ++at) {
      if (!isOnTop(**at)) addParameter(inside, **at);
    }
    if (!obs_properties_first(inside)) {
      obs_properties_destroy(inside);
      continue;
    }
    obs_property_t* const made = obs_properties_add_group(
        panel, folderOf(group).c_str(), group.heading.data(), OBS_GROUP_NORMAL, inside);
    obs_property_set_visible(made, false);
  }
  obs_property_set_modified_callback(all, fold);
}

// Every setting of a parameter.
template <class Visit>
void visitNames(const Parameter& parameter, const Visit& visit) {
  if (parameter.type != ParameterType::triple) return visit(std::string(parameter.name), 0);
  for (std::size_t c = 0; c < 3; ++c) visit(channelName(parameter, c), c);
}

void setDefault(obs_data_t* settings, const Parameter& parameter, const double values[3]) {
  switch (parameter.type) {
    case ParameterType::colour:
      return obs_data_set_default_int(settings, nameOf(parameter), colourOf(values));
    case ParameterType::toggle:
      return obs_data_set_default_bool(settings, nameOf(parameter), values[0] >= 0.5);
    case ParameterType::choice: {
      const auto index = static_cast<std::size_t>(values[0]);
      return obs_data_set_default_string(settings, nameOf(parameter),
                                         parameter.choices[index].text.data());
    }
    default:
      visitNames(parameter, [&](const std::string& name, std::size_t channel) {
        obs_data_set_default_double(settings, name.c_str(), values[channel]);
      });
  }
}

// Sets a parameter that the user set.
OrvaniteResult apply(obs_data_t* settings, OrvaniteKeyer* keyer, const Parameter& parameter) {
  const char* const name = nameOf(parameter);
  double values[3] = {};
  switch (parameter.type) {
    case ParameterType::choice:
      return orvanite_keyerSetText(keyer, name, obs_data_get_string(settings, name));
    case ParameterType::toggle:
      return orvanite_keyerSetText(keyer, name, obs_data_get_bool(settings, name) ? "on" : "off");
    case ParameterType::colour: {
      const auto colour = static_cast<std::uint64_t>(obs_data_get_int(settings, name));
      for (int c = 0; c < 3; ++c) values[c] = static_cast<double>(colour >> (8 * c) & 0xff) / 255;
      return orvanite_keyerSetNumbers(keyer, name, values, 3);
    }
    case ParameterType::triple:
      orvanite_keyerNumbers(keyer, name, values);  // channels that the user did not set
      visitNames(parameter, [&](const std::string& each, std::size_t channel) {
        if (obs_data_has_user_value(settings, each.c_str())) {
          values[channel] = obs_data_get_double(settings, each.c_str());
        }
      });
      return orvanite_keyerSetNumbers(keyer, name, values, 3);
    default:
      values[0] = obs_data_get_double(settings, name);
      return orvanite_keyerSetNumbers(keyer, name, values, 1);
  }
}

}  // namespace

const std::vector<const Parameter*>& shownParameters() {
  static const std::vector<const Parameter*> list = [] {
    std::vector<const Parameter*> made;
    for (const Parameter& parameter : parameters()) {
      const Meaning& meaning = parameter.meaning;
      if (meaning.needs == SidePicture::none && meaning.stage != Stage::estimate) {
        made.push_back(&parameter);
      }
    }
    return made;
  }();
  return list;
}

obs_properties_t* makePanel(const PanelButtons& buttons) {
  obs_properties_t* const panel = obs_properties_create();
  addParameter(panel, *findParameter("output"));
  obs_property_t* const find =
      obs_properties_add_bool(panel, setting::findScreen, "Find the screen");
  obs_property_set_long_description(find,
                                    "While no screen colour is set, the first frames that show a "
                                    "screen set what makes the key.");
  obs_properties_add_text(panel, setting::state, "", OBS_TEXT_INFO);
  obs_properties_add_button(panel, "findAgain", "Find again", buttons.findAgain);
  obs_property_t* const unkeyed = obs_properties_add_list(
      panel, setting::unkeyed, "Without a key", OBS_COMBO_TYPE_LIST, OBS_COMBO_FORMAT_STRING);
  obs_property_list_add_string(unkeyed, "Show nothing", unkeyedHidden);
  obs_property_list_add_string(unkeyed, "Show the source", unkeyedShown);
  obs_property_set_long_description(unkeyed,
                                    "What is shown until a screen is found, and of frames that "
                                    "cannot be keyed.");
  for (const std::string_view name : onTop) {
    if (name != "output") addParameter(panel, *findParameter(name));
  }
  addFolded(panel);
  obs_properties_t* const presets = obs_properties_create();
  const char* const kind = "Presets (*.json);;All files (*)";
  obs_properties_add_path(presets, setting::presetIn, "Load from", OBS_PATH_FILE, kind, nullptr);
  obs_properties_add_button(presets, "loadPreset", "Load preset", buttons.load);
  obs_properties_add_path(presets, setting::presetOut, "Save to", OBS_PATH_FILE_SAVE, kind,
                          nullptr);
  obs_properties_add_button(presets, "savePreset", "Save preset", buttons.save);
  obs_properties_add_group(panel, "presets", "Presets", OBS_GROUP_NORMAL, presets);
  return panel;
}

void setDefaults(obs_data_t* settings) {
  for (const Parameter* parameter : shownParameters()) {
    const auto& table = parameter->defaults;
    double values[3];
    for (std::size_t c = 0; c < 3; ++c) values[c] = static_cast<double>(table[c]);
    setDefault(settings, *parameter, values);
  }
  obs_data_set_default_string(settings, "output", defaultOutput);
  obs_data_set_default_string(settings, "colourspace", defaultEncoding);
  obs_data_set_default_bool(settings, setting::findScreen, true);
  obs_data_set_default_string(settings, setting::unkeyed, unkeyedHidden);
  obs_data_set_default_bool(settings, setting::presetScreen, true);
}

void showValues(obs_data_t* settings, OrvaniteKeyer* keyer) {
  for (const Parameter* parameter : shownParameters()) {
    double values[3] = {};
    if (orvanite_keyerNumbers(keyer, nameOf(*parameter), values) == ORVANITE_OK) {
      setDefault(settings, *parameter, values);
    }
  }
}

void clearParameters(obs_data_t* settings, bool ofScreenAlone) {
  for (const Parameter* parameter : shownParameters()) {
    if (ofScreenAlone && !parameter->meaning.followsScreen) continue;
    visitNames(*parameter, [&](const std::string& name, std::size_t) {
      obs_data_unset_user_value(settings, name.c_str());
    });
  }
}

void applySettings(obs_data_t* settings, OrvaniteKeyer* keyer,
                   const std::function<void(const std::string&)>& problem) {
  const auto check = [&](OrvaniteResult result) {
    if (result != ORVANITE_OK) problem(orvanite_keyerError(keyer));
  };
  check(orvanite_keyerReset(keyer, nullptr));
  const char* const preset = obs_data_get_string(settings, setting::preset);
  if (*preset != '\0') check(orvanite_keyerUsePreset(keyer, preset));
  // A preset of the command says what the command shows; here it is what OBS lays over the rest.
  check(orvanite_keyerSetText(keyer, "output", defaultOutput));
  if (!orvanite_keyerGiven(keyer, "colourspace")) {
    check(orvanite_keyerSetText(keyer, "colourspace", defaultEncoding));
  }
  check(orvanite_keyerReset(keyer, "estimate"));
  if (!obs_data_get_bool(settings, setting::presetScreen)) {
    for (const Parameter& parameter : parameters()) {
      if (parameter.meaning.followsScreen) check(orvanite_keyerReset(keyer, nameOf(parameter)));
    }
  }
  for (const Parameter* parameter : shownParameters()) {
    bool set = false;
    visitNames(*parameter, [&](const std::string& name, std::size_t) {
      set |= obs_data_has_user_value(settings, name.c_str());
    });
    if (set) check(apply(settings, keyer, *parameter));
  }
}

}  // namespace orvanite::obsPlugin
