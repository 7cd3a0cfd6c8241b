// SPDX-License-Identifier: BSD-3-Clause
//
// `orvanite run --watch`: renders a script again whenever it or what it reads changes, and shows
// the newest frame in a page. This is all that a command line needs to know of it.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace orvanite::view {

struct WatchOptions {
  std::string script;
  std::vector<std::string> render;  // what follows `orvanite` on the command line of a render
  std::vector<std::string> inputs;  // of one that prints what is read, a file a line
  int port = 0;
  bool openBrowser = false;
  std::function<void(const std::string& address)> started;  // told before the first request
};

/// Renders and serves the page until SIGINT or SIGTERM. Throws Error.
///
/// To be called from the program's first thread while it is the only one, as `view`.
void watch(const WatchOptions& options);

}  // namespace orvanite::view
