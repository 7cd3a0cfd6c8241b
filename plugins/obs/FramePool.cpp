// SPDX-License-Identifier: BSD-3-Clause
//
// See FramePool.h.
#include "plugins/obs/FramePool.h"

#include <util/platform.h>
#include <util/threading.h>

#include <algorithm>
#include <cstddef>

namespace orvanite::obsPlugin {

namespace {
// Frames kept that nobody has. More of them are there when a filter that delayed frames is gone.
constexpr int idleKept = 2;

bool isOut(const obs_source_frame* frame) { return os_atomic_load_long(&frame->refs) > 1; }
}  // namespace

// Frames that are out come back soon, after they were drawn: they are waited for. One that just
// came back is still looked at by libobs for a moment, which it has the graphics to itself for.
FramePool::~FramePool() {
  constexpr int waits = 500, waitMilliseconds = 1;
  for (int i = 0; i < waits && std::any_of(frames_.begin(), frames_.end(), isOut); ++i) {
    os_sleep_ms(waitMilliseconds);
  }
  obs_enter_graphics();
  for (obs_source_frame* frame : frames_) forget(frame);
  obs_leave_graphics();
}

// Who gives back a frame last destroys it.
void FramePool::forget(obs_source_frame* frame) {
  if (os_atomic_dec_long(&frame->refs) == 0) obs_source_frame_destroy(frame);
}

obs_source_frame* FramePool::take(std::uint32_t width, std::uint32_t height) {
  obs_source_frame* found = nullptr;
  int idle = 0;
  for (std::size_t i = 0; i < frames_.size();) {
    obs_source_frame* const frame = frames_[i];
    const bool fits = frame->width == width && frame->height == height;
    if (isOut(frame) || (fits && ++idle <= idleKept)) {
      if (!isOut(frame) && fits && !found) found = frame;
      ++i;
    } else {
      forget(frame);
      frames_[i] = frames_.back();
      frames_.pop_back();
    }
  }
  if (!found) {
    frames_.reserve(frames_.size() + 1);
    found = obs_source_frame_create(VIDEO_FORMAT_RGBA, width, height);
    found->refs = 1;
    frames_.push_back(found);
  }
  os_atomic_inc_long(&found->refs);
  return found;
}

}  // namespace orvanite::obsPlugin
