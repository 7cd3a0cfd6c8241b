// SPDX-License-Identifier: BSD-3-Clause
//
// Parameters and mattes in the page's terms. Shared with the page that has no server: knows the
// keyer alone.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string_view>
#include <vector>

#include "apps/view/PageView.h"
#include "keyer/Settings.h"

namespace orvanite::view {

/// The parameter table: an array of what a panel needs to know of each parameter.
nlohmann::json parameterTable();

/// The values that were given, as texts by name.
nlohmann::json givenTexts(const Settings& settings);

/// The parameters whose values in force a page cannot know: those that follow the screen where
/// nobody gave them, and those that move.
std::vector<std::string_view> unknownToPage(const Settings& settings);

/// The values in force of these parameters, as texts by name.
nlohmann::json inForceTexts(const Settings& settings, const std::vector<std::string_view>& names);

nlohmann::json measureReply(const MatteMeasure& measure);

}  // namespace orvanite::view
