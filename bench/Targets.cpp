// SPDX-License-Identifier: BSD-3-Clause
//
// Every target beside the definition: the same tile keyed by each in one process, on one thread, in
// place on the plate as the node keys it. The plate is put back before each time; only keying
// counts, in processor time of the thread. "best_ms" is the best time of all, which other work on
// the machine moves least. Output that differs from the definition's is an error, not a time.
#include <benchmark/benchmark.h>
#include <time.h>

#include <Imath/half.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "bench/Benchmarks.h"
#include "bench/Definition.h"
#include "bench/Frames.h"
#include "engine/targets/Target.h"

namespace orvanite::bench {

namespace {

enum Parameters { plain, graded, saturated };

struct Case {
  const char* name;
  Parameters parameters;
  int view;
  bool mattes, clean;
};

constexpr Case cases[] = {
    {"composite", plain, 0, false, false},
    {"composite-mattes", plain, 0, true, false},
    {"composite-clean", plain, 0, false, true},
    {"colour-mattes", plain, 1, true, false},
    {"matte", plain, 2, false, false},
    {"unpremultiplied", plain, 4, false, false},
    {"status-mattes", plain, 5, true, false},
    {"graded-composite", graded, 0, false, false},
    {"graded-composite-mattes", graded, 0, true, false},
    {"graded-composite-clean", graded, 0, false, true},
    {"graded-unpremultiplied", graded, 4, false, false},
    {"saturated-composite", saturated, 0, false, false},
    {"saturated-composite-mattes", saturated, 0, true, false},
    {"saturated-unpremultiplied", saturated, 4, false, false},
    {"background-alone", plain, 0, false, false},
};

double threadSeconds() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

/// "plain" has constant curves, no grade and no neutral scale; "graded" has all three; "saturated"
/// has foreground saturation and a grade.
void setUp(QMXOrvaniteTable& e, Depth depth, Encoding encoding, const Case& c) {
  const int max = maxOf(depth);
  e.setFgMax(max);
  e.setBgMax(max);
  e.setRefMax(max);
  e.setDstMax(max);
  e.setGMatteMax(max);
  e.setHMatteMax(max);
  e.setColourspace(static_cast<int>(encoding));
  e.setView(c.view);
  e.useRef(c.clean ? 1 : 0);
  const Colour screen = screenCode(encoding);
  e.setScreen(screen.r, screen.g, screen.b);
  e.setScreenRange(0.1f);
  e.setBackground(0.2f, 0.3f, 0.4f);
  e.setReplace(0.3f, 0.3f, 0.3f);
  if (c.parameters == graded) {
    e.setNeutral(0.5f, 0.48f, 0.52f);
    e.setGain(1, 0.05f);
    e.setBalance(0, 0.4f);
    e.setGamma(1.1f, 1, 1, 0);
  }
  if (c.parameters == saturated) e.setSaturation(1.2f, 0);
  if (c.parameters != plain) e.setExposure(1.1f, 1, 0.95f, 0);
}

/// Float samples as a half file would have brought them.
std::vector<std::byte> halved(const std::byte* from, std::size_t bytes) {
  std::vector<std::byte> to(bytes);
  for (std::size_t i = 0; i < bytes; i += sizeof(float)) {
    float v;
    std::memcpy(&v, from + i, sizeof v);
    v = Imath::half(v);
    std::memcpy(to.data() + i, &v, sizeof v);
  }
  return to;
}

void measure(benchmark::State& state, Depth depth, Encoding encoding, bool halves, const Case& c,
             const Target& target) {
  const int bytes = bytesOf(depth);
  const Pictures& p = pictures(bytes, encoding);
  const Extras& x = extras(bytes, encoding);
  std::vector<std::byte> plate(p.fg.get(), p.fg.get() + p.bytes), under;
  if (halves) {
    plate = halved(p.fg.get(), p.bytes);
    under = halved(p.bg.get(), p.bytes);
  }

  QMXOrvaniteTable engine;
  setUp(engine, depth, encoding, c);
  if (engine.makeLuts() != 0) return state.SkipWithError("tables cannot be built");
  Otile tile = {};
  tile.dst = imageOf(p.dst.get(), bytes);
  if (std::strcmp(c.name, "background-alone") != 0) tile.fg = tile.dst;
  if (c.view == 0) tile.bg = imageOf(halves ? under.data() : p.bg.get(), bytes);
  if (c.mattes) {
    tile.hold = imageOf(x.hold.get(), bytes);
    tile.garbage = imageOf(x.garbage.get(), bytes);
  }
  if (c.clean) tile.ref = imageOf(x.clean.get(), bytes);
  const Choices choices = {.ref = c.clean,
                           .linear = encoding == Encoding::linear,
                           .hold = c.mattes,
                           .garbage = c.mattes,
                           .alpha = true};
  const int width = frameWidth(), height = frameHeight();
  const bool isDefinition = target.integers == nullptr;
  const auto key = [&] {
    if (isDefinition) renderDefinition(engine, depth, width, height, tile, choices);
    if (isDefinition) return true;
    return depth == Depth::floats
               ? target.floats->key(engine, width, height, tile, choices)
               : target.integers->key(engine, depth, width, height, tile, choices);
  };
  const auto putPlateBack = [&] { std::memcpy(p.dst.get(), plate.data(), p.bytes); };

  if (!isDefinition) {
    putPlateBack();
    renderDefinition(engine, depth, width, height, tile, choices);
    const std::vector<std::byte> wanted(p.dst.get(), p.dst.get() + p.bytes);
    putPlateBack();
    if (!key()) return state.SkipWithError("left to the definition");
    if (std::memcmp(p.dst.get(), wanted.data(), p.bytes) != 0) {
      return state.SkipWithError("differs from the definition");
    }
  }
  double best = std::numeric_limits<double>::infinity();
  for (auto _ : state) {
    putPlateBack();
    const double start = threadSeconds();
    key();
    const double seconds = threadSeconds() - start;
    state.SetIterationTime(seconds);
    best = std::min(best, seconds);
  }
  state.counters["best_ms"] = 1e3 * best;
  state.counters["pixels"] = static_cast<double>(width) * height;
}

}  // namespace

void registerTargets() {
  for (const Depth depth : {Depth::bytes, Depth::shorts, Depth::floats}) {
    for (const Encoding encoding : {Encoding::linear, Encoding::log, Encoding::video}) {
      for (const bool halves : {false, true}) {
        if (halves && (depth != Depth::floats || encoding == Encoding::linear)) continue;
        for (const Case& c : cases) {
          if (depth == Depth::floats && c.clean) continue;
          for (const Target& target : knownTargets()) {
            if (!target.supported()) continue;
            const std::string name = "kernel/" + std::to_string(8 * bytesOf(depth)) + "/" +
                                     encodingNames[static_cast<int>(encoding)] + "/" +
                                     (halves ? "half-" : "") + c.name + "/" + target.name;
            benchmark::RegisterBenchmark(name.c_str(),
                                         [=, &c, &target](benchmark::State& state) {
                                           measure(state, depth, encoding, halves, c, target);
                                         })
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond);
          }
        }
      }
    }
  }
}

}  // namespace orvanite::bench
