// SPDX-License-Identifier: BSD-3-Clause
//
// Options that look at the plate before it is keyed: the screen's colour found or picked, the clean
// plate estimated, all parameters set.
#pragma once

#include <string>
#include <vector>

#include "apps/cli/ParameterOptions.h"
#include "keyer/Screen.h"
#include "keyer/Settings.h"
#include "shot/FirstKey.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace orvanite::cli {

/// A screen that was found, in words.
std::string describe(const Screen& screen);

/// What a first key set, as options with their values.
std::vector<std::string> optionsOf(const shot::FirstKey& key, const Settings& settings);

class ScreenOptions {
 public:
  /// Adds --auto, --screen-at, --screen-average and --screen-frame, and says of --screen, which
  /// must be there already, that it takes auto. The object must outlive the parse.
  void addTo(CLI::App& command);

  /// Sets the parameters that were given; --screen auto is kept for `look`. Checks these options,
  /// too. Throws Error (wrongUse) that names the option.
  void apply(const ParameterOptions& parameters, Settings& settings);

  /// Whether a clean plate is to be estimated instead of read ("--reference auto").
  static bool estimates(const std::string& reference) { return reference == "auto"; }

  /// Looks at the plate if an option asks for it, and sets what it asks for; parameters that were
  /// given stay. Wants the colourspace to be set. Says on the standard error stream what was found.
  /// Throws Error that names the option.
  ///
  /// reference  the option's text: a file, "auto" or empty
  shot::FirstKey look(const shot::Shot& shot, const std::string& reference, Settings& settings,
                      bool quiet) const;

 private:
  shot::FirstKeyWish wish(const std::string& reference, const Settings& settings) const;

  bool auto_ = false;
  bool automaticColour_ = false;
  std::string at_, average_ = "median";
  CLI::Option* averageOption_ = nullptr;
  CLI::Option* frameOption_ = nullptr;
  int frame_ = 0;
};

}  // namespace orvanite::cli
