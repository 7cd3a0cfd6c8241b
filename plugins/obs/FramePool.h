// SPDX-License-Identifier: BSD-3-Clause
//
// Frames of our own that libobs and other filters may hold for as long as they like: each has one
// reference of ours and, while it is out, one of who has it. One that came back is used again, so
// that nothing is allocated once as many frames are there as are out at a time.
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
  void forget(obs_source_frame* frame);
  std::vector<obs_source_frame*> frames_;
};

}  // namespace orvanite::obsPlugin
