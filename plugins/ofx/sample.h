// SPDX-License-Identifier: BSD-3-Clause
//
// Measuring a screen's colour on one picture of a host. Uses the standard library only.
#pragma once

#include <array>
#include <optional>

#include "plugins/ofx/window.h"

namespace orvanite::ofxPlugin {

/// The colour of the blue or green screen in a picture of a depth (1, 2 or 4) and three or four
/// channels: the channel-wise median of its most saturated half, so that shadows, spill, grain and
/// a subject before it move it little. 1.0 is the depth's white. Empty when less than a hundredth
/// of the picture leans towards blue or green.
std::optional<std::array<double, 3>> measureScreen(const Picture& picture, int depth);

}  // namespace orvanite::ofxPlugin
