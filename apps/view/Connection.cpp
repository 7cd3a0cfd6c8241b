// SPDX-License-Identifier: BSD-3-Clause
#include "apps/view/Connection.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace orvanite::view {

using std::chrono::milliseconds;

Connection::Connection(int socket, std::string_view begun, const Limits& limits)
    : socket_(socket), limits_(limits) {
  end_ = std::min(begun.size(), buffer_.size());
  std::copy_n(begun.begin(), end_, buffer_.begin());
}

Connection::~Connection() {
  if (::shutdown(socket_, SHUT_WR) == 0) drain();
  ::close(socket_);
}

// Closed with bytes unread, a connection takes back what it sent last.
void Connection::drain() {
  constexpr std::size_t most = std::size_t{256} << 10;
  const Clock::time_point until = Clock::now() + milliseconds(200);
  for (std::size_t drained = 0; drained < most;) {
    const auto wait = std::chrono::duration_cast<milliseconds>(until - Clock::now());
    if (wait.count() <= 0 || !waitFor(POLLIN, wait)) return;
    const ssize_t count = ::recv(socket_, buffer_.data(), buffer_.size(), MSG_DONTWAIT);
    if (count <= 0) return;
    drained += static_cast<std::size_t>(count);
  }
}

bool Connection::waitFor(short event, milliseconds most) const {
  pollfd one{socket_, event, 0};
  for (;;) {
    const int count = ::poll(&one, 1, static_cast<int>(std::max(most, milliseconds(0)).count()));
    if (count >= 0 || errno != EINTR) return count > 0;
  }
}

milliseconds Connection::left() const {
  return std::chrono::duration_cast<milliseconds>(deadline_ - Clock::now());
}

bool Connection::next() {
  if (begin_ == end_ && !waitFor(POLLIN, limits_.idle)) return false;
  bytesLeft_ = limits_.bytes;
  deadline_ = Clock::now() + limits_.request;
  return true;
}

bool Connection::is_readable() const { return begin_ < end_ || waitFor(POLLIN, left()); }

bool Connection::is_writable() const { return waitFor(POLLOUT, limits_.write); }

ssize_t Connection::read(char* to, std::size_t size) {
  size = std::min(size, bytesLeft_);
  if (size == 0) return -1;
  if (begin_ == end_) {
    if (!is_readable()) return -1;
    ssize_t count = 0;
    do {
      count = ::recv(socket_, buffer_.data(), buffer_.size(), 0);
    } while (count < 0 && errno == EINTR);
    if (count <= 0) return count;
    begin_ = 0;
    end_ = static_cast<std::size_t>(count);
  }
  size = std::min(size, end_ - begin_);
  std::memcpy(to, buffer_.data() + begin_, size);
  begin_ += size;
  bytesLeft_ -= size;
  return static_cast<ssize_t>(size);
}

ssize_t Connection::write(const char* from, std::size_t size) {
  if (!is_writable()) return -1;
  ssize_t count = 0;
  do {
    count = ::send(socket_, from, size, MSG_NOSIGNAL);
  } while (count < 0 && errno == EINTR);
  return count;
}

// Both ends are this machine, and nobody asks which port.
void Connection::get_remote_ip_and_port(std::string& ip, int& port) const {
  ip = "127.0.0.1";
  port = 0;
}

void Connection::get_local_ip_and_port(std::string& ip, int& port) const {
  get_remote_ip_and_port(ip, port);
}

}  // namespace orvanite::view
