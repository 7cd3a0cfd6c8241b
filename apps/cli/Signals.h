// SPDX-License-Identifier: BSD-3-Clause
//
// What happens when somebody stops the program: nothing half written stays behind.
#pragma once

namespace orvanite::cli {

/// From now on SIGINT, SIGTERM and SIGHUP remove pending files and end the program with the exit
/// code for cancelled; a closed pipe is an error of the write, not the end.
void endCleanlyOnSignals();

}  // namespace orvanite::cli
