// SPDX-License-Identifier: BSD-3-Clause
//
// The frames of a job: one at once, or a shot through a pipeline. Prints nothing; whoever waits is
// told of each frame.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "base/Error.h"
#include "shot/Job.h"

namespace orvanite::shot {

/// Keys and writes one frame. Returns the seconds that keying took. Throws Error.
double keyStill(const Job& job, int frame);

enum class FrameStatus { done, skipped, failed };

/// What became of a frame.
struct FrameReport {
  int frame = 0;
  FrameStatus status = FrameStatus::done;
  double seconds = 0;
  Fault fault = Fault::failure;  // of one that failed
  std::string message;           // likewise
  std::string notice;            // why an output that exists was made again
};

struct ShotRun {
  std::vector<int> frames;  // at least one
  bool skipExisting = false;
  bool keepGoing = false;
  int inFlight = 0;  // 0: as many as keep the threads busy and memory within 1.25 GiB
  std::function<void(const FrameReport&)> report;  // of every frame, in order, on one thread
  std::function<bool()> stopAsked;                 // looked at before each frame
};

struct ShotResult {
  std::vector<int> finished;  // or skipped, in the order given
  int failed = 0;
  bool cancelled = false;        // frames are left because a stop was asked for
  bool moviesLost = false;       // movies that are not whole are gone
  Fault fault = Fault::failure;  // of the first frame that failed
};

/// Keys and writes a shot, decoding, keying and writing frames side by side. Throws Error when
/// movies cannot be finished; frames that fail are reported.
ShotResult keyShot(const Job& job, const ShotRun& run);

}  // namespace orvanite::shot
