// SPDX-License-Identifier: BSD-3-Clause
//
// Keying whole frames, beside the least that any keyer must do: read plate and background, write
// the destination.
#include <benchmark/benchmark.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <cstdint>
#include <string>

#include "bench/Benchmarks.h"
#include "bench/Frames.h"

namespace orvanite::bench {

void countPixels(benchmark::State& state) {
  const double pixels = static_cast<double>(frameWidth()) * frameHeight();
  state.counters["pixels"] = pixels;
  state.counters["MP/s"] = benchmark::Counter(
      pixels * 1e-6 * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void keyOverBackground(benchmark::State& state, const Settings& settings, const Pictures& pictures,
                       int threads) {
  Keyer keyer;
  Inputs inputs;
  inputs.background = true;
  keyer.prepare(settings, Depth{pictures.depth}, inputs);
  const Frame frame = pictures.frame();
  for (auto _ : state) {
    keyer.render(frame, threads);
    benchmark::ClobberMemory();
  }
  countPixels(state);
}

namespace {

void passOver(const Pictures& p, std::size_t begin, std::size_t end) {
  // Eight bytes at a time: vectorised, and bound by memory whatever the operation.
  const auto* fg = reinterpret_cast<const std::uint64_t*>(p.fg.get());
  const auto* bg = reinterpret_cast<const std::uint64_t*>(p.bg.get());
  auto* dst = reinterpret_cast<std::uint64_t*>(p.dst.get());
  for (std::size_t i = begin; i < end; ++i) dst[i] = fg[i] ^ bg[i];
}

void memory(benchmark::State& state, int depth, int threads) {
  const Pictures& p = pictures(depth, Encoding::video);
  const std::size_t words = p.bytes / 8;
  tbb::task_arena arena(threads);
  for (auto _ : state) {
    if (threads == 1) {
      passOver(p, 0, words);
    } else {
      arena.execute([&] {
        tbb::parallel_for(tbb::blocked_range<std::size_t>(0, words, 1 << 15),
                          [&](const auto& part) { passOver(p, part.begin(), part.end()); });
      });
    }
    benchmark::ClobberMemory();
  }
  countPixels(state);
}

void key(benchmark::State& state, int depth, Encoding encoding, const char* output, int threads) {
  keyOverBackground(state, everydaySettings(encoding, output), pictures(depth, encoding), threads);
}

}  // namespace

void registerKeying() {
  for (const int depth : {1, 2, 4}) {
    const std::string bits = std::to_string(8 * depth);
    for (const int threads : {1, 2})
      benchmark::RegisterBenchmark(("memory/" + bits + "/" + std::to_string(threads)).c_str(),
                                   [=](benchmark::State& state) { memory(state, depth, threads); })
          ->UseRealTime();
    for (const Encoding encoding : {Encoding::linear, Encoding::log, Encoding::video})
      for (const char* output : {"composite", "compOnColour", "matte", "unpremultiplied", "status"})
        for (const int threads : {1, 2})
          benchmark::RegisterBenchmark(
              ("key/" + bits + "/" + encodingNames[static_cast<int>(encoding)] + "/" + output +
               "/" + std::to_string(threads))
                  .c_str(),
              [=](benchmark::State& state) { key(state, depth, encoding, output, threads); })
              ->UseRealTime();
  }
}

}  // namespace orvanite::bench
