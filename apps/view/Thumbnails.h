// SPDX-License-Identifier: BSD-3-Clause
//
// Small pictures of the plate's frames, for the strip below the timeline. They have a reader of
// their own and keep nothing but what is shown: the pictures that are keyed are neither waited for
// nor pushed out of their store.
// Knows shot and Proxy.
#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <mutex>
#include <optional>

#include "apps/view/Proxy.h"
#include "shot/Shot.h"

namespace orvanite::view {

class Thumbnails {
 public:
  using Shared = std::shared_ptr<const ScreenPicture>;

  /// No larger than this, where frames are no larger than 256 times as much.
  static constexpr int widest = 160, tallest = 90;
  /// Of the pictures that are kept: some 145 of the largest.
  static constexpr std::size_t mostBytes = std::size_t{8} << 20;

  /// Opens nothing before a picture is asked for.
  Thumbnails(const shot::ShotFiles& files, media::ColourPath colours);

  /// A frame's picture as a screen shows the plate: the mean of the pixels under each of its own.
  /// One is read at a time; callers wait. Throws Error where there is no such frame, or it cannot
  /// be read.
  Shared of(int frame);

  /// Bytes of the pictures that are kept now.
  std::size_t keptBytes() const;

 private:
  struct Entry {
    int frame;
    Shared picture;
  };

  ScreenPicture read(int frame);

  shot::ShotFiles files_;
  media::ColourPath colours_;
  mutable std::mutex mutex_;
  std::optional<shot::Shot> shot_;
  std::list<Entry> kept_;  // the one used last stands first
  std::size_t bytes_ = 0;
};

}  // namespace orvanite::view
