// SPDX-License-Identifier: BSD-3-Clause
//
// The page's server: one page behind the gate, a handful of questions that it may ask. The number
// of renders that wait is bounded. Knows cpp-httplib, in its source only.
#pragma once

#include <memory>
#include <string>

#include "apps/view/Session.h"

namespace orvanite::view {

class Server {
 public:
  /// Takes a port of 127.0.0.1; 0 for any that is free. Throws Error (failure) when it is taken.
  ///
  /// uploads  a folder for files that the page hands over; empty: it may not
  Server(int port, std::shared_ptr<Session> session, const std::string& uploads);
  ~Server();

  /// Answers the bytes of one request without a connection. For fuzzers.
  std::string answer(const std::string& request);

  /// The page's address, with its token.
  std::string address() const;

  /// Serves until stop is called.
  void run();
  /// Cancels a render, and ends. May be called from any thread. Requests in progress are finished.
  void stop();

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace orvanite::view
