// SPDX-License-Identifier: BSD-3-Clause
//
// A render that the page asked for: every frame keyed at full size and written, on a thread of its
// own, one job at a time. The files are the same as those of `orvanite key` with these settings.
#pragma once

#include <atomic>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "apps/media/FramePattern.h"
#include "apps/view/Footage.h"
#include "keyer/Settings.h"

namespace orvanite::view {

class RenderJob {
 public:
  enum class State { idle, running, done, failed, cancelled };
  struct Report {
    State state = State::idle;
    double done = 0;      // 0..1
    std::string message;  // what went wrong, where the result lies, or what there is of it
  };

  /// output  the file that is written to; for a shot, the pattern of the files. Empty: there is
  ///         nothing to write to, and the job may not be started
  /// Throws Error (wrongUse) about a name that cannot be written, or that of a picture it keys.
  RenderJob(Footage& footage, std::string output);
  /// Cancels and waits.
  ~RenderJob();

  /// Starts; false while another one runs.
  bool start(const Settings& settings);
  void cancel();
  Report report() const;
  const std::string& output() const { return output_; }

 private:
  std::string fileOf(int frame) const { return pattern_ ? pattern_->path(frame) : output_; }
  void run(const Settings& settings);
  void finish(State state, std::string message);

  Footage& footage_;
  std::string output_;
  std::optional<media::FramePattern> pattern_;
  std::atomic<bool> cancelled_ = false;
  std::atomic<double> done_ = 0;
  mutable std::mutex mutex_;
  Report report_;
  std::thread thread_;
};

}  // namespace orvanite::view
