// SPDX-License-Identifier: BSD-3-Clause
//
// A render that the page asked for: every frame keyed at full size and written, on a thread of its
// own, one job at a time. The files are the same as those of `orvanite key` with these settings.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

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

  /// output  the file that is written to; for a shot, the pattern of the files
  RenderJob(Footage& footage, std::string output) : footage_(footage), output_(std::move(output)) {}
  /// Cancels and waits.
  ~RenderJob();

  /// Starts; false while another one runs.
  bool start(const Settings& settings);
  void cancel();
  Report report() const;
  const std::string& output() const { return output_; }

 private:
  void run(const Settings& settings);
  void finish(State state, std::string message);

  Footage& footage_;
  std::string output_;
  std::atomic<bool> cancelled_ = false;
  std::atomic<double> done_ = 0;
  mutable std::mutex mutex_;
  Report report_;
  std::thread thread_;
};

}  // namespace orvanite::view
