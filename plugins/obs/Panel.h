// SPDX-License-Identifier: BSD-3-Clause
//
// The parameter table in OBS's terms: a panel with what matters on top and the rest folded, and the
// values of OBS's settings as the keyer takes them.
#pragma once

#include <obs-module.h>
#include <orvanite/keyer.h>

#include <functional>
#include <string>
#include <vector>

#include "keyer/Parameters.h"

namespace orvanite::obsPlugin {

/// Settings that are no parameter of the table.
namespace setting {
inline constexpr const char* findScreen = "findScreen";  // bool
inline constexpr const char* state = "state";            // a line of text, not kept
inline constexpr const char* unkeyed = "unkeyed";        // a text: what is shown without a key
inline constexpr const char* all = "allParameters";      // bool: unfolds
inline constexpr const char* presetIn = "presetIn";      // a path
inline constexpr const char* presetOut = "presetOut";    // a path
inline constexpr const char* preset = "preset";          // the text of the preset that was loaded
inline constexpr const char* presetScreen = "presetScreen";  // bool: its key counts as well
inline constexpr const char* found = "found";                // object: what was found, name to text
}  // namespace setting

/// The setting unkeyed: nothing, or the source as it is.
inline constexpr const char *unkeyedHidden = "nothing", *unkeyedShown = "source";

/// Where buttons end.
struct PanelButtons {
  obs_property_clicked_t findAgain, load, save;
};

/// The table's parameters that a filter in OBS can have: it has no pictures beside the plate, and
/// no time for estimates of each frame.
const std::vector<const Parameter*>& shownParameters();

/// The panel. The caller owns it.
obs_properties_t* makePanel(const PanelButtons& buttons);

/// Writes defaults into settings: the table's, with what suits OBS's chain and cameras.
void setDefaults(obs_data_t* settings);

/// Writes the values in force into settings as defaults, so that the panel shows what was found.
void showValues(obs_data_t* settings, OrvaniteKeyer* keyer);

/// Takes away what the user set: of all parameters, or of those that make the key and are found
/// with a screen.
void clearParameters(obs_data_t* settings, bool ofScreenAlone);

/// Sets a keyer from settings: the defaults for OBS, the preset that was loaded, and what the user
/// set. Each value that cannot be is reported in words, and left as it was.
void applySettings(obs_data_t* settings, OrvaniteKeyer* keyer,
                   const std::function<void(const std::string&)>& problem);

}  // namespace orvanite::obsPlugin
