// SPDX-License-Identifier: BSD-3-Clause
//
// orvanite-bench [--size=WIDTHxHEIGHT] [Google Benchmark's options]
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "bench/Benchmarks.h"
#include "bench/Frames.h"
#include "engine/targets/Target.h"

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  for (int i = 1; i < argc; ++i) {
    int width = 0, height = 0;
    char rest = 0;
    if (std::sscanf(argv[i], "--size=%dx%d%c", &width, &height, &rest) != 2 || width < 1 ||
        height < 1 || width > 16384 || height > 16384) {
      std::fprintf(stderr,
                   "orvanite-bench: %s: expected --size=WIDTHxHEIGHT, each 1..16384, or an option "
                   "that starts with --benchmark_\n",
                   argv[i]);
      return 2;
    }
    orvanite::bench::setFrameSize(width, height);
  }
  if (const std::string& problem = orvanite::targetProblem(); !problem.empty()) {
    std::fprintf(stderr, "orvanite-bench: %s\n", problem.c_str());
    return 2;
  }
  orvanite::bench::registerKeying();
  orvanite::bench::registerRebuild();
  orvanite::bench::registerTargets();
  orvanite::bench::registerFinding();
  orvanite::bench::registerFinish();
  orvanite::bench::registerPeers();
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
