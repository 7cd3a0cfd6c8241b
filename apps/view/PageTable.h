// SPDX-License-Identifier: BSD-3-Clause
//
// Parameters and mattes in the page's terms. Shared with the page that has no server: knows the
// keyer alone.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "apps/view/PageView.h"
#include "keyer/Settings.h"

namespace orvanite::view {

/// The parameter table: an array of what a panel needs to know of each parameter.
nlohmann::json parameterTable();

/// The values that were given, as texts by name.
nlohmann::json givenTexts(const Settings& settings);

/// The values that follow the screen where nobody gave them, as they are in force.
nlohmann::json inForceTexts(const Settings& settings);

nlohmann::json measureReply(const MatteMeasure& measure);

}  // namespace orvanite::view
