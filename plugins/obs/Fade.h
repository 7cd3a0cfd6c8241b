// SPDX-License-Identifier: BSD-3-Clause
//
// From one key to a better one without a jump: for half a second frames are keyed by both.
#pragma once

#include <obs.h>
#include <orvanite/keyer.h>

#include <cstdint>
#include <vector>

#include "plugins/obs/ScreenSearch.h"

namespace orvanite::obsPlugin {

class Fade {
 public:
  /// How many frames it takes.
  static constexpr int frames = 30;

  bool running() const { return keyer_ != nullptr; }
  void start(OwnKeyer from);
  void stop();

  /// Keys the pictures' plate by the old keyer, and keeps what came out. Before the new one keys,
  /// which may do so in place. False where it cannot be keyed any more.
  bool key(OrvaniteFrame pictures);
  /// Mixes it into what the new one made: frame by frame less of it.
  /// cutOut  whether colours are straight, beside their matte in alpha
  void mixInto(obs_source_frame& frame, bool cutOut);

 private:
  OwnKeyer keyer_;
  int step_ = 0;
  std::vector<std::uint8_t> old_;  // RGBA without gaps
};

}  // namespace orvanite::obsPlugin
