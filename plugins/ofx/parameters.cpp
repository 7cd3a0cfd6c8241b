// SPDX-License-Identifier: BSD-3-Clause
//
// Describing and reading parameters; see parameters.h.
#include "plugins/ofx/parameters.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>

#include "plugins/ofx/host.h"

namespace orvanite::ofxPlugin {

namespace {

constexpr std::array<const char*, 4> channelLabels = {"Red", "Green", "Blue", "Alpha"};
constexpr std::array<const char*, 4> channelTexts = {"R", "G", "B", "A"};

// "Balance and gain" -> "groupBalanceAndGain"
std::string groupName(std::string_view group) {
  std::string name = "group";
  bool start = true;
  for (const char c : group) {
    if (c == ' ') {
      start = true;
      continue;
    }
    name += start && c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    start = false;
  }
  return name;
}

const char* typeOf(const Parameter& parameter) {
  switch (parameter.type) {
    case ParameterType::number:
      return ofx::paramType::real;
    case ParameterType::triple:
      return ofx::paramType::real3;
    case ParameterType::colour:
      return ofx::paramType::rgb;
    case ParameterType::choice:
      return ofx::paramType::choice;
    case ParameterType::toggle:
      return ofx::paramType::boolean;
    case ParameterType::channel:
      return ofx::paramType::choice;
  }
  return ofx::paramType::real;
}

int channelIndex(std::string_view text) {
  const char letter = text.empty() ? 'A' : text.front();
  const auto found = std::find_if(channelTexts.begin(), channelTexts.end(),
                                  [letter](const char* channel) { return channel[0] == letter; });
  return found == channelTexts.end() ? 3 : static_cast<int>(found - channelTexts.begin());
}

// Parameters that decide the output's kind of picture must not move over time: a host asks for
// its clips' preferences once for the whole shot.
bool moves(const Parameter& parameter) {
  return parameter.type != ParameterType::choice && parameter.type != ParameterType::channel &&
         parameter.type != ParameterType::toggle;
}

class Describer {
 public:
  explicit Describer(ofx::ParamSet set) : set_(set) {}

  // A property set to describe a new parameter with; an empty one, which takes no writes, when the
  // host has it already or has no such kind.
  Properties define(const char* type, const std::string& name, std::string_view label,
                    std::string_view help) {
    ofx::PropertySet handle = nullptr;
    if (host().parameter->define(set_, type, name.c_str(), &handle) != ofx::ok) {
      return Properties(nullptr);
    }
    const Properties properties(handle);
    const std::string text(label);
    properties.set(ofx::prop::label, text.c_str());
    properties.set(ofx::prop::shortLabel, text.c_str());
    properties.set(ofx::prop::longLabel, text.c_str());
    properties.set(ofx::prop::scriptName, name.c_str());
    if (!help.empty()) properties.set(ofx::prop::hint, std::string(help).c_str());
    return properties;
  }

 private:
  ofx::ParamSet set_;
};

std::string hintOf(const Parameter& parameter) {
  std::string hint(parameter.help);
  if (!parameter.unit.empty() && parameter.type != ParameterType::colour) {
    hint.append(" (").append(parameter.unit).append(")");
  }
  for (const Choice& choice : parameter.choices) {
    hint.append("\n").append(choice.label).append(": ").append(choice.help);
  }
  return hint;
}

void describeNumbers(const Properties& properties, const Parameter& parameter, int count) {
  for (int i = 0; i < count; ++i) {
    const auto at = static_cast<std::size_t>(i);
    properties.set(ofx::prop::defaultValue, static_cast<double>(parameter.defaults[at]), i);
    // Both ranges: some hosts take the one for the other, or -1 to 1 for a missing one.
    properties.set(ofx::prop::minimum, static_cast<double>(parameter.low), i);
    properties.set(ofx::prop::maximum, static_cast<double>(parameter.high), i);
    properties.set(ofx::prop::displayMinimum, static_cast<double>(parameter.softLow), i);
    properties.set(ofx::prop::displayMaximum, static_cast<double>(parameter.softHigh), i);
  }
  properties.set(ofx::prop::digits, 4);
  properties.set(ofx::prop::increment,
                 static_cast<double>(parameter.softHigh - parameter.softLow) / 100);
}

void describeOne(const Properties& properties, const Parameter& parameter) {
  properties.set(ofx::prop::parent, groupName(parameter.group).c_str());
  if (!moves(parameter)) properties.set(ofx::prop::animates, 0);
  switch (parameter.type) {
    case ParameterType::number:
      describeNumbers(properties, parameter, 1);
      break;
    case ParameterType::triple: {
      describeNumbers(properties, parameter, 3);
      const char* const labels[] = {"r", "g", "b"};
      for (int i = 0; i < 3; ++i) properties.set(ofx::prop::dimensionLabel, labels[i], i);
      break;
    }
    case ParameterType::colour:
      for (int i = 0; i < 3; ++i) {
        properties.set(ofx::prop::defaultValue,
                       static_cast<double>(parameter.defaults[static_cast<std::size_t>(i)]), i);
      }
      break;
    case ParameterType::choice:
      for (std::size_t i = 0; i < parameter.choices.size(); ++i) {
        properties.set(ofx::prop::choiceOption, std::string(parameter.choices[i].label).c_str(),
                       static_cast<int>(i));
      }
      properties.set(ofx::prop::defaultValue, static_cast<int>(parameter.defaults[0]));
      break;
    case ParameterType::toggle:
      properties.set(ofx::prop::defaultValue, static_cast<int>(parameter.defaults[0]));
      break;
    case ParameterType::channel:
      for (int i = 0; i < 4; ++i) {
        properties.set(ofx::prop::choiceOption, channelLabels[static_cast<std::size_t>(i)], i);
      }
      properties.set(ofx::prop::defaultValue, channelIndex(parameter.defaultText));
      break;
  }
}

double held(const Parameter& parameter, double value) {
  if (std::isnan(value)) return value;  // settings refuse it by name
  return std::clamp(value, static_cast<double>(parameter.low), static_cast<double>(parameter.high));
}

}  // namespace

ofx::Status describeParameters(ofx::Effect descriptor) {
  ofx::ParamSet set = nullptr;
  if (host().effect->getParamSet(descriptor, &set) != ofx::ok || !set) return ofx::badHandle;
  Describer describer(set);

  const Properties page = describer.define(ofx::paramType::page, "Controls", "Controls", "");
  int children = 0;
  const auto onPage = [&](const std::string& name) {
    page.set(ofx::prop::pageChild, name.c_str(), children++);
  };

  std::string_view group;
  for (const Parameter& parameter : parameters()) {
    if (parameter.group != group) {
      group = parameter.group;
      const Properties properties =
          describer.define(ofx::paramType::group, groupName(group), group, "");
      // Grades are looked at last and take the most room.
      properties.set(ofx::prop::groupOpen, group.find("grade") == std::string_view::npos ? 1 : 0);
    }
    const std::string name(parameter.name);
    describeOne(describer.define(typeOf(parameter), name, parameter.label, hintOf(parameter)),
                parameter);
    onPage(name);

    if (parameter.name == "output") {
      const Properties size =
          describer.define(ofx::paramType::choice, clipModeParam, "Size",
                           "Whose size the result has. Around a smaller plate lies clear screen.");
      size.set(ofx::prop::parent, groupName(group).c_str());
      size.set(ofx::prop::choiceOption, "Plate", 0);
      size.set(ofx::prop::choiceOption, "Background", 1);
      size.set(ofx::prop::defaultValue, 0);
      size.set(ofx::prop::animates, 0);
      onPage(clipModeParam);
    }
    if (parameter.name == "screen") {
      const Properties button =
          describer.define(ofx::paramType::pushButton, sampleButton, "Sample screen",
                           "Measures the screen colour on the current frame of the plate.");
      button.set(ofx::prop::parent, groupName(group).c_str());
      onPage(sampleButton);
    }
  }

  const Properties version = describer.define(ofx::paramType::string, versionParam, "Version",
                                              "The version that these settings were saved by.");
  version.set(ofx::prop::stringMode, ofx::stringIsLabel);
  version.set(ofx::prop::defaultValue, ORVANITE_VERSION);
  version.set(ofx::prop::animates, 0);
  version.set(ofx::prop::evaluateOnChange, 0);
  version.set(ofx::prop::enabled, 0);
  onPage(versionParam);

  ofx::PropertySet setProperties = nullptr;
  if (host().parameter->setGetPropertySet(set, &setProperties) == ofx::ok) {
    Properties(setProperties).set(ofx::prop::pageOrder, "Controls");
  }
  return ofx::ok;
}

InstanceParameters::InstanceParameters(ofx::Effect instance) : params_(parameters().size()) {
  if (host().effect->getParamSet(instance, &set_) != ofx::ok) set_ = nullptr;
  const auto find = [this](const std::string& name) {
    ofx::Param param = nullptr;
    if (!set_ || host().parameter->getHandle(set_, name.c_str(), &param, nullptr) != ofx::ok) {
      return ofx::Param{};
    }
    return param;
  };
  for (std::size_t i = 0; i < params_.size(); ++i)
    params_[i] = find(std::string(parameters()[i].name));
  clipMode_ = find(clipModeParam);
  version_ = find(versionParam);
  followed_ = balanceAt(0);
}

Settings InstanceParameters::at(ofx::Time time) const {
  const ofx::ParameterSuite& suite = *host().parameter;
  Settings settings;
  for (std::size_t i = 0; i < params_.size(); ++i) {
    const Parameter& parameter = parameters()[i];
    const ofx::Param param = params_[i];
    if (!param) continue;
    double r = 0, g = 0, b = 0;
    int index = 0;
    switch (parameter.type) {
      case ParameterType::number:
        if (suite.getValueAtTime(param, time, &r) == ofx::ok) {
          settings.setNumber(parameter.name, held(parameter, r));
        }
        break;
      case ParameterType::triple:
      case ParameterType::colour:
        if (suite.getValueAtTime(param, time, &r, &g, &b) == ofx::ok) {
          settings.setNumbers(parameter.name, held(parameter, r), held(parameter, g),
                              held(parameter, b));
        }
        break;
      case ParameterType::choice:
      case ParameterType::toggle:
        if (suite.getValueAtTime(param, time, &index) == ofx::ok) {
          settings.setNumber(parameter.name, held(parameter, index));
        }
        break;
      case ParameterType::channel:
        if (suite.getValueAtTime(param, time, &index) == ofx::ok) {
          settings.setText(parameter.name,
                           channelTexts[static_cast<std::size_t>(std::clamp(index, 0, 3))]);
        }
        break;
    }
  }
  return settings;
}

std::string_view InstanceParameters::choice(std::string_view name) const {
  const auto entry = static_cast<std::size_t>(findParameter(name) - parameters().data());
  const Parameter& parameter = parameters()[entry];
  int index = static_cast<int>(parameter.defaults[0]);
  if (params_[entry]) host().parameter->getValue(params_[entry], &index);
  const int last = static_cast<int>(parameter.choices.size()) - 1;
  return parameter.choices[static_cast<std::size_t>(std::clamp(index, 0, last))].text;
}

bool InstanceParameters::sizedByBackground() const {
  int mode = 0;
  if (clipMode_) host().parameter->getValue(clipMode_, &mode);
  return mode > 0;
}

void InstanceParameters::setScreen(double r, double g, double b, ofx::Time time) const {
  const auto entry = static_cast<std::size_t>(findParameter("screen") - parameters().data());
  const ofx::Param screen = params_[entry];
  if (!screen) return;
  host().parameter->editBegin(set_, "Sample screen");
  unsigned int keys = 0;
  host().parameter->getNumKeys(screen, &keys);
  if (keys > 0) {
    host().parameter->setValueAtTime(screen, time, r, g, b);
  } else {
    host().parameter->setValue(screen, r, g, b);
  }
  host().parameter->editEnd(set_);
}

// The balance that goes with the screen colour at a time, by the table's own rule.
float InstanceParameters::balanceAt(ofx::Time time) const {
  const auto entry = static_cast<std::size_t>(findParameter("screen") - parameters().data());
  std::array<double, 3> rgb{};
  Settings settings;
  if (params_[entry] && host().parameter->getValueAtTime(params_[entry], time, &rgb[0], &rgb[1],
                                                         &rgb[2]) == ofx::ok) {
    for (double& value : rgb) value = std::isnan(value) ? 0 : held(parameters()[entry], value);
    settings.setNumbers("screen", rgb[0], rgb[1], rgb[2]);
  }
  return settings.number("midtoneBalance");
}

void InstanceParameters::followScreen(ofx::Time time) {
  const Settings settings = at(time);
  const float wanted = balanceAt(time);
  if (wanted == followed_) return;
  for (std::size_t i = 0; i < params_.size(); ++i) {
    const Parameter& parameter = parameters()[i];
    if (parameter.rule != DefaultRule::balanceOfScreen || !params_[i]) continue;
    unsigned int keys = 0;
    host().parameter->getNumKeys(params_[i], &keys);
    if (keys == 0 && settings.number(parameter.name) == followed_) {
      host().parameter->setValue(params_[i], static_cast<double>(wanted));
    }
  }
  followed_ = wanted;
}

void InstanceParameters::stampVersion() const {
  if (!version_) return;
  char* saved = nullptr;
  if (host().parameter->getValue(version_, &saved) != ofx::ok) return;
  if (!saved || std::string_view(saved) != ORVANITE_VERSION) {
    host().parameter->setValue(version_, ORVANITE_VERSION);
  }
}

}  // namespace orvanite::ofxPlugin
