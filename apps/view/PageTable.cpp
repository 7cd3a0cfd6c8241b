// SPDX-License-Identifier: BSD-3-Clause
#include "apps/view/PageTable.h"

#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "keyer/Parameters.h"

namespace orvanite::view {

using nlohmann::json;

namespace {

const char* nameOf(ParameterType type) {
  switch (type) {
    case ParameterType::number:
      return "number";
    case ParameterType::triple:
      return "triple";
    case ParameterType::colour:
      return "colour";
    case ParameterType::choice:
      return "choice";
    case ParameterType::toggle:
      return "toggle";
    default:
      return "channel";
  }
}

// The panel begins with what makes a key; grades and mattes come after.
bool startsOpen(const Parameter& parameter) {
  const Meaning& meaning = parameter.meaning;
  return meaning.stage == Stage::view ||
         (meaning.stage == Stage::key && meaning.needs == SidePicture::none);
}

}  // namespace

json parameterTable() {
  json table = json::array();
  const Settings standard;
  for (const Parameter& parameter : parameters()) {
    json entry{{"name", parameter.name},
               {"label", parameter.label},
               {"group", parameter.group.heading},
               {"startsOpen", startsOpen(parameter)},
               {"type", nameOf(parameter.type)},
               {"unit", parameter.unit},
               {"help", parameter.help},
               {"softLow", parameter.softLow},
               {"softHigh", parameter.softHigh},
               {"low", parameter.low},
               {"high", parameter.high},
               {"values", valuesOf(parameter.type)},
               {"standard", standard.text(parameter.name)},
               {"followsScreen", parameter.rule == DefaultRule::balanceOfScreen}};
    for (const Choice& choice : parameter.choices) {
      json one{{"text", choice.text}, {"label", choice.label}, {"help", choice.help}};
      if (parameter.name == "output") one["alpha"] = isCutOut(choice.text);
      entry["choices"].push_back(std::move(one));
    }
    table.push_back(std::move(entry));
  }
  return table;
}

json givenTexts(const Settings& settings) {
  json texts = json::object();
  for (const Parameter& parameter : parameters()) {
    if (settings.given(parameter.name)) {
      texts[std::string(parameter.name)] = settings.text(parameter.name);
    }
  }
  return texts;
}

std::vector<std::string_view> unknownToPage(const Settings& settings) {
  std::vector<std::string_view> names;
  for (const Parameter& parameter : parameters()) {
    if (parameter.rule != DefaultRule::fixed || settings.moves(parameter.name)) {
      names.push_back(parameter.name);
    }
  }
  return names;
}

json inForceTexts(const Settings& settings, const std::vector<std::string_view>& names) {
  json texts = json::object();
  for (const std::string_view name : names) texts[std::string(name)] = settings.text(name);
  return texts;
}

json measureReply(const MatteMeasure& measure) {
  return {{"bins", measure.bins},
          {"clear", measure.clear},
          {"between", measure.between},
          {"solid", measure.solid}};
}

}  // namespace orvanite::view
