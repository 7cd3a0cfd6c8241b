// SPDX-License-Identifier: BSD-3-Clause
#include "apps/view/Door.h"

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <utility>

#include "base/Error.h"

namespace orvanite::view {

using std::chrono::milliseconds;

Door::Door(const Access& access, const Limits& limits, std::string refusal, Enter enter)
    : access_(access),
      limits_(limits),
      refusal_(std::move(refusal)),
      enter_(std::move(enter)),
      wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (wake_ < 0) throw Error(Fault::failure, "view", "the system gives no event descriptor");
  thread_ = std::thread([this] { run(); });
}

Door::~Door() {
  {
    const std::lock_guard lock(mutex_);
    closing_ = true;
  }
  ::eventfd_write(wake_, 1);
  thread_.join();
  for (const Caller& caller : callers_) ::close(caller.socket);
  for (const int socket : new_) ::close(socket);
  ::close(wake_);
}

void Door::add(int socket) {
  {
    const std::lock_guard lock(mutex_);
    new_.push_back(socket);
  }
  ::eventfd_write(wake_, 1);
}

void Door::admitNew() {
  const std::lock_guard lock(mutex_);
  for (const int socket : std::exchange(new_, {})) {
    // A burst that the system lets through is not cut: its callers are about to speak.
    const auto oldest = callers_.empty() ? limits_.patience : callers_.front().until - Clock::now();
    if (callers_.size() >= limits_.callers && oldest < limits_.patience - limits_.spared) {
      ::close(callers_.front().socket);
      callers_.erase(callers_.begin());
    }
    callers_.push_back({socket, Clock::now() + limits_.patience});
  }
}

void Door::run() {
  for (;;) {
    {
      const std::lock_guard lock(mutex_);
      if (closing_) return;
    }
    watched_.assign(1, {wake_, POLLIN, 0});
    for (const Caller& caller : callers_) watched_.push_back({caller.socket, POLLIN, 0});
    int wait = -1;
    if (!callers_.empty()) {
      const auto left = std::chrono::ceil<milliseconds>(callers_.front().until - Clock::now());
      wait = static_cast<int>(std::max(left, milliseconds(0)).count());
    }
    if (::poll(watched_.data(), watched_.size(), wait) < 0) continue;

    const Clock::time_point now = Clock::now();
    std::size_t kept = 0;
    for (std::size_t i = 0; i < callers_.size(); ++i) {
      Caller& caller = callers_[i];
      if (caller.until <= now) {
        ::close(caller.socket);
      } else if (watched_[i + 1].revents == 0 || stays(caller)) {
        if (kept != i) callers_[kept] = std::move(caller);
        ++kept;
      }
    }
    callers_.erase(callers_.begin() + static_cast<std::ptrdiff_t>(kept), callers_.end());
    if (watched_[0].revents != 0) {
      eventfd_t count = 0;
      ::eventfd_read(wake_, &count);
      admitNew();
    }
  }
}

bool Door::stays(Caller& caller) {
  std::array<char, 1024> bytes;
  const ssize_t count = ::recv(caller.socket, bytes.data(), bytes.size(), MSG_DONTWAIT);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return true;
  if (count <= 0) {
    ::close(caller.socket);
    return false;
  }
  const auto came = static_cast<std::size_t>(count);
  if (caller.refused) {
    caller.discarded += came;
    if (caller.discarded <= limits_.discarded) return true;
    ::close(caller.socket);
    return false;
  }
  caller.begun.append(bytes.data(), came);
  switch (access_.entry(caller.begun)) {
    case Access::Entry::unknown:
      return true;
    case Access::Entry::open:
      enter_(caller.socket, std::move(caller.begun));
      return false;
    default:
      return refuse(caller);
  }
}

// What the caller has yet to send is read and forgotten for a while: closed at once, the connection
// would take the answer back.
bool Door::refuse(Caller& caller) {
  const auto size = static_cast<ssize_t>(refusal_.size());
  if (::send(caller.socket, refusal_.data(), refusal_.size(), MSG_DONTWAIT | MSG_NOSIGNAL) !=
          size ||
      ::shutdown(caller.socket, SHUT_WR) != 0) {
    ::close(caller.socket);
    return false;
  }
  caller.refused = true;
  return true;
}

}  // namespace orvanite::view
