// SPDX-License-Identifier: BSD-3-Clause
//
// What the OpenFX plug-in adds to the time of the flat interface: 4096x2160 frames, the same
// pictures and as many threads, in turn. Prints the least and the median of each and their ratio,
// in milliseconds of the wall's clock, or with --cpu of the processors' time, which other programs
// on the machine disturb less; asserts nothing.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <random>
#include <thread>
#include <vector>

#include "tests/plugins/FlatModel.h"
#include "tests/plugins/OfxHost.h"

namespace ofxTest {
namespace {

bool byProcessors = false;

double now() {  // in milliseconds, from anywhere
  if (!byProcessors) {
    return std::chrono::duration<double, std::milli>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
  }
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

std::shared_ptr<HostImage> plate(int width, int height, int depth, unsigned seed) {
  auto image = std::make_shared<HostImage>(Layout{{0, 0, width, height}, 4, depth});
  std::mt19937 random(seed);
  const double top = depth == 4 ? 1 : depth == 1 ? 255 : 65535;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      // Half screen with grain, half subject.
      const double grain = static_cast<double>(random() % 1000) / 20000;
      const bool screen = (x / 512 + y / 512) % 2 == 0;
      const double rgb[4] = {screen ? 0.15 : 0.5, screen ? 0.6 : 0.4, screen ? 0.2 : 0.3, 1};
      for (int c = 0; c < 4; ++c) image->setCode(x, y, c, (rgb[c] - (c < 3 ? grain : 0)) * top);
    }
  }
  return image;
}

Otile rowsOf(Otile tile, int row, int depth) {
  for (OtileImage* image : {&tile.dst, &tile.fg, &tile.bg}) {
    for (void** channel : {&image->red, &image->green, &image->blue, &image->alpha}) {
      if (*channel)
        *channel = static_cast<char*>(*channel) + std::ptrdiff_t{image->lineStep} * row * depth;
    }
  }
  return tile;
}

void measure(OfxHost& host, const EffectState& descriptor, int depth, unsigned threads,
             const char* output) {
  constexpr int width = 4096, height = 2160, rounds = 15;
  orvanite::Settings settings;
  settings.setText("screen", "0.15,0.6,0.2");
  settings.setText("output", output);
  const auto fg = plate(width, height, depth, 1), bg = plate(width, height, depth, 2);
  auto out = std::make_shared<HostImage>(Layout{{0, 0, width, height}, 4, depth});

  auto effect = host.instantiate(descriptor, "OfxImageEffectContextGeneral");
  effect->params.at("screen").value = {0.15, 0.6, 0.2};
  for (const char* balance : {"shadowBalance", "midtoneBalance", "highlightBalance"}) {
    effect->params.at(balance).value = {0.5};
  }
  effect->params.at("output").value = {static_cast<int>(settings.number("output"))};
  connect(*effect, "Source", fg);
  connect(*effect, "Bg", bg);
  connect(*effect, "Output", out);
  host.manners.cpus = threads;
  host.create(*effect);

  QMXOrvaniteTable* engine = orvanite_new();
  orvanite::Inputs inputs;
  inputs.background = true;
  settings.applyTo(engine, orvanite::Depth{depth}, inputs);
  orvanite_makeLuts(engine);
  Otile tile{};
  tile.dst = describe(*out);
  tile.fg = describe(*fg);
  if (settings.view(inputs) == orvanite::View::composite) tile.bg = describe(*bg);
  const auto flat = [&] {
    std::vector<std::thread> running;
    for (unsigned t = 0; t < threads; ++t) {
      running.emplace_back([&, t] {
        const int from = height * static_cast<int>(t) / static_cast<int>(threads);
        const int to = height * static_cast<int>(t + 1) / static_cast<int>(threads);
        Otile rows = rowsOf(tile, from, depth);
        orvanite_render(engine, depth, width, to - from, &rows);
      });
    }
    for (std::thread& thread : running) thread.join();
  };

  std::vector<double> direct, through;
  for (int i = -1; i < rounds; ++i) {  // the first builds tables and touches memory
    const double start = now();
    flat();
    const double middle = now();
    host.render(*effect, {0, 0, width, height});
    const double end = now();
    if (i < 0) continue;
    direct.push_back(middle - start);
    through.push_back(end - middle);
  }
  std::sort(direct.begin(), direct.end());
  std::sort(through.begin(), through.end());
  const auto half = static_cast<std::size_t>(rounds / 2);
  std::printf("%-8s %-16s %u  %8.2f %8.2f  %8.2f %8.2f  %6.3f %6.3f\n",
              depth == 4   ? "float"
              : depth == 2 ? "16-bit"
                           : "8-bit",
              output, threads, direct[0], direct[half], through[0], through[half],
              through[0] / direct[0], through[half] / direct[half]);
  host.destroy(*effect);
  orvanite_delete(engine);
}

}  // namespace
}  // namespace ofxTest

int main(int count, char** words) {
  using namespace ofxTest;
  byProcessors = count > 1 && std::strcmp(words[1], "--cpu") == 0;
  OfxHost host;
  if (host.load() != ofx::ok) return 1;
  const auto descriptor = host.describe("OfxImageEffectContextGeneral");
  std::printf(
      "4096x2160                    flat interface     OpenFX plug-in     ratio\n"
      "depth    output  threads    least   median     least   median   least median\n");
  for (const int depth : {4, 2, 1}) {
    for (const char* output : {"composite", "unpremultiplied"}) {
      for (const unsigned threads : {1U, 2U}) measure(host, *descriptor, depth, threads, output);
    }
  }
}
