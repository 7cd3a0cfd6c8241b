// SPDX-License-Identifier: BSD-3-Clause
//
// See FramePool.h.
#include "plugins/obs/FramePool.h"

#include <util/platform.h>
#include <util/threading.h>

#include <algorithm>
#include <atomic>
#include <cstddef>

namespace orvanite::obsPlugin {

namespace {
// Frames kept that nobody has. More of them are there when a filter that delayed frames is gone.
constexpr int idleKept = 3;

// Frames that libobs may have without a reference.
constexpr std::uint64_t held = 2;

bool isOut(const obs_source_frame* frame) { return os_atomic_load_long(&frame->refs) > 1; }

// Who gives back a frame last destroys it.
void forget(obs_source_frame* frame) {
  if (os_atomic_dec_long(&frame->refs) == 0) obs_source_frame_destroy(frame);
}
}  // namespace

// Waits until all came back and libobs has begun three ticks since, so that two are over: no source
// has one of them any more. Where nothing ticks, nothing is drawn either.
FramePool::~FramePool() {
  if (frames_.empty()) return;
  constexpr int enough = 3, waits = 500, waitMilliseconds = 1;
  std::atomic<int> ticks = 0;
  const auto count = [](void* counted, float) { ++*static_cast<std::atomic<int>*>(counted); };
  obs_add_tick_callback(count, &ticks);
  for (int i = 0; i < waits && ticks < enough; ++i) {
    if (std::any_of(frames_.begin(), frames_.end(), [](auto& lent) { return isOut(lent.frame); })) {
      ticks = 0;
    }
    os_sleep_ms(waitMilliseconds);
  }
  obs_remove_tick_callback(count, &ticks);
  for (const Lent& lent : frames_) forget(lent.frame);
}

bool FramePool::rests(const Lent& lent) const {
  return !isOut(lent.frame) && takes_ - lent.at > held;
}

obs_source_frame* FramePool::take(std::uint32_t width, std::uint32_t height) {
  ++takes_;
  Lent* found = nullptr;
  int idle = 0;
  for (std::size_t i = 0; i < frames_.size();) {
    Lent& lent = frames_[i];
    const bool fits = lent.frame->width == width && lent.frame->height == height;
    if (!rests(lent)) {
      ++i;
    } else if (fits && ++idle <= idleKept) {
      if (!found) found = &lent;
      ++i;
    } else {
      forget(lent.frame);
      lent = frames_.back();
      frames_.pop_back();
    }
  }
  if (!found) {
    frames_.reserve(frames_.size() + 1);
    obs_source_frame* const made = obs_source_frame_create(VIDEO_FORMAT_RGBA, width, height);
    made->refs = 1;
    found = &frames_.emplace_back(Lent{made, 0});
  }
  found->at = takes_;
  os_atomic_inc_long(&found->frame->refs);
  return found->frame;
}

}  // namespace orvanite::obsPlugin
