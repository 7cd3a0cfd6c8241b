// SPDX-License-Identifier: BSD-3-Clause
//
// The process's own threads, by oneTBB. What is keyed in other people's programs runs on theirs.
#pragma once

#include "keyer/Loops.h"

namespace orvanite {

/// A loop over bands of rows on threads, which stay together from one loop to the next.
///
/// threads  how many may work; 0 for as many as the process has
RowLoop rowsOn(int threads);

/// How many threads a process may use: the scheduler's share where it says one
/// (SLURM_CPUS_ON_NODE, CUE_THREADS), else as many as it may run on. At least 1.
int availableThreads();

}  // namespace orvanite
