// SPDX-License-Identifier: BSD-3-Clause
//
// `orvanite view`: a page in the browser that shows the key of the real plate while its parameters
// move. This is all that a command line needs to know of it.
#pragma once

#include <functional>
#include <string>

#include "apps/view/Server.h"
#include "keyer/Settings.h"

namespace orvanite::view {

struct ViewOptions {
  shot::ShotFiles files;
  std::string output;  // where renders go; empty: the page gets them
  int port = 0;
  std::size_t cacheBytes = std::size_t{1} << 30;
  media::ColourPath colours;
  bool openBrowser = false;
  Settings settings;
  Masks masks;
  Exports exports;
  std::function<void(const std::string& address)> started;  // told before the first request
};

/// Serves the page until SIGINT or SIGTERM. Throws Error.
///
/// To be called from the program's first thread while it is the only one: the two signals are kept
/// from all threads but one.
void view(const ViewOptions& options);

}  // namespace orvanite::view
