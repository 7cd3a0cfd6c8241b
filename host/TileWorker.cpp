// SPDX-License-Identifier: BSD-3-Clause
//
// Keying the requested region: every thread takes its share of the four buffers, paints what lies
// outside the foreground's domain with the screen colour and has the engine key it in place.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "host/NRxOrvanite.h"
#include "platform/NRiThread.h"

namespace {

enum Buffer { kFg, kBg, kHold, kGarbage };

// Shared by all workers, read only but for the refusal; lives in fillOutputBuffer's frame.
struct Job {
  NRiIBuf* const* buffers;
  NRiIPlug* const* inputs;
  NRiRect roi;
  int depth;
  int holdActive;
  int garbageActive;
  int holdElement;  // of a pixel, where the matte lies
  int garbageElement;
  QMXOrvaniteTable* engine;
  float screen[3];  // blue, green, red
  std::atomic<bool> refused = false;
};

// The rectangle that every share is taken from.
NRiRect whole(const Job& job) {
  const NRiIBuf& foreground = *job.buffers[kFg];
  return {job.roi.x1, foreground.firstLine, job.roi.x2, foreground.firstLine + foreground.lines};
}

// This thread's share of a buffer, with four channels of which those in `wanted` are filled.
void take(const Job& job, const NRiThread& thread, Buffer which, int wanted, NRiIBuf& slice,
          NRiRect& rect) {
  rect = whole(job);
  job.buffers[which]->threadIBuf(slice, rect, job.depth, thread.number(), thread.count(), 0);
  if (rect.empty()) return;
  NRiBPixel background;
  job.inputs[which]->getBPixel(background);
  slice.expand(rect.x2 - rect.x1, job.depth, background, job.inputs[which]->channels()->asInt(),
               wanted);
}

OtileImage described(const NRiIBuf& slice, int depth, int width) {
  auto* const data = static_cast<std::byte*>(slice.data);
  return {data + std::ptrdiff_t{3} * depth, data + std::ptrdiff_t{2} * depth, data + depth, data, 4,
          4 * width + slice.extra};
}

template <class T>
T screenElement(float value) {
  if constexpr (sizeof(T) == 4) {
    return value;
  } else {
    const auto top = static_cast<float>(static_cast<T>(~T{0}));
    const float code = std::trunc(std::fma(value, top, 0.5f));
    return code > 0.0f ? static_cast<T>(std::min(code, top)) : T{0};
  }
}

// Paints red, green and blue of every pixel of the share that lies outside the domain; alpha stays.
template <class T>
void paintOutside(const Job& job, const NRiIBuf& slice, const NRiRect& rect, const NRiRect& dod) {
  const T blue = screenElement<T>(job.screen[0]);
  const T green = screenElement<T>(job.screen[1]);
  const T red = screenElement<T>(job.screen[2]);
  const int width = rect.x2 - rect.x1;
  const std::ptrdiff_t step = std::ptrdiff_t{4} * width + slice.extra;
  T* line = static_cast<T*>(slice.data);
  const auto paint = [&](int from, int to) {
    for (T* pixel = line + std::ptrdiff_t{4} * from; from < to; ++from, pixel += 4) {
      pixel[1] = blue;
      pixel[2] = green;
      pixel[3] = red;
    }
  };
  for (int y = rect.y1; y < rect.y2; ++y, line += step) {
    if (y < dod.y1 || y >= dod.y2) {
      paint(0, width);
      continue;
    }
    // The second starts where the first ended when the domain has no width.
    const int left = std::clamp(dod.x1, rect.x1, rect.x2) - rect.x1;
    const int right = std::clamp(dod.x2, rect.x1, rect.x2) - rect.x1;
    paint(0, left);
    paint(std::max(left, right), width);
  }
}

void matte(const Job& job, const NRiThread& thread, Buffer which, int element, NRiIBuf& slice,
           OtileImage& image) {
  NRiRect rect;
  take(job, thread, which, 1 << element, slice, rect);
  const OtileImage all = described(slice, job.depth, rect.x2 - rect.x1);
  image.alpha = static_cast<std::byte*>(slice.data) + std::ptrdiff_t{element} * job.depth;
  image.pixelStep = all.pixelStep;
  image.lineStep = all.lineStep;
}

void work(NRiThread* thread, void* data) {
  Job& job = *static_cast<Job*>(data);
  if (!job.buffers[kFg]->data) return;
  NRiIBuf fgSlice, holdSlice, garbageSlice, bgSlice;
  NRiRect rect;
  take(job, *thread, kFg, 14, fgSlice, rect);
  if (rect.empty()) return;
  const int width = rect.x2 - rect.x1;
  const int lines = rect.y2 - rect.y1;

  Otile tile{};
  tile.fg = described(fgSlice, job.depth, width);
  const NRiRect dod = job.inputs[kFg]->getDod();
  if (job.depth == 1) paintOutside<std::uint8_t>(job, fgSlice, rect, dod);
  if (job.depth == 2) paintOutside<std::uint16_t>(job, fgSlice, rect, dod);
  if (job.depth == 4) paintOutside<float>(job, fgSlice, rect, dod);
  tile.dst = tile.fg;

  if (job.holdActive && job.buffers[kHold]->data) {
    matte(job, *thread, kHold, job.holdElement, holdSlice, tile.hold);
  }
  if (job.garbageActive && job.buffers[kGarbage]->data) {
    matte(job, *thread, kGarbage, job.garbageElement, garbageSlice, tile.garbage);
  }
  if (job.buffers[kBg]->data) {
    take(job, *thread, kBg, 15, bgSlice, rect);
    tile.bg = described(bgSlice, job.depth, width);
  }
  if (orvanite_render(job.engine, job.depth, width, lines, &tile) != 0) job.refused = true;
}

}  // namespace

void NRxOrvanite::fillOutputBuffer() {
  refused_ = false;
  if (lutFailed_) return;  // the foreground shows unkeyed
  Job job{buffers_,        inputs_,
          out_->getRoi(),  outputDepth_->asInt(),
          hold_.active,    garbage_.active,
          hold_.element(), garbage_.element(),
          engine_,         {screen_[2]->asFloat(), screen_[1]->asFloat(), screen_[0]->asFloat()}};
  NRiThread::m_fork(work, &job);
  refused_ = job.refused;
}
