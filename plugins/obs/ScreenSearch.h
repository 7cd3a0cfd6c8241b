// SPDX-License-Identifier: BSD-3-Clause
//
// Looking for a screen beside the frames: what takes longer than a frame may works on a copy, on a
// thread of its own, while frames go on. A look gives a key within a few frames; a search a better
// one in seconds.
#pragma once

#include <orvanite/keyer.h>

#include <array>
#include <cstdint>
#include <functional>
#include <future>
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

/// How much is found.
enum class Effort {
  look,   // the screen's middle colour and a range for it: hundredths of a second
  search  // all that makes the key: seconds
};

/// What a search came to.
struct Found {
  Effort effort = Effort::look;                             // that was asked for
  std::vector<std::pair<std::string, std::string>> values;  // parameter, text; none: no screen
  std::array<float, 3> colour{};  // the middle of the screen's, as every look sees it
  std::string problem;            // why there is none
};

/// Used by one thread at a time.
class ScreenSearch {
 public:
  /// Runs a task somewhere, soon. Tests take it and run it when they like.
  using Launch = std::function<void(std::packaged_task<Found()>)>;

  /// Without a launch each task has a thread of its own.
  explicit ScreenSearch(Launch launch = {}) : launch_(std::move(launch)) {}
  ScreenSearch(const ScreenSearch&) = delete;
  ScreenSearch& operator=(const ScreenSearch&) = delete;
  /// Waits for a thread that runs.
  ~ScreenSearch();

  bool running() const { return result_.valid(); }

  /// Starts one. `keyer` has what was given; `pixels` are RGBA bytes without gaps. None may run.
  /// Throws std::system_error when there is no thread.
  void start(Effort effort, OwnKeyer keyer, std::vector<std::uint8_t> pixels, int width,
             int height);

  /// What was found, once the search that was started is through. Throws std::bad_alloc where it
  /// had no memory.
  std::optional<Found> take();

 private:
  Launch launch_;
  std::thread thread_;
  std::future<Found> result_;
};

}  // namespace orvanite::obsPlugin
