// SPDX-License-Identifier: BSD-3-Clause
//
// A matte's edge led by the plate's colours, in two steps. What lies between the screen's colour
// and the subject's nearby is so far on the way from one to the other: a soft pixel's matte goes a
// part of the way there, and is at least a part of what is of another hue than the screen. Then,
// around an edge the matte is nearly a line over red, green and blue, and that line knows less of
// grain than one pixel does: the guided filter of He, Sun and Tang (Guided Image Filtering, 2010)
// over squares of five pixels. Single precision, each operation rounded as written, sums in a fixed
// order (keyer/simd/RowSubject.h, keyer/simd/RowGuide.h). Beyond the frame its outermost pixels go
// on. Knows the engine's tile images.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "keyer/Finish.h"
#include "keyer/FinishColour.h"

namespace orvanite {

/// How far around a pixel the refined matte looks, in pixels.
inline constexpr int refineBorder = 12;

/// Columns of a row; first above last: none.
struct RowSpan {
  int first = std::numeric_limits<int>::max();  ///< the leftmost
  int last = std::numeric_limits<int>::min();   ///< the rightmost, too
};

/// Room for one thread, kept from tile to tile.
struct RefineScratch {
  std::vector<RowSpan> spans;        ///< what is refined of each row
  std::vector<std::uint16_t> uncut;  ///< a row of the matte
  std::vector<float> values;         ///< rows of colours and matte that come round again
  std::vector<float> lines;          ///< likewise of lines
  std::vector<float> screen;         ///< a row of the screen's colours
  std::vector<std::int32_t> held;    ///< rows of the subject that come round again
  std::vector<std::int32_t> sums;    ///< of their columns
};

/// The refined matte of a tile: pixels that are neither clear nor solid, by more than a 255th, go
/// finish.refine of the way to what their colours say.
///
/// plate    the frame as it was shot
/// screen   its clean plate; null: finish.screen everywhere
/// matte    its matte
/// garbage  the garbage matte; null: none. What it cuts whole is not looked at
/// area     the tile
/// refined  where the whole frame's refined matte is put together; rows as wide as the frame
/// Returns the part of the tile outside which nothing has changed.
template <class Sample>
FrameArea refineMatte(const Finish& finish, const Pixels<Sample>& plate,
                      const Pixels<Sample>* screen, const MatteRows& matte,
                      const Pixels<Sample>* garbage, const FrameArea& area, RefineScratch& scratch,
                      std::uint16_t* refined);

}  // namespace orvanite
