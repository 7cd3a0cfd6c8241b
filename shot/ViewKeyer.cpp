// SPDX-License-Identifier: BSD-3-Clause
#include "shot/ViewKeyer.h"

#include <utility>

namespace orvanite::shot {

struct ViewKeyer::Either {
  Keyer plain;
  BlindKeyer beside;  // where a whole key was found
};

ViewKeyer::ViewKeyer(const Settings& settings, std::shared_ptr<const BlindKey> found, Depth depth,
                     const Inputs& present)
    : settings_(settings),
      moves_(settings.moves()),
      found_(std::move(found)),
      depth_(depth),
      present_(present),
      one_(std::make_unique<Either>()) {
  // Where the parameters move this says in time what cannot be keyed at all.
  prepare(*one_, settings_.at(0));
  if (moves_) free_.push_back(std::move(one_));
}

ViewKeyer::~ViewKeyer() = default;

void ViewKeyer::prepare(Either& keyer, const Settings& still) const {
  if (found_) {
    keyer.beside.prepare(*found_, still, depth_, present_);
  } else {
    keyer.plain.prepare(still, depth_, present_);
  }
}

ViewKeyer::Lent ViewKeyer::take(int number) {
  Lent keyer;
  {
    const std::lock_guard lock(mutex_);
    if (!free_.empty()) {
      keyer = std::move(free_.back());
      free_.pop_back();
    }
  }
  if (!keyer) keyer = std::make_unique<Either>();
  prepare(*keyer, settings_.at(number));
  return keyer;
}

void ViewKeyer::render(int number, const BlindKey* own, const Frame& frame, int threads) {
  Lent lent = moves_ ? take(number) : nullptr;
  const Either& keyer = lent ? *lent : *one_;
  if (own) {
    keyer.beside.render(*own, frame, threads);
  } else {
    keyer.plain.render(frame, threads);
  }
  if (!lent) return;
  const std::lock_guard lock(mutex_);
  free_.push_back(std::move(lent));
}

}  // namespace orvanite::shot
