// SPDX-License-Identifier: BSD-3-Clause
//
// The benchmarks by subject; main.cpp registers what is wanted. Their names are read by
// scripts/bench: SUBJECT/BITS/... with the fields in a fixed order.
#pragma once

#include <benchmark/benchmark.h>

#include "bench/Frames.h"

namespace orvanite::bench {

/// Says how many pixels an iteration keys, and how many that is a second.
void countPixels(benchmark::State& state);

/// Measures keys of the pictures with settings that may ask for the background.
void keyOverBackground(benchmark::State& state, const Settings& settings, const Pictures& pictures,
                       int threads);

/// memory/BITS/THREADS and key/BITS/ENCODING/OUTPUT/THREADS.
void registerKeying();

/// kernel/BITS/ENCODING/CASE/TARGET, where TARGET can be "definition".
void registerTargets();

/// tables/BITS/ENCODING/WHAT.
void registerRebuild();

/// auto/BITS/ENCODING/WHAT/THREADS: finding a key, carrying it to a frame, rendering beside its
/// estimates.
void registerFinding();

/// finish/BITS/ENCODING/SWITCH/THREADS: composites with a switch of the finish, none, or all.
void registerFinish();

/// peer/NAME/THREADS: other people's keyers on the 8-bit frame.
void registerPeers();

}  // namespace orvanite::bench
