// SPDX-License-Identifier: BSD-3-Clause
//
// Settings kept in a file: JSON, every parameter by its name.
#pragma once

#include <string>

#include "keyer/Settings.h"

namespace orvanite {

/// The text of a preset: all values in force, but for those that follow a screen that moves.
std::string presetText(const Settings& settings);

/// Settings from a preset's text, over the defaults. Throws Error (failure) about `subject`, a
/// file's name: text that is no preset, one of a later version, an unknown key (with the name that
/// was most likely meant), a value that a parameter refuses.
Settings settingsFromPreset(const std::string& text, const std::string& subject);

/// The same from a file. Throws Error (noSuchFile) as well, when it cannot be read.
Settings settingsFromPresetFile(const std::string& path);

}  // namespace orvanite
