// SPDX-License-Identifier: BSD-3-Clause
//
// What happens when somebody stops the program: nothing half written stays behind.
#pragma once

namespace orvanite::cli {

/// From now on SIGINT, SIGTERM and SIGHUP remove pending files and end the program with the exit
/// code for cancelled; a closed pipe is an error of the write, not the end.
void endCleanlyOnSignals();

/// From now on the first of these signals only makes stopAsked() true, so that work in hand can be
/// finished; the second ends the program as above.
void stopAtNextFrameOnSignals();

bool stopAsked();

}  // namespace orvanite::cli
