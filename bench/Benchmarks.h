// SPDX-License-Identifier: BSD-3-Clause
//
// The benchmarks by subject; main.cpp registers what is wanted. Their names are read by
// scripts/bench: SUBJECT/BITS/... with the fields in a fixed order.
#pragma once

namespace orvanite::bench {

/// memory/BITS/THREADS and key/BITS/ENCODING/OUTPUT/THREADS.
void registerKeying();

/// kernel/BITS/ENCODING/CASE/TARGET, where TARGET can be "reference".
void registerTargets();

/// tables/BITS/ENCODING/WHAT.
void registerRebuild();

}  // namespace orvanite::bench
