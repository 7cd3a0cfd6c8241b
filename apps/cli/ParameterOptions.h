// SPDX-License-Identifier: BSD-3-Clause
//
// The keyer's parameters as command-line options, made from the parameter table.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/Error.h"
#include "keyer/Settings.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace orvanite::cli {

/// "screenRange" becomes "--screen-range".
std::string optionName(std::string_view parameter);

/// The same the other way round for the name of an option without its dashes or its value.
std::string kebab(std::string_view name);

class ParameterOptions {
 public:
  /// Adds an option for every parameter, in the table's groups. The object must outlive the parse.
  void addTo(CLI::App& command);

  /// Sets what was given, save for one parameter. Throws Error that names the option.
  void apply(Settings& settings, std::string_view except = {}) const;

  /// Brings colours that were given as displays show them (#00b140, green, 0,177,64) into the
  /// encoding that is keyed in. Returns what they are there, for a person to see.
  std::vector<std::string> recodeColours(Settings& settings) const;

  /// What was given for a parameter; null where nothing was.
  const std::string* text(std::string_view parameter) const;

 private:
  struct Entry {
    std::string parameter;
    std::string text;
    const CLI::Option* option = nullptr;
  };
  std::vector<Entry> entries_;
};

/// An error about a parameter, told of its option.
Error aboutOption(const Error& error);

/// Arguments that give the values that were given to these settings: "--screen=0.1,0.8,0.2".
std::vector<std::string> optionsFor(const Settings& settings);

}  // namespace orvanite::cli
