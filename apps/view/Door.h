// SPDX-License-Identifier: BSD-3-Clause
//
// Where connections wait until they have shown the page's token: one thread holds them all, so that
// callers without it, however many and slow, never take a thread that answers the page.
// Knows POSIX sockets only.
#pragma once

#include <poll.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "apps/view/Access.h"

namespace orvanite::view {

class Door {
 public:
  struct Limits {
    std::chrono::milliseconds
        patience;                      // from a connection's begin to its end, with no token shown
    std::size_t callers;               // that wait at once; then the oldest makes room
    std::chrono::milliseconds spared;  // unless it came within this time
    std::size_t discarded;             // bytes that a refused caller may still send
  };
  /// Takes over a socket and what came through it so far.
  using Enter = std::function<void(int socket, std::string begun)>;

  /// refusal  what a caller without the token is sent
  /// enter    called on the door's own thread: must not take long
  Door(const Access& access, const Limits& limits, std::string refusal, Enter enter);
  /// Hangs up on who waits.
  ~Door();
  Door(const Door&) = delete;
  Door& operator=(const Door&) = delete;

  /// Takes a new connection. From any thread.
  void add(int socket);

 private:
  using Clock = std::chrono::steady_clock;
  struct Caller {
    int socket;
    Clock::time_point until;
    std::string begun{};
    bool refused = false;
    std::size_t discarded = 0;
  };

  void run();
  void admitNew();
  bool stays(Caller& caller);  // false: it has entered or left
  bool refuse(Caller& caller);

  const Access& access_;
  Limits limits_;
  std::string refusal_;
  Enter enter_;
  int wake_;
  std::mutex mutex_;
  std::vector<int> new_;         // under mutex_
  bool closing_ = false;         // under mutex_
  std::vector<Caller> callers_;  // the thread's own; the oldest stands first
  std::vector<pollfd> watched_;  // by the thread: what wakes it, and the callers
  std::thread thread_;
};

}  // namespace orvanite::view
