// SPDX-License-Identifier: BSD-3-Clause
//
// Renders a script by processes of its own, one after the other: once, and again after each change.
// So a script that fails, or ends its process, leaves the page as it was.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "apps/view/FileWatch.h"
#include "apps/view/Watch.h"

namespace orvanite::view {

class Rerender {
 public:
  /// What became of the newest render.
  struct State {
    std::uint64_t number = 0;           // of renders that ended; 0: none yet
    bool running = false;               // another one
    std::string error;                  // one line; empty: it went well
    int frame = 0;                      // the last one that was rendered
    std::vector<std::string> pictures;  // its files; of the last render that went well
    double seconds = 0;
  };

  /// Starts. Throws Error (failure).
  explicit Rerender(const WatchOptions& options);
  /// Ends what is running and waits for it.
  ~Rerender();
  Rerender(const Rerender&) = delete;
  Rerender& operator=(const Rerender&) = delete;

  State state() const;

 private:
  struct Run;
  void follow();
  void lookForInputs();
  Run start(const std::vector<std::string>& arguments) const;
  void take(Run& run, const std::string& line);
  bool listen(Run& run);  // false: to be given up
  void publish(const Run& run);

  WatchOptions options_;
  FileWatch files_;
  int wake_;  // written to when all is to end
  mutable std::mutex mutex_;
  State state_;
  std::thread thread_;
};

}  // namespace orvanite::view
