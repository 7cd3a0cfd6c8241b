// SPDX-License-Identifier: BSD-3-Clause
//
// Stands in for Threads.cpp where a build has no threads: whoever calls does the work.
#include "keyer/BlindKeyer.h"
#include "keyer/Keyer.h"
#include "keyer/Threads.h"

namespace orvanite {

void forRows(int height, int, int, const std::function<void(int, int)>& work) {
  if (height > 0) work(0, height);
}

RowLoop rowsOn(int threads) {
  return [threads](int height, int least, const std::function<void(int, int)>& work) {
    forRows(height, least, threads, work);
  };
}

void Keyer::render(const Frame& frame, int threads) const { render(frame, rowsOn(threads)); }

void BlindKeyer::render(const BlindKey& key, const Frame& frame, int threads) const {
  render(key, frame, rowsOn(threads));
}

int availableThreads() { return 1; }

}  // namespace orvanite
