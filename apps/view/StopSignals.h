// SPDX-License-Identifier: BSD-3-Clause
//
// SIGINT and SIGTERM, taken by a thread of their own, so that they may end what takes locks.
// Uses POSIX only.
#pragma once

#include <pthread.h>

#include <csignal>
#include <thread>

namespace orvanite::view {

/// From its making on the signals are kept from this thread and those that it starts.
class StopSignals {
 public:
  /// The thread that waits for one; ends with this.
  class Watch {
   public:
    template <class Stop>
    Watch(const sigset_t& signals, Stop stop)
        : thread_([signals, stop] {
            int number = 0;
            sigwait(&signals, &number);
            if (number != SIGUSR1) stop();
          }) {}
    ~Watch() {
      // The thread may still wait for a signal: this one only ends it.
      pthread_kill(thread_.native_handle(), SIGUSR1);
      thread_.join();
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

   private:
    std::thread thread_;
  };

  StopSignals() {
    sigemptyset(&signals_);
    for (const int number : {SIGINT, SIGTERM, SIGUSR1}) sigaddset(&signals_, number);
    pthread_sigmask(SIG_BLOCK, &signals_, &before_);
  }
  ~StopSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  /// Calls stop when one comes, once, while what is returned lives: no longer than what is stopped.
  template <class Stop>
  [[nodiscard]] Watch watch(Stop stop) const {
    return {signals_, stop};
  }

 private:
  sigset_t signals_{};
  sigset_t before_{};
};

}  // namespace orvanite::view
