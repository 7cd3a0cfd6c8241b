// SPDX-License-Identifier: BSD-3-Clause
#include "apps/view/Script.h"

#include <iterator>
#include <string_view>
#include <vector>

#include "keyer/Parameters.h"

namespace orvanite::view {
namespace {

// The function's arguments after its images and version, in its order. A colour is three, any
// other parameter one.
constexpr std::string_view arguments[] = {
    "output",         "screen",           "screenRange",    "fgBias",          "shadowBalance",
    "midtoneBalance", "highlightBalance", "shadowGain",     "midtoneGain",     "highlightGain",
    "midTonesAt",     "replace",          "exposure",       "gamma",           "saturation",
    "colourspace",    "useHoldOutMatte",  "holdOutChannel", "useGarbageMatte", "garbageChannel"};

std::string quoted(std::string_view text) {
  std::string result(1, '"');
  for (const char letter : text) {
    if (letter == '"' || letter == '\\') result += '\\';
    result += letter;
  }
  result += '"';
  return result;
}

// A number as the settings write it.
std::string numberText(float value) {
  Settings one;
  one.setNumber("offset", static_cast<double>(value));
  return one.text("offset");
}

void append(std::string& call, const Parameter& parameter, const Settings& settings) {
  const std::string_view name = parameter.name;
  if (parameter.type == ParameterType::choice || parameter.type == ParameterType::channel) {
    call += ", ";
    call += quoted(settings.text(name));
  } else if (parameter.type == ParameterType::toggle) {
    call += settings.toggle(name) ? ", 1" : ", 0";
  } else {
    const bool three = !parameter.plugs[1].empty();
    for (int channel = 0; channel < (three ? 3 : 1); ++channel) {
      call += ", ";
      call += numberText(settings.number(name, channel));
    }
  }
}

}  // namespace

std::string scriptFor(const FootageFiles& files, const Settings& settings) {
  std::string script;
  std::string call = "key = Orvanite(";
  const struct {
    const std::string* path;
    const char* name;
  } images[] = {{&files.plate, "plate"},
                {&files.background, "background"},
                {&files.holdOut, "holdOut"},
                {&files.garbage, "garbage"}};
  for (const auto& image : images) {
    if (&image != std::begin(images)) call += ", ";
    call += image.path->empty() ? "0" : image.name;
    if (!image.path->empty()) {
      script += image.name;
      script += " = FileIn(" + quoted(*image.path) + ");\n";
    }
  }
  call += ", \"1.4\"";
  for (const std::string_view name : arguments) append(call, *findParameter(name), settings);
  call += ", 0, 0);\n";

  std::string left;
  for (const Parameter& parameter : parameters()) {
    bool told = settings.given(parameter.name) && parameter.plugs[0].empty();
    // One value stands for all channels of an amount.
    if (parameter.name == "midTonesAt") {
      told = settings.text(parameter.name).find(',') != std::string::npos;
    }
    if (parameter.name == "output") told = settings.choice("output") == "matte";
    if (told) left.append(" ").append(parameter.name);
  }
  if (!left.empty()) script += "// The node cannot be told of:" + left + "\n";
  return script + call;
}

}  // namespace orvanite::view
