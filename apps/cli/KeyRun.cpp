// SPDX-License-Identifier: BSD-3-Clause
#include "apps/cli/KeyRun.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

#include "apps/cli/Commands.h"
#include "apps/cli/Signals.h"
#include "media/FrameRange.h"

namespace orvanite::cli {

int runShot(const shot::Job& job, shot::ShotRun run, const RunStyle& style) {
  stopAtNextFrameOnSignals();
  Progress progress(style.progress, style.json, static_cast<int>(run.frames.size()));
  run.stopAsked = stopAsked;
  run.report = [&](const shot::FrameReport& frame) {
    progress.frame(frame.frame, job.outputs[0].fileOf(frame.frame), frame.status, frame.seconds,
                   frame.message);
    if (!frame.notice.empty() && !style.quiet) {
      std::fflush(stdout);
      fmt::print(stderr, "{}\n", frame.notice);
    }
    if (frame.status != shot::FrameStatus::failed) return;
    std::fflush(stdout);
    fmt::print(stderr, "orvanite: frame {}: {}\n", frame.frame, frame.message);
  };
  shot::ShotResult result = keyShot(job, run);
  progress.finish(result.cancelled);
  const char* what = result.cancelled ? "stopped" : "not all frames are done";
  std::fflush(stdout);
  if (result.moviesLost) {
    fmt::print(stderr,
               "orvanite: {}; a movie appears when it is whole: the same command begins it again\n",
               what);
  } else if (result.cancelled || result.failed > 0) {
    std::sort(result.finished.begin(), result.finished.end());
    fmt::print(stderr,
               "orvanite: {}; finished frames are whole ({}); the same command with "
               "--skip-existing does the others{}\n",
               what, result.finished.empty() ? "none" : media::formatFrames(result.finished),
               result.failed > 0 && !run.keepGoing ? ", with --keep-going past what fails" : "");
  }
  if (result.cancelled) return cancelled;
  if (result.failed == 0) return success;
  return result.fault == Fault::missingFrames ? missingFrames : framesFailed;
}

}  // namespace orvanite::cli
