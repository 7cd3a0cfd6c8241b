// SPDX-License-Identifier: BSD-3-Clause
//
// The pool behind NRiThread::m_fork: sleeping threads, one condition to start, one to finish.
#include "platform/NRiThread.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace {

constexpr int mostThreads = 256;
thread_local bool insideFork = false;

class Pool {
 public:
  Pool() : count_(std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, 256)) {}
  ~Pool() { stop(); }

  int count() {
    const std::lock_guard guard(forkLock_);
    return count_;
  }

  void setCount(int count) {
    const std::lock_guard guard(forkLock_);
    count = std::clamp(count, 1, mostThreads);
    if (count == count_) return;
    stop();
    count_ = count;
  }

  void fork(void (*work)(NRiThread*, void*), void* job) {
    const std::lock_guard guard(forkLock_);
    start();
    {
      const std::lock_guard state(lock_);
      work_ = work;
      job_ = job;
      failure_ = nullptr;
      running_ = static_cast<int>(threads_.size());
      ++round_;
    }
    begin_.notify_all();
    run(0, work, job);
    std::unique_lock state(lock_);
    done_.wait(state, [this] { return running_ == 0; });
    if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
  }

 private:
  void start() {
    while (static_cast<int>(threads_.size()) < count_ - 1) {
      const int number = static_cast<int>(threads_.size()) + 1;
      threads_.emplace_back([this, number, seen = round_] { serve(number, seen); });
    }
  }

  void stop() {
    {
      const std::lock_guard state(lock_);
      stopping_ = true;
    }
    begin_.notify_all();
    for (std::thread& thread : threads_) thread.join();
    threads_.clear();
    stopping_ = false;
  }

  void serve(int number, unsigned long seen) {
    std::unique_lock state(lock_);
    for (;;) {
      begin_.wait(state, [&] { return stopping_ || round_ != seen; });
      if (stopping_) return;
      seen = round_;
      auto* const work = work_;
      void* const job = job_;
      state.unlock();
      run(number, work, job);
      state.lock();
      if (--running_ == 0) done_.notify_one();
    }
  }

  void run(int number, void (*work)(NRiThread*, void*), void* job) {
    insideFork = true;
    try {
      NRiThread self(number, count_);
      work(&self, job);
    } catch (...) {
      const std::lock_guard state(lock_);
      if (!failure_) failure_ = std::current_exception();
    }
    insideFork = false;
  }

  std::mutex forkLock_;  // one fork at a time
  std::mutex lock_;      // everything below
  std::condition_variable begin_;
  std::condition_variable done_;
  std::vector<std::thread> threads_;
  int count_;
  void (*work_)(NRiThread*, void*) = nullptr;
  void* job_ = nullptr;
  std::exception_ptr failure_;
  unsigned long round_ = 0;
  int running_ = 0;
  bool stopping_ = false;
};

Pool& pool() {
  static Pool thePool;
  return thePool;
}

}  // namespace

void NRiThread::m_fork(void (*work)(NRiThread*, void*), void* job) {
  if (insideFork) {
    NRiThread self(0, 1);
    work(&self, job);
    return;
  }
  pool().fork(work, job);
}

void NRiThread::setCount(int count) { pool().setCount(count); }

int NRiThread::getCount() { return pool().count(); }
