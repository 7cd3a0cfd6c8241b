// SPDX-License-Identifier: BSD-3-Clause
//
// Format: {"orvanite": "preset", "version": 1, "parameters": {"screen": [0.1, 0.8, 0.2]}}.
// Numbers may also stand as the texts that options take; those that move do:
// {"screenRange": "linear(time, 1@0.02, 24@0.08)"}. Beside "parameters" there may be
// "spaces": {"input": "ACEScg", "working": "ACEScct", "output": "ACEScg"}.
#include "keyer/Preset.h"

#include <nlohmann/json.hpp>

#include "base/Error.h"
#include "base/TextFile.h"

namespace orvanite {
namespace {

using Json = nlohmann::ordered_json;

constexpr int presetVersion = 1;
constexpr const char* kindKey = "orvanite";
constexpr const char* kind = "preset";
constexpr const char* spacesKey = "spaces";

// The decimal that was entered, not the nearest single-precision value's long tail.
double decimal(float value) { return std::stod(std::to_string(static_cast<double>(value))); }

Json valueOf(const Settings& settings, const Parameter& parameter) {
  if (settings.moves(parameter.name)) return settings.text(parameter.name);
  switch (parameter.type) {
    case ParameterType::choice:
    case ParameterType::channel:
      return settings.text(parameter.name);
    case ParameterType::toggle:
      return settings.toggle(parameter.name);
    case ParameterType::number:
      return decimal(settings.number(parameter.name));
    default:
      return {decimal(settings.number(parameter.name, 0)),
              decimal(settings.number(parameter.name, 1)),
              decimal(settings.number(parameter.name, 2))};
  }
}

void set(Settings& settings, const std::string& name, const Json& value) {
  if (value.is_string()) {
    settings.setText(name, value.get<std::string>());
  } else if (value.is_boolean()) {
    settings.setText(name, value.get<bool>() ? "on" : "off");
  } else if (value.is_number()) {
    settings.setNumber(name, value.get<double>());
  } else if (value.is_array() && value.size() == 3 && value[0].is_number() &&
             value[1].is_number() && value[2].is_number()) {
    settings.setNumbers(name, value[0].get<double>(), value[1].get<double>(),
                        value[2].get<double>());
  } else {
    settings.setText(name, value.dump());
  }
}

// False where they are anything but names.
bool takeSpaces(const Json& from, PresetSpaces& to) {
  if (!from.is_object()) return false;
  for (const auto& [key, value] : from.items()) {
    std::string* const name = key == "input"     ? &to.input
                              : key == "working" ? &to.working
                              : key == "output"  ? &to.output
                                                 : nullptr;
    if (name == nullptr || !value.is_string()) return false;
    *name = value.get<std::string>();
  }
  return true;
}

}  // namespace

std::string presetText(const Settings& settings, const PresetSpaces& spaces) {
  Json parameterValues;
  for (const Parameter& parameter : parameters()) {
    // What follows a screen that moves is another value in each frame.
    if (parameter.rule == DefaultRule::balanceOfScreen && settings.moves("screen") &&
        !settings.given(parameter.name)) {
      continue;
    }
    parameterValues[std::string(parameter.name)] = valueOf(settings, parameter);
  }
  Json preset{{kindKey, kind}, {"version", presetVersion}, {"parameters", parameterValues}};
  if (spaces != PresetSpaces()) {
    preset[spacesKey] = {
        {"input", spaces.input}, {"working", spaces.working}, {"output", spaces.output}};
  }
  return preset.dump(2) + '\n';
}

Settings settingsFromPreset(const std::string& text, const std::string& subject,
                            PresetSpaces* spaces) {
  const auto fail = [&subject](const std::string& message) {
    return Error(Fault::failure, subject, message);
  };
  if (text.size() >= textFileLimit) throw fail("expected a preset of no more than 1 MiB");
  // A preset is two levels deep; brackets that never end are not followed.
  Json::parser_callback_t shallow = [](int depth, Json::parse_event_t, Json&) {
    if (depth > 8) throw std::length_error("nested too deep");
    return true;
  };
  Json preset;
  try {
    preset = Json::parse(text, shallow);
  } catch (const std::exception& error) {
    std::string reason = error.what();
    if (const auto bracket = reason.find("] "); bracket != std::string::npos)
      reason.erase(0, bracket + 2);
    throw fail("this is no preset: " + reason);
  }
  if (!preset.is_object() || preset.value(kindKey, Json()) != kind || !preset.contains("version")) {
    throw fail("expected a preset, with \"orvanite\": \"preset\" and a version");
  }
  if (preset["version"] != presetVersion) {
    throw fail("expected a preset of version 1, found version " + preset["version"].dump());
  }
  for (const auto& [key, value] : preset.items()) {
    if (key != kindKey && key != "version" && key != "parameters" && key != spacesKey)
      throw fail("there is no key \"" + key + "\" in a preset");
  }
  PresetSpaces found;
  if (preset.contains(spacesKey) && !takeSpaces(preset[spacesKey], found)) {
    throw fail("expected names of input, working and output under \"spaces\"");
  }
  if (spaces != nullptr) *spaces = found;
  Settings settings;
  if (!preset.contains("parameters")) return settings;
  if (!preset["parameters"].is_object()) throw fail("expected an object under \"parameters\"");
  for (const auto& [name, value] : preset["parameters"].items()) {
    try {
      set(settings, name, value);
    } catch (const Error& error) {
      throw fail(error.what());
    }
  }
  return settings;
}

Settings settingsFromPresetFile(const std::string& path, PresetSpaces* spaces) {
  return settingsFromPreset(readTextFile(path, "there is no such preset, or it cannot be read"),
                            path, spaces);
}

}  // namespace orvanite
