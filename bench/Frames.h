// SPDX-License-Identifier: BSD-3-Clause
//
// What the benchmarks key: the example plate over its background, in every encoding and depth, too
// large for the caches of most machines.
#pragma once

#include <cstddef>
#include <memory>

#include "keyer/Keyer.h"

namespace orvanite::bench {

enum class Encoding { linear, log, video };

inline constexpr const char* encodingNames[] = {"linear", "log", "video"};

/// Sets the size of all frames; before the first is taken.
void setFrameSize(int width, int height);
int frameWidth();
int frameHeight();

/// The plate's screen colour in an encoding.
struct Colour {
  float r, g, b;
};
Colour screenCode(Encoding encoding);

/// Settings of an everyday key for a plate of this encoding: its screen colour, some clipping.
Settings everydaySettings(Encoding encoding, const char* output);

/// Interleaved plate, background and destination of one depth (1, 2 or 4) and encoding.
struct Pictures {
  int depth = 0;
  std::size_t bytes = 0;  // of each picture
  std::unique_ptr<std::byte[]> fg, bg, dst;

  Frame frame() const;
};

/// The pictures of a depth and encoding, made on first need and kept, so that runs can alternate:
/// all of them take 2.1 GB at 3840 x 2160.
const Pictures& pictures(int depth, Encoding encoding);

/// What else a tile can have: both mattes, whose codes are in every channel, and the clean plate.
struct Extras {
  std::unique_ptr<std::byte[]> hold, garbage, clean;
};

/// The extras of a depth and encoding, made on first need and kept. There is no float clean plate.
const Extras& extras(int depth, Encoding encoding);

/// Interleaved pixels of frame size as an image of a tile: red, green, blue, alpha.
OtileImage imageOf(std::byte* samples, int depth);

}  // namespace orvanite::bench
