// SPDX-License-Identifier: BSD-3-Clause
#include "bench/Frames.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <map>
#include <utility>

#include "examples/plate/Scene.h"

namespace orvanite::bench {

namespace {

int width = 3840, height = 2160;

/// Light in 0..1 as a code in 0..1.
float encoded(float light, Encoding encoding) {
  light = std::clamp(light, 0.0f, 1.0f);
  if (encoding == Encoding::video) return plate::videoCode(light);
  if (encoding == Encoding::log)
    return std::max(0.0f, 1 + std::log10(std::max(light, 1e-4f)) / 2.04f);
  return light;
}

/// The scene is drawn once; what is keyed of it is kept in light.
struct Drawn {
  plate::Picture fg, bg, hold, garbage, clean;

  Drawn() {
    plate::Options options;
    options.width = width;
    options.height = height;
    plate::Pictures all = plate::draw(options);
    fg = std::move(all.plate);
    bg = std::move(all.background);
    hold = std::move(all.holdOut);
    garbage = std::move(all.garbage);
    clean = std::move(all.cleanPlate);
  }
};

const Drawn& drawn() {
  static const Drawn scene;
  return scene;
}

template <class T>
void fill(std::byte* to, const plate::Picture& from, Encoding encoding, float max) {
  const std::size_t count = from.samples.size();
  for (std::size_t i = 0; i < count; ++i) {
    const float v = i % 4 == 3 ? from.samples[i] : encoded(from.samples[i], encoding);
    const T sample = static_cast<T>(max == 1 ? v : v * max + 0.5f);
    std::memcpy(to + i * sizeof(T), &sample, sizeof(T));
  }
}

void fillAny(std::byte* to, const plate::Picture& from, int depth, Encoding encoding) {
  if (depth == 1) fill<std::uint8_t>(to, from, encoding, 255);
  if (depth == 2) fill<std::uint16_t>(to, from, encoding, 65535);
  if (depth == 4) fill<float>(to, from, encoding, 1);
}

}  // namespace

void setFrameSize(int w, int h) {
  width = w;
  height = h;
}
int frameWidth() { return width; }
int frameHeight() { return height; }

Colour screenCode(Encoding encoding) {
  const plate::Colour light = plate::screenColour(plate::ScreenColour::green, false);
  return {encoded(light.r, encoding), encoded(light.g, encoding), encoded(light.b, encoding)};
}

Settings everydaySettings(Encoding encoding, const char* output) {
  Settings settings;
  const Colour screen = screenCode(encoding);
  settings.setNumbers("screen", static_cast<double>(screen.r), static_cast<double>(screen.g),
                      static_cast<double>(screen.b));
  settings.setText("colourspace", encodingNames[static_cast<int>(encoding)]);
  settings.setText("output", output);
  settings.setNumber("screenRange", 0.1);
  return settings;
}

OtileImage imageOf(std::byte* samples, int depth) {
  OtileImage i = {};
  i.red = samples;
  i.green = samples + depth;
  i.blue = samples + 2 * depth;
  i.alpha = samples + 3 * depth;
  i.pixelStep = 4;
  i.lineStep = 4 * width;
  return i;
}

Frame Pictures::frame() const {
  Frame f;
  f.pictures.dst = imageOf(dst.get(), depth);
  f.pictures.bg = imageOf(bg.get(), depth);
  f.pictures.fg = imageOf(fg.get(), depth);
  f.width = width;
  f.height = height;
  f.depth = Depth{depth};
  return f;
}

const Pictures& pictures(int depth, Encoding encoding) {
  static std::map<std::pair<int, Encoding>, Pictures> all;
  Pictures& p = all[{depth, encoding}];
  if (p.fg != nullptr) return p;
  p.bytes = drawn().fg.samples.size() * static_cast<std::size_t>(depth);
  p.depth = depth;
  for (auto* picture : {&p.fg, &p.bg, &p.dst})
    *picture = std::make_unique<std::byte[]>(p.bytes);  // zeroed: every page is there
  fillAny(p.fg.get(), drawn().fg, depth, encoding);
  fillAny(p.bg.get(), drawn().bg, depth, encoding);
  return p;
}

const Extras& extras(int depth, Encoding encoding) {
  static std::map<std::pair<int, Encoding>, Extras> all;
  Extras& x = all[{depth, encoding}];
  if (x.hold != nullptr) return x;
  const auto make = [depth](const plate::Picture& from, Encoding as) {
    auto to = std::make_unique<std::byte[]>(from.samples.size() * static_cast<std::size_t>(depth));
    fillAny(to.get(), from, depth, as);
    return to;
  };
  x.hold = make(drawn().hold, Encoding::linear);  // mattes have no encoding
  x.garbage = make(drawn().garbage, Encoding::linear);
  if (depth != 4) x.clean = make(drawn().clean, encoding);
  return x;
}

}  // namespace orvanite::bench
