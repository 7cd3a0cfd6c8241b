// SPDX-License-Identifier: BSD-3-Clause
//
// A shot's first key, looked for in one frame of its plate: the screen's colour found or picked,
// all parameters set, a clean plate estimated. The one place that decides it: the command, `info`
// and the page give one plate one key.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "keyer/AutoKey.h"
#include "keyer/BlindKey.h"
#include "shot/Shot.h"

namespace orvanite::shot {

/// What to look for.
struct FirstKeyWish {
  bool everything = false;    // the screen and all that follows from it
  bool screenColour = false;  // the screen's colour alone
  bool cleanPlate = false;    // an estimated clean plate, whatever the screen is like
  std::optional<Box> at;      // takes the screen's colour from here
  Average average = Average::median;
  std::optional<int> frame;  // where to look; none: the first
};

/// What was found; the settings have it.
struct FirstKey {
  std::optional<Screen> screen;  // where one was looked for
  std::vector<std::string> set;  // the parameters that were set, in the table's order
  bool cleanPlate = false;       // whether they are meant for estimated clean plates
  // What was estimated, where everything was wished and a clean plate could be, or the settings say
  // so; frames are rendered beside it then.
  std::shared_ptr<const BlindKey> blind;

  /// What was decided beyond parameters, for a person to see; empty: nothing.
  std::string decided() const;

  /// A frame's clean plate, of the plate's window. Only where `cleanPlate` says so.
  media::Picture cleanPlateOf(const media::Picture& plate) const;
};

using orvanite::keysBesideEstimates;

/// The estimates of a shot, from the frame that is looked at and a few others, the same ones
/// whatever part is keyed. Of the settings they depend on what BlindKey::suits looks at. Throws
/// Error as findFirstKey.
BlindKey estimatesOf(const Shot& shot, const Settings& settings,
                     std::optional<int> frame = std::nullopt);

/// Looks, and sets what it finds; parameters that were given stay. Wants the colourspace to be set.
/// Throws Error as Shot::toLookAt does, and with these subjects: "screenAt" (wrongUse) a box that
/// lies outside; "auto", "screen" or "reference" (failure) what was wished where there is no
/// screen; "reference" (wrongUse) a clean plate for a depth that has none.
FirstKey findFirstKey(const Shot& shot, const FirstKeyWish& wish, Settings& settings);

}  // namespace orvanite::shot
