// SPDX-License-Identifier: BSD-3-Clause
//
// A lock where the machine has threads; WebAssembly is built without, and its C++ library has none.
#pragma once

#include <mutex>

namespace orvanite {

#if defined(__wasm__) && !defined(_REENTRANT)
/// Nobody to lock out.
struct Mutex {
  /// Does nothing.
  void lock() {}
  /// Does nothing.
  void unlock() {}
};
#else
using Mutex = std::mutex;
#endif

}  // namespace orvanite
