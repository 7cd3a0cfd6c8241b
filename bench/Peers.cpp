// SPDX-License-Identifier: BSD-3-Clause
//
// Other people's keyers on the same 8-bit frame, called as libraries in this process, so that no
// start of a program and no file counts: FFmpeg's filters through libavfilter, and frei0r's
// bluescreen0r. They get frames of their own, filled off the clock, as they may key in place.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <fmt/format.h>
#include <frei0r.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "bench/Benchmarks.h"
#include "bench/Frames.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/frame.h>
}

namespace orvanite::bench {

namespace {

using Clock = std::chrono::steady_clock;

struct FreeGraph {
  void operator()(AVFilterGraph* graph) const { avfilter_graph_free(&graph); }
};
struct FreeFrame {
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using Graph = std::unique_ptr<AVFilterGraph, FreeGraph>;
using AvFrame = std::unique_ptr<AVFrame, FreeFrame>;

AvFrame rgbaFrame(const std::byte* pixels, std::int64_t time) {
  AvFrame frame(av_frame_alloc());
  if (!frame) return nullptr;
  frame->width = frameWidth();
  frame->height = frameHeight();
  frame->format = AV_PIX_FMT_RGBA;
  frame->pts = time;
  if (av_frame_get_buffer(frame.get(), 0) < 0) return nullptr;
  const auto row = static_cast<std::size_t>(frameWidth()) * 4;
  for (int y = 0; y < frameHeight(); ++y)
    std::memcpy(frame->data[0] + static_cast<std::ptrdiff_t>(y) * frame->linesize[0],
                pixels + static_cast<std::size_t>(y) * row, row);
  return frame;
}

/// From two RGBA frames handed over to the composite taken out, in RGBA.
void filters(benchmark::State& state, const char* keyers, int threads) {
  const auto [r, g, b] = screenCode(Encoding::video);
  const auto code = [](float v) { return static_cast<int>(v * 255 + 0.5f); };
  const std::string source =
      fmt::format("=video_size={}x{}:pix_fmt=rgba:time_base=1/25", frameWidth(), frameHeight());
  const std::string colour = fmt::format("0x{:02x}{:02x}{:02x}", code(r), code(g), code(b));
  const std::string description = fmt::format(
      "buffer@plate{0},{1}[key]; buffer@bg{0}[bg]; [bg][key]overlay=format=rgb,format=rgba,"
      "buffersink@out",
      source, fmt::format(fmt::runtime(keyers), colour));
  const Graph graph(avfilter_graph_alloc());
  if (!graph) return state.SkipWithError("no memory");
  graph->nb_threads = threads;
  AVFilterInOut *ins = nullptr, *outs = nullptr;
  const bool ready = avfilter_graph_parse2(graph.get(), description.c_str(), &ins, &outs) >= 0 &&
                     avfilter_graph_config(graph.get(), nullptr) >= 0;
  avfilter_inout_free(&ins);
  avfilter_inout_free(&outs);
  if (!ready) return state.SkipWithError("this FFmpeg lacks a filter");
  AVFilterContext* plate = avfilter_graph_get_filter(graph.get(), "buffer@plate");
  AVFilterContext* background = avfilter_graph_get_filter(graph.get(), "buffer@bg");
  AVFilterContext* out = avfilter_graph_get_filter(graph.get(), "buffersink@out");

  const Pictures& p = pictures(1, Encoding::video);
  std::int64_t time = 0;
  for (auto _ : state) {
    const AvFrame fg = rgbaFrame(p.fg.get(), time);
    const AvFrame bg = rgbaFrame(p.bg.get(), time++);
    const AvFrame result(av_frame_alloc());
    const auto start = Clock::now();
    const bool keyed = av_buffersrc_add_frame(background, bg.get()) >= 0 &&
                       av_buffersrc_add_frame(plate, fg.get()) >= 0 &&
                       av_buffersink_get_frame(out, result.get()) >= 0;
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    if (!keyed) return state.SkipWithError("a filter failed");
  }
  countPixels(state);
}

/// bluescreen0r cuts a matte and composites nothing; it has one thread.
void bluescreen(benchmark::State& state) {
  const std::unique_ptr<void, int (*)(void*)> library(
      dlopen("/usr/lib/frei0r-1/bluescreen0r.so", RTLD_NOW | RTLD_LOCAL), dlclose);
  if (!library) return state.SkipWithError("frei0r-plugins is not installed");
  const auto find = [&]<class F>(F*& f, const char* name) {
    f = reinterpret_cast<F*>(dlsym(library.get(), name));
    return f != nullptr;
  };
  decltype(f0r_init)* init = nullptr;
  decltype(f0r_construct)* construct = nullptr;
  decltype(f0r_destruct)* destruct = nullptr;
  decltype(f0r_set_param_value)* set = nullptr;
  decltype(f0r_update)* update = nullptr;
  if (!find(init, "f0r_init") || !find(construct, "f0r_construct") ||
      !find(destruct, "f0r_destruct") || !find(set, "f0r_set_param_value") ||
      !find(update, "f0r_update") || init() != 1)
    return state.SkipWithError("bluescreen0r lacks a function");
  const auto instance =
      construct(static_cast<unsigned>(frameWidth()), static_cast<unsigned>(frameHeight()));
  const auto [r, g, b] = screenCode(Encoding::video);
  f0r_param_color colour = {b, g, r};  // its frames are blue first; ours are handed over red first
  set(instance, &colour, 0);
  double distance = 0.4;
  set(instance, &distance, 1);
  const Pictures& p = pictures(1, Encoding::video);
  for (auto _ : state) {
    update(instance, 0, reinterpret_cast<const std::uint32_t*>(p.fg.get()),
           reinterpret_cast<std::uint32_t*>(p.dst.get()));
    benchmark::ClobberMemory();
  }
  destruct(instance);
  countPixels(state);
}

struct Peer {
  const char* name;
  const char* keyers;  // {} is the screen's colour
};

constexpr Peer peers[] = {
    {"colorkey", "colorkey={}:0.3:0.1"},
    {"colorkey+despill", "colorkey={}:0.3:0.1,despill=type=green"},
    {"chromakey", "chromakey={}:0.15:0.1"},
};

}  // namespace

void registerPeers() {
  for (const Peer& peer : peers)
    for (const int threads : {1, 2})
      benchmark::RegisterBenchmark(
          fmt::format("peer/{}+overlay/{}", peer.name, threads).c_str(),
          [&peer, threads](benchmark::State& state) { filters(state, peer.keyers, threads); })
          ->UseManualTime();
  benchmark::RegisterBenchmark("peer/bluescreen0r/1", bluescreen)->UseRealTime();
}

}  // namespace orvanite::bench
