// SPDX-License-Identifier: BSD-3-Clause
//
// Settings as a call of the node's script function.
// Knows the settings only.
#pragma once

#include <string>

#include "apps/view/Footage.h"
#include "keyer/Settings.h"

namespace orvanite::view {

/// A few lines of script that read the pictures and key them as the page does. What the node has
/// no argument for is said in a comment above the call.
std::string scriptFor(const FootageFiles& files, const Settings& settings);

}  // namespace orvanite::view
