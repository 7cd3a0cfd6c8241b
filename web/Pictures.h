// SPDX-License-Identifier: BSD-3-Clause
//
// The pictures that the page was given, by what they are for: RGBA, interleaved, of 8 or 16 bits or
// floats, all of one size and depth; and the smaller ones that are keyed while a control moves.
// They lie with the page: of each are held the rows that were asked for, so that engines which
// share the rows of a view hold a picture once between them.
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

  /// Whether it holds another one.
  bool holds(const Window& other) const {
    return x <= other.x && y <= other.y && other.x + other.width <= x + width &&
           other.y + other.height <= y + height;
  }
};

struct Picture {
  int width = 0, height = 0;
  Depth depth = Depth::bytes;
  bool hasAlpha = false;          // whether the file had one; here there are four channels always
  Window own;                     // what the file holds of it; beside that there are zeros
  int top = 0;                    // the first row that is held
  std::vector<std::byte> pixels;  // from there on

  Picture() = default;
  /// All rows of a new one.
  Picture(int wide, int high, Depth samples);

  /// All rows of another one in the same room, as far as there is enough; samples are whatever.
  void reshape(int wide, int high, Depth samples);
  /// Room for so many bytes from `top` on; samples are whatever.
  void makeRoom(std::size_t bytes);

  /// A row's bytes.
  std::size_t stride() const;
  /// The row after the last one that is held.
  int bottom() const;
  /// Whether the file holds all of it.
  bool fillsFrame() const { return own == Window{0, 0, width, height}; }
  /// Whether rows are held, from `first` to before `end`.
  bool holds(int first, int end) const { return top <= first && end <= bottom(); }

  /// From a pixel on, as the engine takes it. The picture keeps the pixels.
  OtileImage image(int x = 0, int y = 0) const;
  /// Of floats: gives a colour to what lies beside a window.
  void paintBeside(const Window& inside, const std::array<float, 3>& colour);
  /// As one in which a screen is looked for; all rows are held.
  Plate plate() const { return {image(), width, height, depth}; }
};

/// Each pixel the mean of divisor x divisor others; those beyond the edge do not count. Holds the
/// rows whose pixels are held.
Picture shrunk(const Picture& picture, int divisor);

/// A part of a picture.
Picture part(const Picture& picture, const Window& window);

/// 8 bits a sample of more: to the nearest code, floats clipped to 0..1.
/// light  whether floats are light, whose codes are shown
Picture toScreen(const Picture& picture, bool light);

/// Takes the transparency out of a picture of bytes.
/// A picture over all of a frame of another size, at a depth, as the command brings backgrounds
/// over their plates. Floats are light, codes video. samples  RGBA rows of `depth` bytes a sample,
/// width x height
Picture fitted(const std::byte* samples, int width, int height, Depth depth, int frameWidth,
               int frameHeight, Depth frameDepth);

void makeOpaque(Picture& picture);

/// The pictures by role. Throws Error (wrongUse) for one that does not fit the plate.
class Pictures {
 public:
  /// Hands over rows of a picture as they were given: `count` of them from `top` on.
  using Rows = void (*)(Role role, int top, int count, std::byte* to);

  explicit Pictures(Rows rows) : rows_(rows) {}

  /// Takes a picture whose rows there are, so far without any; a plate lets go of all others.
  /// Deeper than the plate: no.
  void take(Role role, const Picture& picture);
  void drop(Role role);
  /// Another frame of the plate, as large and deep: all others stay.
  void turn(const Picture& plate);

  bool has(Role role) const { return full_[index(role)].width > 0; }
  /// Its size and depth; which rows are held is not said.
  const Picture& shape(Role role) const { return full_[index(role)]; }
  /// One pixel stands for divisor x divisor, and rows are held from `top` to before `bottom`, as
  /// long as no others are asked for.
  const Picture& at(Role role, int divisor, int top, int bottom);
  /// All rows of the picture itself.
  const Picture& whole(Role role) { return at(role, 1, 0, shape(role).height); }

  Inputs inputs() const;
  /// Counts the plates that came; frames of one do not count.
  int plates() const { return plates_; }

 private:
  static std::size_t index(Role role) { return static_cast<std::size_t>(role); }
  const Picture& fetched(Role role, int top, int bottom);

  Rows rows_;
  std::array<Picture, roleCount> full_;
  std::array<Picture, roleCount> few_;  // rows beside those, for looks at pixels
  std::map<std::pair<std::size_t, int>, Picture> small_;
  int plates_ = 0;
};

}  // namespace orvanite::web
