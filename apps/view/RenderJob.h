// SPDX-License-Identifier: BSD-3-Clause
//
// A render that the page asked for: `orvanite key` with the page's settings as a process of its
// own, one at a time. So its files are those of the command that the page hands out, and the page
// stays quick meanwhile.
// Knows Footage for the names of files only.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "apps/view/Footage.h"
#include "keyer/Settings.h"
#include "media/FramePattern.h"

namespace orvanite::view {

/// What follows `orvanite` on the command line that keys with these settings and a file of masks,
/// if there is one, into `output`.
using KeyArguments = std::function<std::vector<std::string>(
    const shot::ShotFiles&, const Settings&, const std::string& masks, const std::string& output)>;

class RenderJob {
 public:
  enum class State { idle, running, done, failed, cancelled };
  struct Report {
    State state = State::idle;
    double done = 0;      // 0..1
    std::string message;  // what went wrong, where the result lies, or what there is of it
  };

  /// output  the file that is written to; for a shot, the pattern of the files or a movie. Empty:
  ///         there is nothing to write to, and the job may not be started
  /// Throws Error (wrongUse) about a name that cannot be written, or that of a picture it keys.
  RenderJob(const Footage& footage, std::string output, KeyArguments arguments);
  /// Cancels and waits.
  ~RenderJob();

  /// Starts; false while another one runs.
  ///
  /// from, to  the frames of a shot that are rendered; none: all. Of a still there is one
  /// Throws Error: wrongUse where the shot has no frame between them; failure when no process can
  /// be started.
  struct Range {
    int from, to;
  };
  bool start(const Settings& settings, const std::string& masks,
             std::optional<Range> range = std::nullopt);
  /// What is under way is finished or removed: every file that is left is whole.
  void cancel();
  Report report() const;
  const std::string& output() const { return output_; }

 private:
  std::string fileOf(int frame) const { return pattern_ ? pattern_->path(frame) : output_; }
  void follow(pid_t child, int said);
  void take(const std::string& line, std::string& complaint);

  std::string output_;
  std::optional<media::FramePattern> pattern_;
  shot::ShotFiles files_;
  KeyArguments arguments_;
  std::vector<int> shotFrames_;  // none: a still
  std::size_t frames_ = 1;       // of the render that runs, or of the last one
  mutable std::mutex mutex_;
  State state_ = State::idle;
  std::string message_;
  std::size_t written_ = 0;  // frames
  pid_t child_ = -1;         // as long as it can be sent a signal
  bool cancelled_ = false;
  std::thread thread_;
};

}  // namespace orvanite::view
