// SPDX-License-Identifier: BSD-3-Clause
//
// Memory that ends where its samples end: what reads or writes beside them dies.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <new>
#include <vector>

/// 64 KiB for samples of one type, between two pages that nobody may touch.
template <class T>
class Fenced {
 public:
  static constexpr std::size_t samples = (1 << 16) / sizeof(T);

  Fenced() : page_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))) {
    void* const all =
        mmap(nullptr, bytes + 2 * page_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (all == MAP_FAILED) throw std::bad_alloc();
    void* const inner = static_cast<char*>(all) + page_;
    if (mprotect(inner, bytes, PROT_READ | PROT_WRITE) != 0) throw std::bad_alloc();
    start_ = static_cast<T*>(inner);
  }
  ~Fenced() { munmap(reinterpret_cast<char*>(start_) - page_, bytes + 2 * page_); }
  Fenced(const Fenced&) = delete;
  Fenced& operator=(const Fenced&) = delete;

  /// Where n samples begin that end at the upper fence or begin at the lower one.
  T* place(std::size_t n, bool high) { return high ? start_ + samples - n : start_; }

  std::vector<T> contents() const { return {start_, start_ + samples}; }
  void restore(const std::vector<T>& from) { std::copy(from.begin(), from.end(), start_); }

 private:
  static constexpr std::size_t bytes = samples * sizeof(T);
  std::size_t page_;
  T* start_;
};
