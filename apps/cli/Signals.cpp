// SPDX-License-Identifier: BSD-3-Clause
//
// The handler does nothing but set a flag, unlink and leave, or hand the signal on: all are allowed
// in one.
#include "apps/cli/Signals.h"

#include <pthread.h>
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

pthread_t mainThread;

// The main thread may be about to create a file: it is stopped by being the one that leaves.
extern "C" void leave(int number) {
  if (pthread_equal(pthread_self(), mainThread) == 0) {
    pthread_kill(mainThread, number);
    return;
  }
  if (polite && !asked.exchange(true)) return;
  media::removePendingFiles();
  ::_exit(cancelled);
}

}  // namespace

void endCleanlyOnSignals() {
  mainThread = pthread_self();
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
