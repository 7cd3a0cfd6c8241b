// SPDX-License-Identifier: BSD-3-Clause
//
// Work that may be shared among threads, without saying whose threads: the process's own, a host's,
// or the caller alone.
#pragma once

#include <algorithm>
#include <functional>

namespace orvanite {

/// Runs a body for 0 to count - 1, on as many threads as it likes; returns when all are through.
using Loop = std::function<void(int count, const std::function<void(int)>& body)>;

/// Calls work(first, count) for bands of rows that make up `height`, each of at least `least` rows
/// where there are as many, on as many threads as it likes; returns when all are through. What work
/// throws is thrown.
using RowLoop =
    std::function<void(int height, int least, const std::function<void(int first, int count)>&)>;

/// The caller's own thread, band after band: what is worked on stays in the cache.
inline void bandAfterBand(int height, int least, const std::function<void(int, int)>& work) {
  for (int first = 0; first < height; first += least) work(first, std::min(least, height - first));
}

/// A loop over single turns by one over rows.
inline Loop turnsBy(const RowLoop& rows) {
  return [&rows](int turns, const std::function<void(int)>& body) {
    rows(turns, 1, [&body](int first, int count) {
      for (int i = first; i < first + count; ++i) body(i);
    });
  };
}

}  // namespace orvanite
