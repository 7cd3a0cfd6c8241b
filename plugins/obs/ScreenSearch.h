// SPDX-License-Identifier: BSD-3-Clause
//
// Looking for a screen beside the frames: a search takes longer than a frame may, so that it works
// on a copy, on a thread of its own, while frames go on.
#pragma once

#include <orvanite/keyer.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace orvanite::obsPlugin {

struct DeleteKeyer {
  void operator()(OrvaniteKeyer* keyer) const { orvanite_keyerDelete(keyer); }
};
using OwnKeyer = std::unique_ptr<OrvaniteKeyer, DeleteKeyer>;

/// What a search came to.
struct Found {
  std::vector<std::pair<std::string, std::string>> values;  // parameter, text; none: no screen
  std::string problem;                                      // why there are none
};

/// Used by one thread at a time.
class ScreenSearch {
 public:
  ScreenSearch() = default;
  ScreenSearch(const ScreenSearch&) = delete;
  ScreenSearch& operator=(const ScreenSearch&) = delete;
  /// Waits for a search that runs.
  ~ScreenSearch();

  bool running() const { return thread_.joinable(); }

  /// Starts one. `keyer` has what was given; `pixels` are RGBA bytes without gaps. None may run.
  /// Throws std::system_error when there is no thread.
  void start(OwnKeyer keyer, std::vector<std::uint8_t> pixels, int width, int height);

  /// What the search that was started found, once it is through.
  std::optional<Found> take();

 private:
  void search(int width, int height);

  std::thread thread_;
  std::atomic<bool> done_ = false;
  OwnKeyer keyer_;  // the thread's until it is done, and so is what follows
  std::vector<std::uint8_t> pixels_;
  Found found_;
};

}  // namespace orvanite::obsPlugin
