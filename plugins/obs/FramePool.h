// SPDX-License-Identifier: BSD-3-Clause
//
// Frames of our own that libobs and other filters may hold for as long as they like: each has one
// reference of ours and, while a filter has it or it is drawn, one of theirs. Between filters and
// drawing libobs has none: it keeps the newest frame, when it deinterlaces the two newest, and lets
// go of them in the next tick. So a frame rests a while before it is used again or freed, and
// nothing is allocated once as many frames are there as are out at a time.
#pragma once

#include <obs.h>

#include <cstdint>
#include <vector>

namespace orvanite::obsPlugin {

/// One thread at a time; frames come back on any.
class FramePool {
 public:
  FramePool() = default;
  FramePool(const FramePool&) = delete;
  FramePool& operator=(const FramePool&) = delete;
  ~FramePool();

  /// An RGBA frame of that size, to be released by obs_source_release_frame.
  obs_source_frame* take(std::uint32_t width, std::uint32_t height);

 private:
  struct Lent {
    obs_source_frame* frame;
    std::uint64_t at;  // the last time, in calls of take
  };
  bool rests(const Lent& lent) const;
  std::vector<Lent> frames_;
  std::uint64_t takes_ = 0;
};

}  // namespace orvanite::obsPlugin
