// SPDX-License-Identifier: BSD-3-Clause
//
// How long a change of parameters keeps an interactive client waiting: setters and table builds.
// Each iteration changes a parameter to and fro, so that every build has something to do.
#include <benchmark/benchmark.h>

#include <string>

#include "bench/Benchmarks.h"
#include "bench/Frames.h"

namespace orvanite::bench {

namespace {

struct Change {
  const char* name;
  void (*make)(QMXOrvaniteTable*, bool);
};

constexpr Change changes[] = {
    // A maximum of a picture that is not there discards every table; the exposure does the rest.
    {"everything",
     [](QMXOrvaniteTable* e, bool b) {
       orvanite_setRefMax(e, b ? 100 : 200);
       orvanite_setExposure(e, b ? 1.0f : 1.1f, 1, 1, 0);
       orvanite_setScreen(e, 0.1f, b ? 0.7f : 0.71f, 0.2f);
     }},
    {"screen",
     [](QMXOrvaniteTable* e, bool b) { orvanite_setScreen(e, 0.1f, b ? 0.7f : 0.71f, 0.2f); }},
    {"gain", [](QMXOrvaniteTable* e, bool b) { orvanite_setGain(e, 1, b ? 0.1f : 0.2f); }},
    {"exposure",
     [](QMXOrvaniteTable* e, bool b) { orvanite_setExposure(e, b ? 1.0f : 1.1f, 1, 1, 0); }},
    {"bgExposure",
     [](QMXOrvaniteTable* e, bool b) { orvanite_setExposure(e, b ? 1.0f : 1.1f, 1, 1, 1); }},
    {"screenRange",
     [](QMXOrvaniteTable* e, bool b) { orvanite_setScreenRange(e, b ? 0.1f : 0.2f); }},
};

struct Delete {
  void operator()(QMXOrvaniteTable* engine) const { orvanite_delete(engine); }
};

void rebuild(benchmark::State& state, int depth, Encoding encoding, const Change& change) {
  const std::unique_ptr<QMXOrvaniteTable, Delete> engine(orvanite_new());
  Inputs inputs;
  inputs.background = inputs.holdOut = inputs.garbage = true;
  everydaySettings(encoding, "composite").applyTo(engine.get(), Depth{depth}, inputs);
  orvanite_useRef(engine.get(), 0);
  if (orvanite_makeLuts(engine.get()) != 0) {
    state.SkipWithError("no tables");
    return;
  }
  bool turn = false;
  for (auto _ : state) {
    change.make(engine.get(), turn = !turn);
    if (orvanite_makeLuts(engine.get()) != 0) {
      state.SkipWithError("no tables");
      break;
    }
  }
}

}  // namespace

void registerRebuild() {
  for (const int depth : {1, 2, 4})
    for (const Encoding encoding : {Encoding::linear, Encoding::log, Encoding::video})
      for (const Change& change : changes)
        benchmark::RegisterBenchmark(
            ("tables/" + std::to_string(8 * depth) + "/" +
             encodingNames[static_cast<int>(encoding)] + "/" + change.name)
                .c_str(),
            [=, &change](benchmark::State& state) { rebuild(state, depth, encoding, change); })
            ->UseRealTime();
}

}  // namespace orvanite::bench
