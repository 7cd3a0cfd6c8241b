// SPDX-License-Identifier: BSD-3-Clause
//
// A scene before a green or a blue screen, drawn from nothing, whose matte and foreground are
// known: what a keyer is tried on and measured against.
//
// The scene: a bust with flying hair and a sheer scarf, a glass with sprigs, a ball in motion,
// grey plinths, and fruit and glaze close to the screen's own hue. In every pixel and channel
//
//   plate = matte * foreground + (1 - matte) * screen + spill + grain     in light, see Light.h
//
// Without spill and grain the first two terms are the plate exactly (to float rounding).
// The same options give the same bytes whatever the number of threads.
// Uses oneTBB; touches no file.
#pragma once

#include <vector>

namespace orvanite::plate {

enum class ScreenColour { green, blue };
enum class Difficulty {
  clean,   ///< even screen, no shadow, no spill, no grain
  normal,  ///< uneven light, a soft shadow, spill, fine grain
  hard     ///< creased and badly lit screen, deep shadow, heavy spill and grain
};

struct Options {
  ScreenColour screen = ScreenColour::green;
  Difficulty difficulty = Difficulty::normal;
  int width = 1920;   ///< at least 1
  int height = 1080;  ///< at least 1
  bool spill = true;
  bool grain = true;
  int frame = 1;  ///< moves hair, scarf and ball; 24 frames a second
};

/// Rows of red, green, blue, alpha from the top left, interleaved, in light: 1.0 is white.
struct Picture {
  int width = 0;
  int height = 0;
  std::vector<float> samples;

  Picture() = default;
  Picture(int w, int h) : width(w), height(h), samples(4 * size(w, h)) {}
  float* at(int x, int y) {
    return samples.data() + 4 * (size(width, y) + static_cast<std::size_t>(x));
  }
  const float* at(int x, int y) const {
    return samples.data() + 4 * (size(width, y) + static_cast<std::size_t>(x));
  }

 private:
  static std::size_t size(int w, int h) {
    return static_cast<std::size_t>(w) * static_cast<std::size_t>(h);
  }
};

/// Mattes hold their value in all four channels; colour pictures hold 1 in alpha.
struct Pictures {
  Picture plate;
  Picture background;  ///< what belongs behind the subject
  Picture holdOut;     ///< 1 where the subject must be solid, well inside its edges
  Picture garbage;     ///< 0 where the plate is kept, 1 where it is thrown away
  Picture cleanPlate;  ///< the screen in the same light without the subject and its shadow
  Picture matte;       ///< the true matte
  Picture foreground;  ///< the true foreground, not multiplied by the matte; 0 where that is 0
  Picture screen;      ///< the screen that stands behind the subject, its shadow included
  Picture spill;       ///< what the screen adds to the foreground, multiplied by the matte
};

/// Draws everything. Throws std::bad_alloc when memory runs out and std::invalid_argument for a
/// size below 1.
Pictures draw(const Options& options);

/// The screen colour to key with, as video codes in 0..1 (`encoded`) or as light.
struct Colour {
  float r, g, b;
};
Colour screenColour(ScreenColour screen, bool encoded);

/// Light to a video code, both in 0..1.
float videoCode(float light);

}  // namespace orvanite::plate
