// SPDX-License-Identifier: BSD-3-Clause
//
// The handler does nothing but set a flag, or unlink and leave: all are allowed in one.
#include "apps/cli/Signals.h"

#include <unistd.h>

#include <atomic>
#include <csignal>

#include "apps/cli/Commands.h"
#include "media/PendingFile.h"

namespace orvanite::cli {
namespace {

std::atomic<bool> polite{false};
std::atomic<bool> asked{false};
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void leave(int) {
  if (polite && !asked.exchange(true)) return;
  media::removePendingFiles();
  ::_exit(cancelled);
}

}  // namespace

void endCleanlyOnSignals() {
  struct sigaction action {};
  action.sa_handler = leave;
  action.sa_flags = SA_RESTART;
  ::sigemptyset(&action.sa_mask);
  for (int number : {SIGINT, SIGTERM, SIGHUP}) ::sigaction(number, &action, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
}

void stopAtNextFrameOnSignals() { polite = true; }

bool stopAsked() { return asked; }

}  // namespace orvanite::cli
