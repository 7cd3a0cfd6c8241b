// SPDX-License-Identifier: BSD-3-Clause
#include "plugins/RowCrew.h"

#include <algorithm>
#include <cstdint>
#include <system_error>
#include <utility>

namespace orvanite {

RowCrew::RowCrew(int threads) {
  try {
    for (int i = 1; i < threads; ++i) threads_.emplace_back([this] { stand(); });
  } catch (const std::system_error&) {
    // Those that there are do the work.
  }
}

RowCrew::~RowCrew() {
  {
    const std::lock_guard guard(lock_);
    ends_ = true;
  }
  begins_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

void RowCrew::run(int height, int least, const Work& work) {
  // Four bands for each thread: who is held up leaves rows to the others.
  const int most = 4 * (static_cast<int>(threads_.size()) + 1);
  const int bands = std::min(height / std::max(least, 1), most);
  if (threads_.empty() || bands < 2) return bandAfterBand(height, least, work);
  std::unique_lock held(lock_);
  if (work_) {
    held.unlock();
    return bandAfterBand(height, least, work);
  }
  work_ = &work;
  height_ = height;
  bands_ = bands;
  next_ = through_ = 0;
  begins_.notify_all();
  workOn(held);
  done_.wait(held, [&] { return through_ == bands_; });
  work_ = nullptr;
  if (const std::exception_ptr fault = std::exchange(fault_, nullptr)) {
    held.unlock();
    std::rethrow_exception(fault);
  }
}

// Takes bands until there are none.
void RowCrew::workOn(std::unique_lock<std::mutex>& held) {
  while (work_ && next_ < bands_) {
    const Work& work = *work_;
    const auto startOf = [&](int band) {
      return static_cast<int>(std::int64_t{height_} * band / bands_);
    };
    const int first = startOf(next_), end = startOf(next_ + 1);
    ++next_;
    held.unlock();
    std::exception_ptr fault;
    try {
      work(first, end - first);
    } catch (...) {
      fault = std::current_exception();
    }
    held.lock();
    if (fault && !fault_) fault_ = fault;
    if (++through_ == bands_) done_.notify_one();
  }
}

void RowCrew::stand() {
  std::unique_lock held(lock_);
  while (!ends_) {
    workOn(held);
    begins_.wait(held, [&] { return ends_ || (work_ && next_ < bands_); });
  }
}

}  // namespace orvanite
