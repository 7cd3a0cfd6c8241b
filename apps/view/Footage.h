// SPDX-License-Identifier: BSD-3-Clause
//
// The pictures of the shot that was named at the start, decoded and kept within a bound of memory,
// at full size and as the smaller proxies that are keyed while a control moves. Nothing else is
// ever read.
#pragma once

#include <cstddef>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/Depth.h"
#include "keyer/Settings.h"
#include "shot/FirstKey.h"
#include "shot/Shot.h"

namespace orvanite::view {

using shot::Role;
using shot::roles;

struct FootageInfo {
  int width = 0, height = 0;   // of the plate's frame, which is what is shown
  Depth depth = Depth::bytes;  // that everything is keyed in
  media::Samples samples = media::Samples::uint8;
  std::vector<int> frames;  // ascending; a still has one
  bool isShot = false;
  double framesPerSecond = 24;  // where the plate does not say
  Inputs inputs;
  std::string colourspace;  // what the plate's file suggests, and why
  std::string reason;
  std::vector<std::string> notices;  // what had to be assumed about the files
};

class Footage {
 public:
  using Shared = std::shared_ptr<const media::Picture>;

  /// Opens the files as `orvanite key` does. Throws Error.
  ///
  /// cacheBytes  bound of the decoded pictures that are kept; those in use are never dropped
  Footage(shot::ShotFiles files, std::size_t cacheBytes, media::ColourPath colours = {});

  const shot::Shot& shot() const { return shot_; }
  const FootageInfo& info() const { return info_; }

  /// A picture at the depth that everything is keyed in, read if it is not there yet. A background
  /// has no alpha, so that a composite's is the matte.
  ///
  /// channel  of a matte: the one that is read into alpha; ignored for the others
  /// divisor  1 for the picture itself; n for one of ceil(width / n) x ceil(height / n) pixels,
  ///          each the mean of n x n
  /// Throws Error when the file cannot be read any more or has no such channel.
  Shared picture(Role role, int frame, const std::string& channel, int divisor);

  /// The plate's own pixels in a frame, whose corner is 0, 0: a file may hold less, or more. What a
  /// picture has beside them is black.
  media::Window ownPixels(int frame);

  /// What is estimated from the plate, for a frame: made when it is asked for first, and again for
  /// settings that make others. Throws Error where the plate shows no screen.
  std::shared_ptr<const BlindKey> estimates(const Settings& settings, int frame, int divisor);

  /// The first key, looked for in a frame. One search at a time; pictures are read meanwhile, but
  /// for clips that one thread must read. What was estimated from the first frame is kept for
  /// `estimates`. Throws Error as shot::findFirstKey does.
  shot::FirstKey find(const shot::FirstKeyWish& wish, Settings& settings);

  /// The files that a frame is keyed from.
  std::vector<std::string> filesOf(int frame) const;

  /// Bytes of the pictures that are kept now.
  std::size_t cachedBytes() const;

 private:
  struct Key {
    Role role;
    int frame;
    std::string channel;
    int divisor;
    auto operator<=>(const Key&) const = default;
  };
  struct Entry {
    Key key;
    Shared picture;
  };

  Shared find(const Key& key);
  void keep(const Key& key, const Shared& picture);
  std::unique_lock<std::mutex> turnToRead(Role role);
  media::Picture read(const Key& key);

  shot::Shot shot_;
  std::mutex reading_;  // of clips that one thread at a time must read
  FootageInfo info_;
  std::size_t cacheBytes_;
  mutable std::mutex mutex_;
  std::list<Entry> entries_;  // the one used last stands first
  std::size_t bytes_ = 0;
  struct Estimates {
    int frame = 0, divisor = 0;
    std::shared_ptr<const BlindKey> key;
  };
  std::mutex finding_;
  std::mutex estimating_;
  std::shared_ptr<const BlindKey> shotEstimates_;  // of the whole shot
  std::list<Estimates> frameEstimates_;            // of the frames asked for last
  std::map<int, media::Window> ownPixels_;         // of frames that were asked for
};

}  // namespace orvanite::view
