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

/// Random settings of every parameter that plug-ins have, with a screen one can key.
inline orvanite::Settings randomSettings(std::mt19937& random) {
  using orvanite::ParameterType;
  std::uniform_real_distribution<double> unit(0, 1);
  orvanite::Settings settings;
  for (const orvanite::Parameter& parameter : orvanite::parameters()) {
    if (parameter.meaning.ofWholeFrames()) continue;
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
          // Beside a clean plate floats are keyed as words.
          const bool given = c < channels || (channels == 1 && c == 3);
          if (given && picture->isReal() && depth == 2) {
            value = screenCode(static_cast<float>(value), 2);
          }
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

/// What the panel adds to settings.
struct Panel {
  enum Matte { letter, luminance, automatic };  // letter: the one that the settings name
  Matte hold = letter, garbage = letter;
  int sourceAlpha = 0;  // 1 keeps inside, 2 multiplies
  bool intermediate = false, premultiplied = false;
};

/// A matte's alpha as it is keyed: a channel or the luminance, and what the plate's own alpha `own`
/// (null: nothing) covers besides.
inline HostImage madeMatte(HostImage* picture, HostImage* own, bool inverted, Panel::Matte kind,
                           const std::string& letter, const ofx::RectI& window, int depth) {
  const double none[4] = {0, 0, 0, 0};
  const double full = depth == 4 ? 1 : depth == 1 ? 255 : 65535;
  HostImage from = staged(picture, window, depth, none);
  HostImage plate = staged(own, window, depth, none);
  HostImage made({window, 4, depth});
  bool opaque = picture != nullptr;
  if (picture) {
    const ofx::RectI& all = picture->layout().bounds;
    const double top = picture->isReal() ? 1 : picture->layout().depth == 1 ? 255 : 65535;
    for (int y = all.y1; y < all.y2; ++y) {
      for (int x = all.x1; x < all.x2; ++x) {
        const int channels = picture->layout().channels;
        if (channels != 3 && picture->code(x, y, channels - 1) < top) opaque = false;
      }
    }
  }
  const bool single = picture && picture->layout().channels == 1;
  const bool grey = !single && (kind == Panel::luminance || (kind == Panel::automatic && opaque));
  const int channel =
      single || kind == Panel::automatic ? 3 : static_cast<int>(std::string("RGBA").find(letter));
  const auto held = [](double v) { return v > 1 ? 1 : v > 0 ? v : 0; };
  for (int y = window.y1; y < window.y2; ++y) {
    for (int x = window.x1; x < window.x2; ++x) {
      double m = 0;
      if (grey) {
        const double r = from.code(x, y, 0), g = from.code(x, y, 1), b = from.code(x, y, 2);
        const auto f = [](double v) { return static_cast<float>(v); };
        m = depth == 4
                ? static_cast<double>(f(g) + (0.2126f * (f(r) - f(g)) + 0.0722f * (f(b) - f(g))))
                : std::floor((r * 13933 + g * 46871 + b * 4732) / 65536 + 0.5);
      } else if (picture) {
        m = from.code(x, y, channel);
      }
      if (own) {
        double s = plate.code(x, y, 3);
        if (depth == 4) {
          const auto f = [](double v) { return static_cast<float>(v); };
          s = inverted ? static_cast<double>(1 - f(held(s))) : held(s);
          m = static_cast<double>(1 - (1 - f(held(m))) * (1 - f(s)));
        } else {
          if (inverted) s = full - s;
          m = full - std::floor((full - m) * (full - s) / full + 0.5);
        }
      }
      made.setCode(x, y, 3, m);
    }
  }
  return made;
}

/// The keyed window at a depth of the engine's. Empty when the tables cannot be built.
inline std::unique_ptr<HostImage> flatKey(orvanite::Settings settings, const Pictures& in,
                                          const ofx::RectI& window, int depth,
                                          const Panel& panel = {}) {
  const bool own = in.source && in.source->layout().channels == 4;
  const bool keeps = own && panel.sourceAlpha == 1, cuts = own && panel.sourceAlpha == 2;
  const bool hold = in.hold && settings.toggle("useHoldOutMatte");
  const bool garbage = in.garbage && settings.toggle("useGarbageMatte");
  orvanite::Inputs inputs;
  inputs.background = in.bg != nullptr;
  inputs.holdOut = hold || keeps;
  inputs.garbage = garbage || cuts;
  inputs.reference = in.reference && settings.toggle("useReference");
  if (keeps) settings.setText("useHoldOutMatte", "on");
  if (cuts) settings.setText("useGarbageMatte", "on");
  if (panel.premultiplied && settings.choice("output") == "unpremultiplied") {
    settings.setText("output", "compOnBlack");
  }
  if (panel.intermediate) settings.setText("output", "unpremultiplied");
  QMXOrvaniteTable* engine = orvanite_new();
  settings.applyTo(engine, orvanite::Depth{depth}, inputs);
  if (orvanite_makeLuts(engine) != 0) {
    orvanite_delete(engine);
    return nullptr;
  }
  double screen[4] = {0, 0, 0, 0};
  for (int c = 0; c < 3; ++c) screen[c] = screenCode(settings.number("screen", c), depth);
  const double none[4] = {0, 0, 0, 0};

  HostImage fg = staged(in.source.get(), window, depth, screen);
  HostImage bg = staged(in.bg.get(), window, depth, none);
  HostImage keep = madeMatte(hold ? in.hold.get() : nullptr, keeps ? in.source.get() : nullptr,
                             false, panel.hold, settings.text("holdOutChannel"), window, depth);
  HostImage cut = madeMatte(garbage ? in.garbage.get() : nullptr, cuts ? in.source.get() : nullptr,
                            true, panel.garbage, settings.text("garbageChannel"), window, depth);
  HostImage reference = staged(in.reference.get(), window, depth, screen);
  auto out = std::make_unique<HostImage>(Layout{window, 4, depth});
  Otile tile{};
  tile.dst = describe(*out);
  tile.fg = describe(fg);
  if (settings.view(inputs) == orvanite::View::composite) tile.bg = describe(bg);
  if (inputs.holdOut) tile.hold = describe(keep);
  if (inputs.garbage) tile.garbage = describe(cut);
  if (inputs.reference) tile.ref = describe(reference);
  const int result =
      orvanite_render(engine, depth, window.x2 - window.x1, window.y2 - window.y1, &tile);
  orvanite_delete(engine);
  if (result != 0) return nullptr;
  return out;
}

}  // namespace ofxTest
