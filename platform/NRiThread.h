// SPDX-License-Identifier: BSD-3-Clause
//
// Worker threads. One pool lives as long as the application; a fork runs a function on every
// thread of it, the caller's included, and returns when all have finished.
#pragma once

#include "platform/NRiExport.h"

/// One of the threads that share a piece of work.
class NRI_API NRiThread {
 public:
  /// Thread `number` of `count`.
  NRiThread(int number, int count) : number_(number), count_(count) {}

  int number() const { return number_; }  // 0 .. count - 1
  /// How many share the work.
  int count() const { return count_; }

  /// Runs work(thread, job) once for every thread of the pool, at the same time. An exception of
  /// a worker is thrown again here once all have finished (the first, when there are several).
  /// A fork inside a fork runs its shares one after the other on the calling thread.
  static void m_fork(void (*work)(NRiThread*, void*), void* job);

  /// Threads of the pool, 1 .. 256 (others are forced into that range); at first as many as the
  /// machine runs at once. Must not be called inside a fork.
  static void setCount(int count);
  /// Threads of the pool now.
  static int getCount();

 private:
  int number_;
  int count_;
};
