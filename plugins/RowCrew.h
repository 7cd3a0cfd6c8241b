// SPDX-License-Identifier: BSD-3-Clause
//
// Threads for the rows of one frame, for hosts that lend none. They live no longer than the crew:
// nothing runs on when a host unloads the binary between two frames.
#pragma once

#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "keyer/Loops.h"

namespace orvanite {

class RowCrew {
 public:
  /// threads  the caller's own among them; fewer where the system gives fewer. It spreads work; it
  ///          never fails.
  explicit RowCrew(int threads);
  /// Waits for the threads to end.
  ~RowCrew();
  RowCrew(const RowCrew&) = delete;
  RowCrew& operator=(const RowCrew&) = delete;

  /// A loop over rows on these threads, to be used while the crew lives. One that is called from
  /// within another, or while another runs, keeps to its caller's thread.
  RowLoop rows() {
    return [this](int height, int least, const std::function<void(int, int)>& work) {
      run(height, least, work);
    };
  }

 private:
  using Work = std::function<void(int, int)>;
  void run(int height, int least, const Work& work);
  void workOn(std::unique_lock<std::mutex>& held);
  void stand();

  std::vector<std::thread> threads_;
  std::mutex lock_;  // over what follows
  std::condition_variable begins_, done_;
  const Work* work_ = nullptr;  // null: nothing is to be done
  int height_ = 0, bands_ = 0, next_ = 0, through_ = 0;
  std::exception_ptr fault_;
  bool ends_ = false;
};

}  // namespace orvanite
