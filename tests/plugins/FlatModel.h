// SPDX-License-Identifier: BSD-3-Clause
//
// What a plug-in must produce: every picture copied pixel by pixel into plain arrays of the
// window's size, keyed by one call of the flat interface.
#pragma once

#include <cmath>
#include <memory>
#include <random>
#include <string>

#include "engine/orvanite.h"
#include "keyer/Settings.h"
#include "tests/plugins/OfxHost.h"

namespace ofxTest {

/// Random settings of every parameter that have a screen one can key.
inline orvanite::Settings randomSettings(std::mt19937& random) {
  using orvanite::ParameterType;
  std::uniform_real_distribution<double> unit(0, 1);
  orvanite::Settings settings;
  for (const orvanite::Parameter& parameter : orvanite::parameters()) {
    const auto between = [&] {
      const double low = static_cast<double>(std::fmax(parameter.softLow, parameter.low));
      return low + unit(random) * (static_cast<double>(parameter.softHigh) - low);
    };
    switch (parameter.type) {
      case ParameterType::choice:
        settings.setNumber(parameter.name,
                           static_cast<double>(random() % parameter.choices.size()));
        break;
      case ParameterType::toggle:
        settings.setNumber(parameter.name, random() % 4 == 0 ? 0 : 1);
        break;
      case ParameterType::channel:
        settings.setText(parameter.name, std::string(1, "RGBA"[random() % 4]));
        break;
      case ParameterType::number:
        settings.setNumber(parameter.name, between());
        break;
      default:
        settings.setNumbers(parameter.name, between(), between(), between());
    }
  }
  const bool green = random() % 2 == 0;
  const double low = 0.3 * unit(random);
  settings.setNumbers("screen", low / 2, green ? 0.8 : low, green ? low : 0.8);
  settings.setNumbers("fgBias", 0.4 + 0.2 * unit(random), 0.5, 0.4 + 0.2 * unit(random));
  return settings;
}

/// The pictures of a render; those that are null are not connected.
struct Pictures {
  std::shared_ptr<HostImage> source, bg, hold, garbage, reference;
};

/// 1.0 of a screen component as the code that stands outside a plate: half up, inside the codes.
inline double screenCode(float value, int depth) {
  if (depth == 4) return static_cast<double>(value);
  const double top = depth == 1 ? 255 : 65535;
  // A float times 65535 is exact in double; the sum is rounded once, to single precision.
  const double code = std::trunc(static_cast<float>(static_cast<double>(value) * top + 0.5));
  return std::fmin(std::fmax(code, 0), top);
}

/// The window of `picture`, four channels, with `outside` around it. An absent alpha is full.
inline HostImage staged(HostImage* picture, const ofx::RectI& window, int depth,
                        const double (&outside)[4]) {
  HostImage copy({window, 4, depth});
  const double full = depth == 4 ? 1 : depth == 1 ? 255 : 65535;
  for (int y = window.y1; y < window.y2; ++y) {
    for (int x = window.x1; x < window.x2; ++x) {
      const bool inside = picture && x >= picture->layout().bounds.x1 &&
                          x < picture->layout().bounds.x2 && y >= picture->layout().bounds.y1 &&
                          y < picture->layout().bounds.y2;
      for (int c = 0; c < 4; ++c) {
        double value = outside[c];
        if (inside) {
          const int channels = picture->layout().channels;
          value = channels == 1  ? (c == 3 ? picture->code(x, y, 0) : 0)
                  : c < channels ? picture->code(x, y, c)
                                 : full;
        }
        copy.setCode(x, y, c, value);
      }
    }
  }
  return copy;
}

inline OtileImage describe(HostImage& image) {
  const ofx::RectI& b = image.layout().bounds;
  std::byte* at = image.pixel(b.x1, b.y1);
  const int d = image.layout().depth;
  return {at, at + d, at + 2 * d, at + 3 * d, 4, 4 * (b.x2 - b.x1)};
}

/// The keyed window. Empty when the tables cannot be built.
inline std::unique_ptr<HostImage> flatKey(const orvanite::Settings& settings, const Pictures& in,
                                          const ofx::RectI& window, int depth) {
  orvanite::Inputs inputs;
  inputs.background = in.bg != nullptr;
  inputs.holdOut = in.hold && settings.toggle("useHoldOutMatte");
  inputs.garbage = in.garbage && settings.toggle("useGarbageMatte");
  inputs.reference = in.reference && settings.toggle("useReference");
  QMXOrvaniteTable* engine = orvanite_new();
  settings.applyTo(engine, depth, inputs);
  if (orvanite_makeLuts(engine) != 0) {
    orvanite_delete(engine);
    return nullptr;
  }
  double screen[4] = {0, 0, 0, 0};
  for (int c = 0; c < 3; ++c) screen[c] = screenCode(settings.number("screen", c), depth);
  const double none[4] = {0, 0, 0, 0};

  HostImage fg = staged(in.source.get(), window, depth, screen);
  HostImage bg = staged(in.bg.get(), window, depth, none);
  HostImage hold = staged(in.hold.get(), window, depth, none);
  HostImage garbage = staged(in.garbage.get(), window, depth, none);
  HostImage reference = staged(in.reference.get(), window, depth, screen);
  auto out = std::make_unique<HostImage>(Layout{window, 4, depth});
  const auto matte = [&](HostImage& image, const std::shared_ptr<HostImage>& from,
                         const char* parameter) {
    OtileImage tile = describe(image);
    const std::size_t letter = std::string("RGBA").find(settings.text(parameter));
    void* const channels[] = {tile.red, tile.green, tile.blue, tile.alpha};
    if (from->layout().channels != 1) tile.alpha = channels[letter];
    return tile;
  };
  Otile tile{};
  tile.dst = describe(*out);
  tile.fg = describe(fg);
  if (settings.view(inputs) == 0) tile.bg = describe(bg);
  if (inputs.holdOut) tile.hold = matte(hold, in.hold, "holdOutChannel");
  if (inputs.garbage) tile.garbage = matte(garbage, in.garbage, "garbageChannel");
  if (inputs.reference) tile.ref = describe(reference);
  const int result =
      orvanite_render(engine, depth, window.x2 - window.x1, window.y2 - window.y1, &tile);
  orvanite_delete(engine);
  if (result != 0) return nullptr;
  return out;
}

}  // namespace ofxTest
