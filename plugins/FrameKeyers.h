// SPDX-License-Identifier: BSD-3-Clause
//
// Keyers of whole frames, for what looks at more than a pixel: a finish, and keys beside estimates.
// Each is set up once for its settings and shared by all renders that want the same.
#pragma once

#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "keyer/BlindKeyer.h"
#include "keyer/Keyer.h"
#include "plugins/EnginePool.h"

namespace orvanite {

/// What was made last, by what it was made from. Any thread.
template <class From, class Made>
class Latest {
 public:
  /// What was made from `from`, or else what `make` returns: made once, whoever asks meanwhile
  /// waits. What make throws is thrown, and nothing is kept.
  template <class Make>
  std::shared_ptr<const Made> get(const From& from, const Make& make) {
    const std::shared_ptr<Place> place = placeOf(from);
    const std::lock_guard guard(place->lock);
    if (!place->made) place->made = make();
    return place->made;
  }

  void clear() {
    const std::lock_guard guard(lock_);
    places_.clear();
  }

 private:
  static constexpr std::size_t kept = 2;  // a host renders two frames of a moving parameter in turn

  struct Place {
    explicit Place(From what) : from(std::move(what)) {}
    From from;
    std::mutex lock;
    std::shared_ptr<const Made> made;
  };

  std::shared_ptr<Place> placeOf(const From& from) {
    const std::lock_guard guard(lock_);
    for (auto at = places_.begin(); at != places_.end(); ++at) {
      if (!((*at)->from == from)) continue;
      places_.splice(places_.begin(), places_, at);
      return places_.front();
    }
    places_.push_front(std::make_shared<Place>(from));
    if (places_.size() > kept) places_.pop_back();
    return places_.front();
  }

  std::mutex lock_;
  std::list<std::shared_ptr<Place>> places_;  // most recently used first
};

/// Keyers of whole frames. Any thread; what they throw is Keyer::prepare's.
class FrameKeyers {
 public:
  /// scale  the frames' size over the full one's
  std::shared_ptr<const Keyer> keyer(const Recipe& recipe, float scale = 1) {
    return plain_.get({recipe, scale}, [&] {
      auto made = std::make_shared<Keyer>();
      made->prepare(recipe.settings, recipe.depth, recipe.inputs, scale);
      return made;
    });
  }

  /// The same beside estimates of that kind, which `key` shows.
  std::shared_ptr<const BlindKeyer> beside(const BlindKey& key, const Recipe& recipe,
                                           float scale = 1) {
    return beside_.get({recipe, scale}, [&] {
      auto made = std::make_shared<BlindKeyer>();
      made->prepare(key, recipe.settings, recipe.depth, recipe.inputs, scale);
      return made;
    });
  }

  void purge() {
    plain_.clear();
    beside_.clear();
  }

 private:
  using From = std::pair<Recipe, float>;
  Latest<From, Keyer> plain_;
  Latest<From, BlindKeyer> beside_;
};

}  // namespace orvanite
