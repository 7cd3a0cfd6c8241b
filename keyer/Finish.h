// SPDX-License-Identifier: BSD-3-Clause
//
// The finish in numbers: what is done to a key after the engine, read off the settings once.
// Order: the matte is clipped, its edge is refined, islands and pinholes go, the edge moves and is
// softened, the garbage matte cuts; then edges take their colour from inside, spill goes, the
// background's light comes around the edge; then the view that was asked for is put together. Knows
// settings.
#pragma once

#include <array>

#include "keyer/Settings.h"

namespace orvanite {

/// What takes the place of spill; the texts of the parameter spillReplace in order.
enum class SpillReplace { nothing, grey, brightness, background };

/// The finish in force. Lengths are in the pixels of the frames that are keyed.
struct Finish {
  float black = 0;                                    // of the matte: clear up to here
  float white = 1;                                    // solid from here
  float gamma = 1;                                    // the curve between
  float refine = 0;                                   // 0..1
  std::array<float, 3> screen{};                      // its colour, where there is no clean plate
  bool graded = false;                                // whether the foreground has a grade
  int islands = 0;                                    // pixels across
  int pinholes = 0;                                   // likewise
  float shrink = 0;                                   // pixels; grows below 0
  float soften = 0;                                   // pixels
  float edgeColour = 0;                               // 0..1
  int edgeReach = 1;                                  // pixels
  float spill = 0;                                    // 0..1
  float spillLimit = 0;                               // 0..1
  SpillReplace spillReplace = SpillReplace::nothing;  // what takes its place
  int primary = 1;                                    // the screen's strongest channel
  float wrap = 0;                                     // 0..1; 0 where there is no background
  int wrapReach = 1;                                  // pixels

  /// The finish of these settings for pictures of which those in `inputs` exist.
  /// scale  the keyed frames' size over the full one's: lengths shrink with a proxy
  static Finish of(const Settings& settings, const Inputs& inputs, float scale = 1);

  /// Whether the matte's curve is other than a straight line.
  bool clips() const { return black > 0 || white < 1 || gamma != 1; }
  /// Whether colours change.
  bool colours() const { return edgeColour > 0 || spill > 0 || wrap > 0; }
  /// Whether there is anything to do; nothing is computed or allocated otherwise.
  bool on() const {
    return clips() || refine > 0 || islands > 0 || pinholes > 0 || shrink != 0 || soften > 0 ||
           colours();
  }
  /// Whether the colours of the background's surroundings are looked at.
  bool looksBehind() const {
    return wrap > 0 || (spill > 0 && spillReplace == SpillReplace::background);
  }
  /// How far around a pixel its result depends on others: a part of a frame that is keyed with as
  /// much around it, as far as the frame goes, equals that part of the whole frame.
  int border() const;
  /// Whether the same is done.
  bool operator==(const Finish&) const = default;
};

/// Whether a frame's background picture is needed: for the view, or for its light.
bool needsBackground(const Settings& settings, const Inputs& inputs);

}  // namespace orvanite
