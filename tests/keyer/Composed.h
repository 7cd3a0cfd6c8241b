// SPDX-License-Identifier: BSD-3-Clause
//
// Small plates that are mixed from their truth, and what a key that was found makes of them.
#pragma once

#include <cmath>
#include <functional>
#include <random>

#include "keyer/BlindKeyer.h"
#include "tests/keyer/Canvas.h"

namespace orvanite {

inline constexpr int width = 160, height = 120;
inline constexpr Rgb green = {0.16f, 0.6f, 0.24f}, blue = {0.1f, 0.2f, 0.66f},
                     olive = {0.4f, 0.45f, 0.18f}, teal = {0.08f, 0.52f, 0.5f},
                     dull = {0.27f, 0.45f, 0.3f};

/// A plate from its truth.
struct Composed {
  std::function<Rgb(int, int)> screen = [](int, int) { return green; };
  std::function<Rgb(int, int)> subject = [](int, int) { return Rgb{0.7f, 0.5f, 0.42f}; };
  std::function<float(int, int)> matte = [](int, int) { return 0.0f; };
  float grain = 0.004f;
  bool inLight = false;

  Canvas on(int depth) const {
    Canvas canvas(width, height, depth);
    std::mt19937 random(7);
    std::normal_distribution<float> noise(0, grain);
    canvas.fill([&](int x, int y) {
      const Rgb f = subject(x, y), e = screen(x, y);
      const float a = matte(x, y);
      Rgb out{};
      for (std::size_t c = 0; c < 3; ++c) {
        out[c] = inLight ? codeOfLight(a * lightOfCode(f[c]) + (1 - a) * lightOfCode(e[c]))
                         : a * f[c] + (1 - a) * e[c];
        out[c] = std::max(0.0f, out[c] + noise(random));
      }
      return out;
    });
    return canvas;
  }
};

/// 1 within a disc, 0 outside, falling over `soft` pixels.
inline std::function<float(int, int)> disc(float cx, float cy, float radius, float soft) {
  return [=](int x, int y) {
    const float d = std::hypot(static_cast<float>(x) - cx, static_cast<float>(y) - cy);
    return std::clamp((radius - d) / soft + 0.5f, 0.0f, 1.0f);
  };
}

inline Settings video() {
  Settings settings;
  settings.setText("colourspace", "video");
  return settings;
}

/// The keyed plate: unmultiplied colour, matte in alpha.
inline Canvas keyed(const BlindKey& key, Canvas& canvas, int threads = 0) {
  const Plate plate = canvas.plate();
  Canvas out = canvas;
  Settings settings = key.settings;
  settings.setText("output", "unpremultiplied");
  BlindKeyer keyer;
  keyer.prepare(key, settings, plate.depth, {});
  Frame frame{{}, plate.width, plate.height, plate.depth};
  frame.pictures.fg = plate.image;
  frame.pictures.dst = out.plate().image;
  keyer.render(key, frame, threads);
  return out;
}

inline float matteAt(Canvas& canvas, int x, int y) {
  Plate plate = canvas.plate();
  plate.image.red = plate.image.alpha;
  return colourAt(plate, x, y)[0];
}

}  // namespace orvanite
