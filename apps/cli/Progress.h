// SPDX-License-Identifier: BSD-3-Clause
//
// How far a shot is: a bar on a terminal, flushed lines that farm managers parse elsewhere, JSON
// for programs. All of it goes to standard output, from one thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "shot/Pipeline.h"

namespace orvanite::cli {

enum class ProgressForm { automatic, bar, plain, openjd, alf, none };

/// Throws Error (wrongUse).
ProgressForm progressFormOf(const std::string& text);

using shot::FrameStatus;

class Progress {
 public:
  /// automatic: a bar on a terminal and plain lines elsewhere; nothing beside JSON.
  Progress(ProgressForm form, bool json, int total);

  /// files  all that were written, where there may be several
  void frame(int frame, const std::string& output, FrameStatus status, double seconds,
             const std::string& message, const std::vector<std::string>& files = {});

  /// The last line: a summary.
  void finish(bool cancelled);

  int done() const { return done_; }
  int failed() const { return failed_; }

 private:
  void show(int frame);

  ProgressForm form_;
  bool json_;
  int total_, done_ = 0, skipped_ = 0, failed_ = 0, lastPercent_ = -1;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace orvanite::cli
