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
  StopSignals() {
    sigemptyset(&signals_);
    for (const int number : {SIGINT, SIGTERM, SIGUSR1}) sigaddset(&signals_, number);
    pthread_sigmask(SIG_BLOCK, &signals_, &before_);
  }
  ~StopSignals() {
    // The thread may still wait for a signal: this one only ends it.
    if (thread_.joinable()) {
      pthread_kill(thread_.native_handle(), SIGUSR1);
      thread_.join();
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  /// Calls stop when one comes, once.
  template <class Stop>
  void watch(Stop stop) {
    thread_ = std::thread([this, stop] {
      int number = 0;
      sigwait(&signals_, &number);
      if (number != SIGUSR1) stop();
    });
  }

 private:
  sigset_t signals_{};
  sigset_t before_{};
  std::thread thread_;
};

}  // namespace orvanite::view
