// SPDX-License-Identifier: BSD-3-Clause
//
// One view of a frame of the footage, keyed by the real engine: what the page shows.
// Knows Footage and the keyer.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <optional>

#include "apps/view/Footage.h"
#include "apps/view/PageView.h"
#include "keyer/BlindKeyer.h"
#include "keyer/Keyer.h"
#include "keyer/Settings.h"

namespace orvanite::view {

class FrameKeyer {
 public:
  explicit FrameKeyer(Footage& footage) : footage_(footage) {}

  /// A part of a frame, whose alpha is the matte, and what was counted of the whole frame's.
  struct Keyed {
    media::Picture picture;
    std::optional<MatteMeasure> measure;
  };

  /// Keys a region of a frame; measured, the whole frame at once, of which the region is returned.
  ///
  /// divisor   of the pictures that are keyed: 1, or more for a proxy
  /// region    in pixels of that size
  /// masks     drawn over the plate: they join the mattes
  /// measured  with the count of the whole frame's matte
  /// wanted    called before each band; false gives up: nothing returned
  /// Throws Error for settings that cannot key and for files that cannot be read.
  std::optional<Keyed> key(const Settings& settings, PageView view, int frame, int divisor,
                           const media::Window& region, const Masks& masks, bool measured,
                           const std::function<bool()>& wanted);

 private:
  // A frame keyed whole, as estimates want it, though a part or one pixel of it was asked for.
  struct Whole {
    Settings settings;  // the engine's
    bool chequered;
    int frame, divisor;
    Masks masks;
    std::shared_ptr<const media::Picture> picture;
  };

  Footage& footage_;
  std::list<Whole> whole_;  // the one used last stands first
  Keyer keyer_;
  BlindKeyer beside_;  // where the settings key beside estimates
};

}  // namespace orvanite::view
