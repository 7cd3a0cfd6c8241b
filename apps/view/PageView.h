// SPDX-License-Identifier: BSD-3-Clause
//
// What the page can show of a frame, and what of that is no key: the settings behind a view, the
// squares below it, the count of its matte. Shared with the page that has no server, so that it
// knows the keyer and pixels in memory only.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "base/Depth.h"
#include "keyer/Settings.h"

namespace orvanite::view {

enum class PageView {
  plate,
  matte,
  status,
  foreground,
  composite,
  overBlack,
  overGrey,
  overChecker,
  output  // what the parameter of that name says: what `orvanite key` writes
};

/// The view of that name ("overBlack"), if there is one.
std::optional<PageView> pageViewOf(std::string_view name);

/// Whether colours of a depth in a colourspace are light: integers are codes whatever they stand
/// for.
bool holdsLight(Depth depth, std::string_view colourspace);

/// Whether a view's colours are light, by the colourspace in force: a screen shows their codes.
bool showsLight(PageView view, Depth depth, const Settings& settings);

/// Rows of interleaved RGBA floats as a screen shows them: clipped to 0..1, to the nearest code of
/// 8 bits. What is no number is 0. light  whether colours are light, whose codes of sRGB are shown;
/// alpha never is
void toCodes(const float* samples, std::size_t pixels, std::uint8_t* codes, bool light);

/// The settings with which the engine shows a view. The plate needs no engine.
/// light  whether its colours are light
Settings settingsFor(PageView view, Settings settings, bool light);

/// Fills interleaved RGBA samples with squares of two greys; alpha 0, so that a composite's stays
/// the matte.
///
/// x, y           of the first pixel, so that squares keep their places
/// width, height  pixels
/// divisor        one pixel stands for divisor x divisor of the plate
/// light          paint the greys' light, not their codes
void paintChecker(std::byte* pixels, Depth depth, int x, int y, int width, int height, int divisor,
                  bool light);

/// Takes the alpha out of interleaved RGBA samples of a background: a composite's alpha is its
/// matte joined with the background's, and then it is the matte. Files of composites have neither.
void makeTransparent(std::byte* pixels, Depth depth, std::size_t count);

/// How many pixels have which matte.
struct MatteMeasure {
  std::array<std::uint32_t, 256> bins{};
  std::uint64_t clear = 0, between = 0, solid = 0;  // pixels
};

/// Counts the alphas of interleaved RGBA samples, each for `weight` pixels.
MatteMeasure measureOf(const std::byte* pixels, Depth depth, std::size_t count,
                       std::uint32_t weight);

}  // namespace orvanite::view
