// SPDX-License-Identifier: BSD-3-Clause
//
// orvanite-node-bench: what the node adds to the engine. Keys a 3840 x 2160 frame through the
// node's tile worker and through the flat interface, on the same threads and in place, and times
// an image evaluation whose parameters have not changed.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>

#include "host/NRxOrvanite.h"
#include "platform/NRiThread.h"

namespace {

constexpr int width = 3840;
constexpr int height = 2160;
const NRiRect frame{0, 0, width, height};

// A soft disc in front of a screen, or a gradient behind it.
void paint(NRiIBuf& buffer, bool foreground) {
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const float distance =
          std::hypot(static_cast<float>(x - width / 2), static_cast<float>(y - height / 2));
      const float cover = std::fmin(std::fmax((900.0f - distance) / 60.0f, 0.0f), 1.0f);
      const float ripple = 0.04f * std::sin(static_cast<float>(x + 3 * y) * 0.05f);
      const float screen[4] = {1.0f, 0.85f + ripple, 0.12f, 0.1f};  // alpha, blue, green, red
      const float subject[4] = {1.0f, 0.3f, 0.5f + ripple, 0.7f};
      std::byte* const to = buffer.at(x, y);
      for (int c = 0; c < 4; ++c) {
        const float value = foreground ? screen[c] + (subject[c] - screen[c]) * cover
                                       : static_cast<float>(x) / width;
        if (buffer.depth == 4) {
          std::memcpy(to + 4 * c, &value, 4);
        } else if (buffer.depth == 2) {
          const auto code = static_cast<std::uint16_t>(NRiCode(value, 65535));
          std::memcpy(to + 2 * c, &code, 2);
        } else {
          to[c] = static_cast<std::byte>(NRiCode(value, 255));
        }
      }
    }
  }
}

class Picture final : public NRiFx {
 public:
  Picture(int depth, bool foreground) {
    pixels_.allocate(frame, 15, depth);
    paint(pixels_, foreground);
    domain_ = frame;
    out_->width()->set(width);
    out_->height()->set(height);
    out_->bytes()->set(depth);
    out_->channels()->set(15);
    out_->dod()->set(static_cast<void*>(&domain_));
    out_->image()->set(NRiName(foreground ? "foreground" : "background"));
  }
  const NRiName& getClassName() const override {
    static const NRiName name("Picture");
    return name;
  }
  NRiNode* create() const override { return nullptr; }
  NRiIBuf copy() const { return pixels_.converted(pixels_.depth); }

 protected:
  void fillOutputBuffer() override { outputBuffer() = copy(); }

 private:
  NRiIBuf pixels_;
};

class Keyer final : public NRxOrvanite {
 public:
  Keyer(Picture& foreground, Picture& background) {
    getInput(0)->connect(foreground.getOutput());
    getInput(1)->connect(background.getOutput());
    out_->setRequest(15);
    prepare(frame);  // brings everything up to date that the workers read
    out_->setRoi(frame);
    out_->image()->asVoid();
  }
  QMXOrvaniteTable* engine() { return engine_; }
  NRiIBuf& buffer(int i) { return *buffers_[i]; }
  using NRxOrvanite::fillOutputBuffer;
};

struct Setup {
  explicit Setup(const benchmark::State& state)
      : depth(static_cast<int>(state.range(0))),
        foreground(depth, true),
        background(depth, false),
        node(foreground, background),
        original(foreground.copy()) {
    NRiThread::setCount(static_cast<int>(state.range(1)));
  }
  // The frame is keyed in place, so each round starts from the plate again.
  void restore(benchmark::State& state) {
    state.PauseTiming();
    std::memcpy(node.buffer(0).data, original.data,
                static_cast<std::size_t>(width) * height * 4 * static_cast<std::size_t>(depth));
    state.ResumeTiming();
  }
  int depth;
  Picture foreground, background;
  Keyer node;
  NRiIBuf original;
};

void nodeFrame(benchmark::State& state) {
  Setup setup(state);
  for ([[maybe_unused]] auto round : state) {
    setup.restore(state);
    setup.node.fillOutputBuffer();
  }
}

struct FlatJob {
  Setup* setup;
};

void flatWork(NRiThread* thread, void* data) {
  Setup& setup = *static_cast<FlatJob*>(data)->setup;
  const int first = height * thread->number() / thread->count();
  const int end = height * (thread->number() + 1) / thread->count();
  const auto image = [&](int i) {
    std::byte* const at = setup.node.buffer(i).at(0, first);
    const int s = setup.depth;
    return OtileImage{at + 3 * s, at + 2 * s, at + s, at, 4, 4 * width};
  };
  Otile tile{};
  tile.fg = tile.dst = image(0);
  tile.bg = image(1);
  orvanite_render(setup.node.engine(), setup.depth, width, end - first, &tile);
}

void flatFrame(benchmark::State& state) {
  Setup setup(state);
  FlatJob job{&setup};
  for ([[maybe_unused]] auto round : state) {
    setup.restore(state);
    NRiThread::m_fork(flatWork, &job);
  }
}

void unchangedEvaluation(benchmark::State& state) {
  Picture foreground(static_cast<int>(state.range(0)), true);
  Picture background(static_cast<int>(state.range(0)), false);
  Keyer node(foreground, background);
  for ([[maybe_unused]] auto round : state) {
    node.getOutput()->image()->invalidate();
    node.getOutput()->image()->asVoid();
  }
}

void sizes(benchmark::internal::Benchmark* one) {
  for (const int depth : {1, 2, 4}) {
    for (const int threads : {1, 2}) one->Args({depth, threads});
  }
  one->ArgNames({"depth", "threads"})->UseRealTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK(nodeFrame)->Apply(sizes);
BENCHMARK(flatFrame)->Apply(sizes);
BENCHMARK(unchangedEvaluation)
    ->ArgName("depth")
    ->Arg(1)
    ->Arg(2)
    ->Arg(4)
    ->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
