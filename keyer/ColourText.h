// SPDX-License-Identifier: BSD-3-Clause
//
// Colours as people write them beside R,G,B in 0..1: 00b140 behind a hash sign, green, 0,177,64.
// Uses the standard library only.
#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace orvanite {

/// The colour of a text, in display codes divided by 255: three or six hexadecimal digits behind a
/// hash sign; a name (green and blue are the paints of screens, 00b140 and 0047bb; black, white,
/// grey, gray and red are themselves); three whole numbers to 255 of which one is above 1. None for
/// any other text.
std::optional<std::array<float, 3>> displayColour(std::string_view text);

}  // namespace orvanite
