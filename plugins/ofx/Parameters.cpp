// SPDX-License-Identifier: BSD-3-Clause
//
// Reading and writing an instance's parameters; see Parameters.h. Description.cpp defines them.
#include "plugins/ofx/Parameters.h"

#include <algorithm>
#include <cmath>

#include "plugins/ofx/Description.h"
#include "plugins/ofx/Host.h"

namespace orvanite::ofxPlugin {

namespace {

std::size_t entryNamed(std::string_view name) {
  return static_cast<std::size_t>(findParameter(name) - parameters().data());
}

double held(const Parameter& parameter, double value) {
  if (std::isnan(value)) return value;  // settings refuse it by name
  return std::clamp(value, static_cast<double>(parameter.low), static_cast<double>(parameter.high));
}

bool isFollower(const Parameter& parameter) {
  return parameter.rule == DefaultRule::balanceOfScreen;
}

unsigned int keysOf(ofx::Param param) {
  unsigned int keys = 0;
  if (host().parameter->getNumKeys) host().parameter->getNumKeys(param, &keys);
  return keys;
}

// Sets a parameter's value: at a time where it moves, and for all times otherwise.
template <class... Values>
void setNow(ofx::Param param, ofx::Time time, Values... values) {
  if (!param) return;
  if (keysOf(param) > 0) {
    host().parameter->setValueAtTime(param, time, values...);
  } else {
    host().parameter->setValue(param, values...);
  }
}

// One step of the host's undo for as long as it lives.
class Edit {
 public:
  Edit(ofx::ParamSet set, const char* label) : set_(set) {
    if (host().parameter->editBegin) host().parameter->editBegin(set_, label);
  }
  ~Edit() {
    if (host().parameter->editEnd) host().parameter->editEnd(set_);
  }
  Edit(const Edit&) = delete;
  Edit& operator=(const Edit&) = delete;

 private:
  ofx::ParamSet set_;
};

}  // namespace

InstanceParameters::InstanceParameters(ofx::Effect instance, bool filter)
    : filter_(filter), params_(parameters().size()), entries_(parameters().size()) {
  if (host().effect->getParamSet(instance, &set_) != ofx::ok) set_ = nullptr;
  for (std::size_t i = 0; i < params_.size(); ++i) {
    const Parameter& parameter = parameters()[i];
    const std::string name(parameter.name);
    entries_[i] = entriesOf(parameter);
    params_[i][0] = find(name.c_str());
    if (params_[i][0] || parameter.type != ParameterType::triple) continue;
    for (std::size_t c = 0; c < 3; ++c) params_[i][c] = find((name + sliderSuffixes[c]).c_str());
  }
  clipMode_ = find(clipModeParam);
  premultiplication_ = find(premultiplicationParam);
  sourceAlpha_ = find(sourceAlphaParam);
  box_ = find(boxParam);
  boxPosition_ = find(boxPositionParam);
  boxSize_ = find(boxSizeParam);
  presetFile_ = find(presetFileParam);
  version_ = find(versionParam);
  shownBalance_ = find(shownBalanceParam);
}

ofx::Param InstanceParameters::find(const char* name) const {
  ofx::Param param = nullptr;
  if (!set_ || host().parameter->getHandle(set_, name, &param, nullptr) != ofx::ok) return nullptr;
  return param;
}

bool InstanceParameters::readNumbers(std::size_t entry, ofx::Time time,
                                     std::array<double, 3>& numbers) const {
  const ofx::ParameterSuite& suite = *host().parameter;
  const Handles& params = params_[entry];
  if (!params[0]) return false;
  if (valuesOf(parameters()[entry].type) == 1) {
    return suite.getValueAtTime(params[0], time, &numbers[0]) == ofx::ok;
  }
  if (!params[1]) {
    return suite.getValueAtTime(params[0], time, &numbers[0], &numbers[1], &numbers[2]) == ofx::ok;
  }
  for (std::size_t c = 0; c < 3; ++c) {
    if (suite.getValueAtTime(params[c], time, &numbers[c]) != ofx::ok) return false;
  }
  return true;
}

std::string InstanceParameters::text(ofx::Param param) const {
  char* value = nullptr;
  if (!param || host().parameter->getValue(param, &value) != ofx::ok || !value) return {};
  return value;
}

int InstanceParameters::indexOf(ofx::Param param, std::span<const ChoiceEntry> entries,
                                int fallback) const {
  if (!param) return fallback;
  const int last = static_cast<int>(entries.size()) - 1;
  if (!host().textChoices) {
    int index = fallback;
    if (host().parameter->getValue(param, &index) != ofx::ok) return fallback;
    return std::clamp(index, 0, last);
  }
  const std::string id = text(param);
  const auto found = std::find_if(entries.begin(), entries.end(),
                                  [&](const ChoiceEntry& entry) { return entry.id == id; });
  return found == entries.end() ? fallback : static_cast<int>(found - entries.begin());
}

// Settings keep four decimals: so are values compared.
bool InstanceParameters::follows(std::size_t entry, double value, float shown) const {
  return static_cast<float>(std::round(value * 1e4) / 1e4) == shown &&
         keysOf(params_[entry][0]) == 0;
}

float InstanceParameters::shownBalance() const {
  double shown = static_cast<double>(findParameter("midtoneBalance")->defaults[0]);
  if (shownBalance_) host().parameter->getValue(shownBalance_, &shown);
  return static_cast<float>(std::round(shown * 1e4) / 1e4);
}

Settings InstanceParameters::at(ofx::Time time) const {
  Settings settings;
  const float shown = shownBalance();
  for (std::size_t i = 0; i < params_.size(); ++i) {
    const Parameter& parameter = parameters()[i];
    const ofx::Param param = params_[i][0];
    if (!param || parameter.name == "output") continue;  // the output follows below
    std::array<double, 3> n{};
    int index = 0;
    switch (parameter.type) {
      case ParameterType::choice:
        settings.setNumber(parameter.name,
                           indexOf(param, entries_[i], static_cast<int>(parameter.defaults[0])));
        break;
      case ParameterType::channel:
        index = indexOf(param, entries_[i], static_cast<int>(MatteChannel::automatic));
        if (index <= static_cast<int>(MatteChannel::alpha)) {
          settings.setText(parameter.name, entries_[i][static_cast<std::size_t>(index)].id);
        }
        break;
      case ParameterType::toggle:
        if (host().parameter->getValueAtTime(param, time, &index) == ofx::ok) {
          settings.setNumber(parameter.name, index != 0 ? 1 : 0);
        }
        break;
      case ParameterType::number:
        if (readNumbers(i, time, n) && !(isFollower(parameter) && follows(i, n[0], shown))) {
          settings.setNumber(parameter.name, held(parameter, n[0]));
        }
        break;
      default:
        if (readNumbers(i, time, n)) {
          settings.setNumbers(parameter.name, held(parameter, n[0]), held(parameter, n[1]),
                              held(parameter, n[2]));
        }
    }
  }
  const PanelChoices panel = choices();
  const std::string wanted = output();
  settings.setText("output", wanted == intermediateOutput ? "unpremultiplied"
                             : wanted == "unpremultiplied" && panel.premultiplied ? "compOnBlack"
                                                                                  : wanted);
  return settings;
}

std::string InstanceParameters::output() const {
  const std::size_t entry = entryNamed("output");
  const int index = indexOf(params_[entry][0], entries_[entry], defaultOutput(filter_));
  return entries_[entry][static_cast<std::size_t>(index)].id;
}

PanelChoices InstanceParameters::choices() const {
  const auto channel = [this](const char* name) {
    const std::size_t entry = entryNamed(name);
    return static_cast<MatteChannel>(
        indexOf(params_[entry][0], entries_[entry], static_cast<int>(MatteChannel::automatic)));
  };
  PanelChoices made;
  made.intermediate = output() == intermediateOutput;
  made.premultiplied = indexOf(premultiplication_, premultiplicationEntries(), 0) == 1;
  made.sizedByBackground = indexOf(clipMode_, clipModeEntries(), 0) == 1;
  made.sourceAlpha = static_cast<SourceAlpha>(indexOf(sourceAlpha_, sourceAlphaEntries(), 0));
  made.holdChannel = channel("holdOutChannel");
  made.garbageChannel = channel("garbageChannel");
  return made;
}

std::optional<ofx::RectD> InstanceParameters::box(ofx::Time time) const {
  const ofx::ParameterSuite& suite = *host().parameter;
  int on = 0;
  ofx::RectD box{};
  double width = 0, height = 0;
  if (!box_ || suite.getValue(box_, &on) != ofx::ok || on == 0) return {};
  if (!boxPosition_ || suite.getValueAtTime(boxPosition_, time, &box.x1, &box.y1) != ofx::ok ||
      !boxSize_ || suite.getValueAtTime(boxSize_, time, &width, &height) != ofx::ok) {
    return {};
  }
  box.x2 = box.x1 + width;
  box.y2 = box.y1 + height;
  return box;
}

void InstanceParameters::moveBox(const ofx::RectD& box) const {
  if (!boxPosition_ || !boxSize_) return;
  const Edit edit(set_, "Move box");
  host().parameter->setValue(boxPosition_, box.x1, box.y1);
  host().parameter->setValue(boxSize_, box.x2 - box.x1, box.y2 - box.y1);
}

std::string InstanceParameters::presetFile() const { return text(presetFile_); }

void InstanceParameters::writeOne(std::size_t entry, const Settings& settings,
                                  ofx::Time time) const {
  const Parameter& parameter = parameters()[entry];
  const Handles& params = params_[entry];
  const auto number = [&](int c) {
    return static_cast<double>(settings.number(parameter.name, c));
  };
  if (!params[0]) return;
  switch (parameter.type) {
    case ParameterType::channel:
    case ParameterType::choice: {
      const std::string id = settings.text(parameter.name);
      const auto found = std::find_if(entries_[entry].begin(), entries_[entry].end(),
                                      [&](const ChoiceEntry& at) { return at.id == id; });
      if (found == entries_[entry].end()) return;  // a channel that pictures of a host have not
      if (host().textChoices) {
        setNow(params[0], time, found->id.c_str());
      } else {
        setNow(params[0], time, static_cast<int>(found - entries_[entry].begin()));
      }
      break;
    }
    case ParameterType::toggle:
      setNow(params[0], time, settings.toggle(parameter.name) ? 1 : 0);
      break;
    case ParameterType::number:
      setNow(params[0], time, number(0));
      break;
    default:
      if (!params[1]) {
        setNow(params[0], time, number(0), number(1), number(2));
      } else {
        for (int c = 0; c < 3; ++c) setNow(params[static_cast<std::size_t>(c)], time, number(c));
      }
  }
}

void InstanceParameters::showBalance(float wanted, std::span<const std::string> but,
                                     ofx::Time time) const {
  const float shown = shownBalance();
  for (std::size_t i = 0; i < params_.size(); ++i) {
    const Parameter& parameter = parameters()[i];
    std::array<double, 3> now{};
    if (!isFollower(parameter) || !readNumbers(i, time, now) || !follows(i, now[0], shown))
      continue;
    if (std::find(but.begin(), but.end(), parameter.name) != but.end()) continue;
    host().parameter->setValue(params_[i][0], static_cast<double>(wanted));
  }
  if (shownBalance_) host().parameter->setValue(shownBalance_, static_cast<double>(wanted));
}

void InstanceParameters::write(const Settings& settings, std::span<const std::string> names,
                               ofx::Time time, const char* step) const {
  if (!set_) return;
  const Edit edit(set_, step);
  Settings rule;
  rule.setNumbers("screen", static_cast<double>(settings.number("screen", 0)),
                  static_cast<double>(settings.number("screen", 1)),
                  static_cast<double>(settings.number("screen", 2)));
  // Followers first: what is written afterwards is given, even where it has the old shown value.
  showBalance(rule.number("midtoneBalance"), names, time);
  for (const std::string& name : names) writeOne(entryNamed(name), settings, time);
}

void InstanceParameters::followScreen(ofx::Time time) const {
  Settings rule;
  std::array<double, 3> rgb{};
  const std::size_t entry = entryNamed("screen");
  if (readNumbers(entry, time, rgb)) {
    for (double& value : rgb) value = std::isnan(value) ? 0 : held(parameters()[entry], value);
    rule.setNumbers("screen", rgb[0], rgb[1], rgb[2]);
  }
  const float wanted = rule.number("midtoneBalance");
  // Without a place to remember it, what is shown stays what the description says.
  if (!shownBalance_ || wanted == shownBalance()) return;
  const Edit edit(set_, "Screen colour");
  showBalance(wanted, {}, time);
}

void InstanceParameters::stampVersion() const {
  if (version_ && text(version_) != ORVANITE_VERSION) {
    host().parameter->setValue(version_, ORVANITE_VERSION);
  }
}

}  // namespace orvanite::ofxPlugin
