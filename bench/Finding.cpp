// SPDX-License-Identifier: BSD-3-Clause
//
// Automatic keys: finding one in a plate, carrying it to another frame, rendering beside its
// estimates.
#include <benchmark/benchmark.h>

#include <string>

#include "bench/Benchmarks.h"
#include "bench/Frames.h"
#include "keyer/BlindKeyer.h"

namespace orvanite::bench {
namespace {

Plate plateOf(const Pictures& pictures) {
  const Frame frame = pictures.frame();
  return {frame.pictures.fg, frame.width, frame.height, frame.depth};
}

Settings givenOf(Encoding encoding) {
  Settings given;
  given.setText("colourspace", encodingNames[static_cast<int>(encoding)]);
  return given;
}

void find(benchmark::State& state, int depth, Encoding encoding, int threads) {
  const Plate plate = plateOf(pictures(depth, encoding));
  const Settings given = givenOf(encoding);
  for (auto _ : state) benchmark::DoNotOptimize(findKey(plate, given, {}, rowsOn(threads)));
  countPixels(state);
}

void carry(benchmark::State& state, int depth, Encoding encoding, int threads) {
  const Plate plate = plateOf(pictures(depth, encoding));
  const BlindKey key = findKey(plate, givenOf(encoding));
  for (auto _ : state) benchmark::DoNotOptimize(key.carriedTo(plate, rowsOn(threads)));
  countPixels(state);
}

// lead  whether the plate's colour is led by its light, as that of a movie would be
void render(benchmark::State& state, int depth, Encoding encoding, int threads, bool lead) {
  const Pictures& all = pictures(depth, encoding);
  BlindKey key = findKey(plateOf(all), givenOf(encoding));
  key.lead = lead ? 1.0f : 0.0f;
  Settings settings = key.settings;
  settings.setText("output", "composite");
  Inputs inputs;
  inputs.background = true;
  BlindKeyer keyer;
  keyer.prepare(key, settings, Depth{depth}, inputs);
  const Frame frame = all.frame();
  for (auto _ : state) {
    keyer.render(key, frame, threads);
    benchmark::ClobberMemory();
  }
  countPixels(state);
}

}  // namespace

void registerFinding() {
  for (const int depth : {1, 2, 4}) {
    const Encoding encoding = depth == 4 ? Encoding::linear : Encoding::video;
    const auto put = [&](const std::string& what, int threads, auto&& body) {
      const std::string name = "auto/" + std::to_string(8 * depth) + "/" +
                               encodingNames[static_cast<int>(encoding)] + "/" + what + "/" +
                               std::to_string(threads);
      benchmark::RegisterBenchmark(name.c_str(), body)->UseRealTime();
    };
    for (const int threads : {1, 2}) {
      put("find", threads, [=](benchmark::State& state) { find(state, depth, encoding, threads); });
      put("carry", threads,
          [=](benchmark::State& state) { carry(state, depth, encoding, threads); });
      for (const bool lead : {false, true}) {
        put(lead ? "renderLed" : "render", threads,
            [=](benchmark::State& state) { render(state, depth, encoding, threads, lead); });
      }
    }
  }
}

}  // namespace orvanite::bench
