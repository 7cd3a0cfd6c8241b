// SPDX-License-Identifier: BSD-3-Clause
//
// Options that look at the plate before it is keyed: the screen's colour found or picked, the clean
// plate estimated, all parameters set. They look at one picture of a shot; every frame is keyed
// with what was found there.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "apps/cli/ParameterOptions.h"
#include "apps/media/Picture.h"
#include "keyer/AutoKey.h"
#include "keyer/Screen.h"
#include "keyer/Settings.h"

namespace orvanite::cli {

/// A screen that was found, in words.
std::string describe(const Screen& screen);

/// What an automatic key set, as options with their values.
std::vector<std::string> optionsOf(const AutoKey& key, const Settings& settings);

class ScreenOptions {
 public:
  /// Reads the picture to look at, the whole frame of it: that of --screen-frame where there is a
  /// number, else the shot's first.
  using Load = std::function<media::Picture(std::optional<int> frame)>;

  /// Adds --auto, --screen-at, --screen-average and --screen-frame, and says of --screen, which must
  /// be there already, that it takes auto. The object must outlive the parse.
  void addTo(CLI::App& command);

  /// Sets the parameters that were given; --screen auto is kept for `look`. Checks these options,
  /// too. Throws Error (wrongUse) that names the option.
  void apply(const ParameterOptions& parameters, Settings& settings);

  /// Whether a clean plate is to be estimated instead of read ("--reference auto").
  static bool estimates(const std::string& reference) { return reference == "auto"; }

  /// Looks at the plate if an option asks for it, and sets what it asks for; parameters that were
  /// given stay. Wants the colourspace to be set. Says on the standard error stream what was found.
  ///
  /// reference  the option's text: a file, "auto" or empty
  /// depth      at which the plate is keyed
  void look(const Load& load, const std::string& reference, int depth, Settings& settings,
            bool quiet);

  /// Whether frames are keyed beside clean plates of their own, from `cleanPlateOf`; known after
  /// `look`.
  bool makesCleanPlates() const { return clean_.has_value(); }
  media::Picture cleanPlateOf(const media::Picture& plate) const;

 private:
  bool auto_ = false;
  bool automaticColour_ = false;
  std::string at_, average_ = "median";
  CLI::Option* averageOption_ = nullptr;
  CLI::Option* frameOption_ = nullptr;
  int frame_ = 0;
  std::optional<Screen> clean_;  // the screen that the clean plates are estimated from
};

}  // namespace orvanite::cli
