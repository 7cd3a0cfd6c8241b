// SPDX-License-Identifier: BSD-3-Clause
//
// The process's own threads, by oneTBB. What is keyed in other people's programs runs on theirs.
#pragma once

#include <functional>

#include "keyer/Loops.h"

namespace orvanite {

/// Calls work(first, count) for bands of rows that make up `height`, each of at least `least` rows
/// where there are as many, on threads; returns when all are through. What work throws is thrown.
///
/// threads  how many may work; 0 for as many as the process has
void forRows(int height, int least, int threads, const std::function<void(int, int)>& work);

/// The same as a loop that others run.
inline RowLoop rowsOn(int threads) {
  return [threads](int height, int least, const std::function<void(int, int)>& work) {
    forRows(height, least, threads, work);
  };
}

/// How many threads a process may use: the scheduler's share where it says one
/// (SLURM_CPUS_ON_NODE, CUE_THREADS), else as many as it may run on. At least 1.
int availableThreads();

}  // namespace orvanite
