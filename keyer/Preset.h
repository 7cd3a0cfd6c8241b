// SPDX-License-Identifier: BSD-3-Clause
//
// Settings kept in a file: JSON, every parameter by its name.
#pragma once

#include <string>

#include "keyer/Settings.h"

namespace orvanite {

/// The named colour spaces that a key was made between; empty: none.
struct PresetSpaces {
  std::string input;                                     // the plate's
  std::string working;                                   // that it was keyed in
  std::string output;                                    // the result's
  bool operator==(const PresetSpaces&) const = default;  ///< All the same.
};

/// The text of a preset: all values in force, but for those that follow a screen that moves, and
/// the spaces where there are any.
std::string presetText(const Settings& settings, const PresetSpaces& spaces = {});

/// Settings from a preset's text, over the defaults. Throws Error (failure) about `subject`, a
/// file's name: text that is no preset, one of a later version, an unknown key (with the name that
/// was most likely meant), a value that a parameter refuses.
/// spaces  is given those of the preset; null: nobody asks
Settings settingsFromPreset(const std::string& text, const std::string& subject,
                            PresetSpaces* spaces = nullptr);

/// The same from a file. Throws Error (noSuchFile) as well, when it cannot be read.
Settings settingsFromPresetFile(const std::string& path, PresetSpaces* spaces = nullptr);

}  // namespace orvanite
