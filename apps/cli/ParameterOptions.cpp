// SPDX-License-Identifier: BSD-3-Clause
//
// One option a parameter; its help is the table's, with unit, range and default behind it.
#include "apps/cli/ParameterOptions.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <array>
#include <cctype>
#include <optional>

#include "keyer/ColourText.h"
#include "keyer/Fitter.h"
#include "keyer/Parameters.h"

namespace orvanite::cli {
namespace {

std::string typeOf(const Parameter& parameter) {
  switch (parameter.type) {
    case ParameterType::number:
      return "X";
    case ParameterType::triple:
      return "X|R,G,B";
    case ParameterType::colour:
      return "COLOUR";
    case ParameterType::choice:
      return "NAME";
    case ParameterType::toggle:
      return "on|off";
    default:
      return "CHANNEL";
  }
}

std::string helpOf(const Parameter& parameter) {
  std::string help(parameter.help);
  const std::string standard = Settings().text(parameter.name);
  switch (parameter.type) {
    case ParameterType::choice:
      for (const Choice& choice : parameter.choices)
        help += fmt::format("\n{}: {}", choice.text, choice.help);
      help += parameter.name == "colourspace" ? "\n[default: what the plate's file suggests]"
                                              : fmt::format("\n[default {}]", standard);
      break;
    case ParameterType::toggle:
    case ParameterType::channel:
      help += fmt::format(" [default {}]", standard);
      break;
    default:
      help += fmt::format(" [{} {:g} to {:g}, default {}]", parameter.unit, parameter.low,
                          parameter.high,
                          parameter.rule == DefaultRule::balanceOfScreen
                              ? "0.9 for a screen bluer than green, else 0.5"
                              : standard);
  }
  return help;
}

std::optional<std::array<float, 3>> displayColourOf(const std::string& parameter,
                                                    const std::string& text) {
  const Parameter* const entry = findParameter(parameter);
  if (entry == nullptr || entry->type != ParameterType::colour) return std::nullopt;
  return displayColour(text);
}

void setColour(Settings& settings, const std::string& parameter,
               const std::array<float, 3>& colour) {
  settings.setNumbers(parameter, static_cast<double>(colour[0]), static_cast<double>(colour[1]),
                      static_cast<double>(colour[2]));
}

}  // namespace

std::string kebab(std::string_view name) {
  std::string result;
  for (char letter : name) {
    if (std::isupper(static_cast<unsigned char>(letter))) {
      if (!result.empty() && result.back() != '-') result += '-';
      result += static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    } else {
      result += letter;
    }
  }
  return result;
}

std::string optionName(std::string_view parameter) { return "--" + kebab(parameter); }

void ParameterOptions::addTo(CLI::App& command) {
  entries_.resize(parameters().size());
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    const Parameter& parameter = parameters()[i];
    Entry& entry = entries_[i];
    entry.parameter = parameter.name;
    std::string names = optionName(parameter.name);
    if (parameter.name == "colourspace") names += ",--cspace";
    entry.option = command.add_option(names, entry.text, helpOf(parameter))
                       ->group(std::string(parameter.group.heading))
                       ->type_name(typeOf(parameter))
                       ->take_last();
  }
}

const std::string* ParameterOptions::text(std::string_view parameter) const {
  for (const Entry& entry : entries_) {
    if (entry.parameter == parameter && entry.option->count() > 0) return &entry.text;
  }
  return nullptr;
}

void ParameterOptions::apply(Settings& settings, std::string_view except) const {
  for (const Entry& entry : entries_) {
    if (entry.option->count() == 0 || entry.parameter == except) continue;
    try {
      if (const auto colour = displayColourOf(entry.parameter, entry.text)) {
        setColour(settings, entry.parameter, *colour);
      } else {
        settings.setText(entry.parameter, entry.text);
      }
    } catch (const Error& error) {
      throw aboutOption(error);
    }
  }
}

std::vector<std::string> ParameterOptions::recodeColours(Settings& settings) const {
  std::vector<std::string> said;
  const std::string encoding(settings.choice("colourspace"));
  for (const Entry& entry : entries_) {
    if (entry.option->count() == 0) continue;
    auto colour = displayColourOf(entry.parameter, entry.text);
    if (!colour) continue;
    if (encoding != "video") {
      for (float& value : *colour) {
        value = fromLight(toLight(value, "video"), encoding);
      }
      setColour(settings, entry.parameter, *colour);
    }
    said.push_back(fmt::format("{}: {} is {}, 1 being white", optionName(entry.parameter),
                               entry.text, settings.text(entry.parameter)));
  }
  return said;
}

Error aboutOption(const Error& error) {
  return findParameter(error.subject()) != nullptr ? error.about(optionName(error.subject()))
                                                   : error;
}

std::vector<std::string> optionsFor(const Settings& settings) {
  std::vector<std::string> options;
  for (const Parameter& parameter : parameters()) {
    if (settings.given(parameter.name)) {
      options.push_back(optionName(parameter.name) + '=' + settings.text(parameter.name));
    }
  }
  return options;
}

}  // namespace orvanite::cli
