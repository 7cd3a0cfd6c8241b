// SPDX-License-Identifier: BSD-3-Clause
//
// A job that runs while a person or a farm waits: progress, what went wrong, what goes on from
// here.
#pragma once

#include "apps/cli/Progress.h"
#include "shot/Pipeline.h"

namespace orvanite::cli {

struct RunStyle {
  ProgressForm progress = ProgressForm::automatic;
  bool json = false;
  bool quiet = false;  // says nothing but errors
};

/// Keys a shot until it is done or a signal asks to stop. `run` needs no report and no stop of its
/// own. Returns the exit code. Throws Error.
int runShot(const shot::Job& job, shot::ShotRun run, const RunStyle& style);

}  // namespace orvanite::cli
