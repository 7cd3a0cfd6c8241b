// SPDX-License-Identifier: BSD-3-Clause
//
// The handler does nothing but unlink and leave: both are allowed in one.
#include "apps/cli/Signals.h"

#include <unistd.h>

#include <csignal>

#include "apps/cli/Commands.h"
#include "apps/media/PendingFile.h"

namespace orvanite::cli {
namespace {

extern "C" void leave(int) {
  media::removePendingFiles();
  ::_exit(cancelled);
}

}  // namespace

void endCleanlyOnSignals() {
  struct sigaction action {};
  action.sa_handler = leave;
  ::sigemptyset(&action.sa_mask);
  for (int number : {SIGINT, SIGTERM, SIGHUP}) ::sigaction(number, &action, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
}

}  // namespace orvanite::cli
