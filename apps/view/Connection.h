// SPDX-License-Identifier: BSD-3-Clause
//
// The bytes of one connection. The library reads a request's lines for as long as they go on; here
// each request has an allowance of bytes and of time, and an idle connection waits without looking.
// At the end what was sent arrives, though the other side still has something to say.
// Knows POSIX sockets and cpp-httplib's stream.
#pragma once

#include <httplib.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <string_view>

namespace orvanite::view {

class Connection : public httplib::Stream {
 public:
  struct Limits {
    std::size_t bytes;                  // of a request, its head and body together
    std::chrono::milliseconds request;  // from a request's first byte to its last
    std::chrono::milliseconds idle;     // from an answer to the next request
    std::chrono::milliseconds write;    // that the other side may keep an answer waiting
  };

  /// Takes the socket, of which `begun` was read before, and closes it in the end.
  Connection(int socket, std::string_view begun, const Limits& limits);
  ~Connection() override;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// Waits for the next request and gives it its allowance. False: none came.
  bool next();

  bool is_readable() const override;
  bool is_writable() const override;
  /// -1 beyond the request's allowance; 0 at the end.
  ssize_t read(char* to, std::size_t size) override;
  ssize_t write(const char* from, std::size_t size) override;
  void get_remote_ip_and_port(std::string& ip, int& port) const override;
  void get_local_ip_and_port(std::string& ip, int& port) const override;
  int socket() const override { return socket_; }

 private:
  using Clock = std::chrono::steady_clock;

  void drain();
  bool waitFor(short event, std::chrono::milliseconds most) const;
  std::chrono::milliseconds left() const;

  int socket_;
  Limits limits_;
  std::size_t bytesLeft_ = 0;
  Clock::time_point deadline_{};
  std::array<char, 4096> buffer_{};
  std::size_t begin_ = 0, end_ = 0;  // what of the buffer is not read yet
};

}  // namespace orvanite::view
