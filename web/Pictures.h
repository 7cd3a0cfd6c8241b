// SPDX-License-Identifier: BSD-3-Clause
//
// The pictures that the page was given, by what they are for: RGBA, interleaved, of 8 or 16 bits or
// floats, all of one size and depth; and the smaller ones that are keyed while a control moves.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "base/Depth.h"
#include "keyer/Keyer.h"
#include "keyer/Screen.h"

namespace orvanite::web {

enum class Role { plate, background, holdOut, garbage, cleanPlate };
inline constexpr std::size_t roleCount = 5;

/// A rectangle of pixels.
struct Window {
  int x = 0, y = 0, width = 0, height = 0;
  bool operator==(const Window&) const = default;
};

struct Picture {
  int width = 0, height = 0;
  Depth depth = Depth::bytes;
  bool hasAlpha = false;  // whether the file had one; here there are four channels always
  std::vector<std::byte> pixels;

  Picture() = default;
  Picture(int wide, int high, Depth samples);

  /// From a pixel on, as the engine takes it. The picture keeps the pixels.
  OtileImage image(int x = 0, int y = 0) const;
  /// As one in which a screen is looked for.
  Plate plate() const { return {image(), width, height, depth}; }
};

/// Each pixel the mean of divisor x divisor others; those beyond the edge do not count.
Picture shrunk(const Picture& picture, int divisor);

/// A part of a picture.
Picture part(const Picture& picture, const Window& window);

/// 8 bits a sample: to the nearest code, floats clipped to 0..1.
/// light  whether floats are light, whose codes are shown
Picture toScreen(Picture picture, bool light);

/// Takes the transparency out of a picture of bytes.
void makeOpaque(Picture& picture);

/// The pictures by role. Throws Error (wrongUse) for one that does not fit the plate.
class Pictures {
 public:
  /// Takes a picture; a plate lets go of all others. Deeper than the plate: no.
  void take(Role role, Picture picture);
  void drop(Role role);
  /// Another frame of the plate, as large and deep: all others stay.
  void turn(Picture plate);

  bool has(Role role) const { return full_[index(role)].width > 0; }
  const Picture& full(Role role) const { return full_[index(role)]; }
  /// Made when it is asked for first.
  const Picture& at(Role role, int divisor);

  Inputs inputs() const;
  /// Counts the plates that came; frames of one do not count.
  int plates() const { return plates_; }

 private:
  static std::size_t index(Role role) { return static_cast<std::size_t>(role); }

  std::array<Picture, roleCount> full_;
  std::map<std::pair<std::size_t, int>, Picture> small_;
  int plates_ = 0;
};

}  // namespace orvanite::web
