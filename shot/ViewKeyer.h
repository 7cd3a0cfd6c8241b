// SPDX-License-Identifier: BSD-3-Clause
//
// Keys one view of a shot's frames, any number of them at once. Where nothing moves one keyer does
// for all; where a parameter moves every frame has a keyer of its own meanwhile, with the settings
// of that frame, so that no frame knows which ones were keyed before it.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "keyer/BlindKeyer.h"
#include "keyer/Keyer.h"

namespace orvanite::shot {

class ViewKeyer {
 public:
  /// settings  with the view as their output
  /// found     the key that frames are keyed with, where a whole one was found; else null
  /// present   the pictures that there are for the keyer
  /// Throws Error as the keyers do.
  ViewKeyer(const Settings& settings, std::shared_ptr<const BlindKey> found, Depth depth,
            const Inputs& present);
  ~ViewKeyer();

  /// Keys a frame. `own` is the found key carried to it, and as long as there is one. Throws Error
  /// as the keyers do.
  void render(int number, const BlindKey* own, const Frame& frame, int threads);

 private:
  struct Either;
  using Lent = std::unique_ptr<Either>;
  void prepare(Either& keyer, const Settings& still) const;
  Lent take(int number);

  Settings settings_;
  bool moves_;
  std::shared_ptr<const BlindKey> found_;
  Depth depth_;
  Inputs present_;
  Lent one_;  // where nothing moves
  std::mutex mutex_;
  std::vector<Lent> free_;
};

}  // namespace orvanite::shot
