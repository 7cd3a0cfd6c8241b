// SPDX-License-Identifier: BSD-3-Clause
//
// What the finish adds to a key: each of its switches alone, all at once and all but the refined
// edge, beside the key.
#include <benchmark/benchmark.h>

#include <string>
#include <utility>
#include <vector>

#include "bench/Benchmarks.h"
#include "bench/Frames.h"

namespace orvanite::bench {
namespace {

using Change = std::pair<const char*, const char*>;
struct Case {
  std::string name;
  std::vector<Change> changes;
};

const std::vector<Case>& cases() {
  static const std::vector<Case> list = {
      {"none", {}},
      {"clip", {{"matteBlack", "0.05"}, {"matteWhite", "0.95"}, {"matteGamma", "1.2"}}},
      {"refine", {{"refine", "1"}}},
      {"specks", {{"islands", "8"}, {"pinholes", "8"}}},
      {"shrink", {{"shrink", "1.5"}}},
      {"soften", {{"soften", "2"}}},
      {"edge", {{"edgeColour", "1"}}},
      {"spill", {{"spill", "1"}, {"spillReplace", "background"}}},
      {"wrap", {{"lightWrap", "0.5"}}},
      {"unrefined", {}},
      {"all", {}}};
  return list;
}

void finish(benchmark::State& state, int depth, Encoding encoding, const Case& one, int threads) {
  Settings settings = everydaySettings(encoding, "composite");
  for (const Case& each : cases()) {
    const bool taken = one.name == "all" || (one.name == "unrefined" && each.name != "refine");
    if (each.name != one.name && !taken) continue;
    for (const auto& [name, value] : each.changes) settings.setText(name, value);
  }
  keyOverBackground(state, settings, pictures(depth, encoding), threads);
}

}  // namespace

void registerFinish() {
  for (const int depth : {1, 2, 4}) {
    for (const Case& one : cases()) {
      for (const int threads : {1, 2}) {
        // Encoded as such files are: floats are light.
        const Encoding encoding = depth == 4 ? Encoding::linear : Encoding::video;
        benchmark::RegisterBenchmark(
            ("finish/" + std::to_string(8 * depth) + "/" +
             encodingNames[static_cast<int>(encoding)] + "/" + one.name + "/" +
             std::to_string(threads))
                .c_str(),
            [=, &one](benchmark::State& state) { finish(state, depth, encoding, one, threads); })
            ->UseRealTime();
      }
    }
  }
}

}  // namespace orvanite::bench
