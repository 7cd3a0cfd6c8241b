// SPDX-License-Identifier: BSD-3-Clause
//
// What is decided once a tile, so that no kernel asks per pixel: the one list of the choices, and
// the numbers of the kernels that they make: 16 for each depth.
//
// A choice more is a member here, its place in the lists, and a template parameter of the kernels.
#pragma once

#include <cstddef>
#include <span>

#include "base/Depth.h"

namespace orvanite {

struct Choices {
  bool ref = false;      // integers: keyed against a clean plate
  bool linear = false;   // floats: samples are linear light
  bool hold = false;     // the hold-out matte is used
  bool garbage = false;  // the garbage matte is used
  bool alpha = false;    // the destination's alpha is written
};

// In the order of their bits, lowest first.
inline constexpr bool Choices::*integerChoices[] = {&Choices::alpha, &Choices::garbage,
                                                    &Choices::hold, &Choices::ref};
inline constexpr bool Choices::*floatChoices[] = {&Choices::alpha, &Choices::garbage,
                                                  &Choices::hold, &Choices::linear};

/// The choices of a depth, and how many kernels they make.
constexpr std::span<bool Choices::*const> choicesAt(Depth depth) {
  if (depth == Depth::floats) return floatChoices;
  return integerChoices;
}
constexpr std::size_t kernelCount(Depth depth) { return std::size_t{1} << choicesAt(depth).size(); }

/// A kernel's number among those of its depth. Choices that the depth does not know do not count.
constexpr std::size_t kernelNumber(Depth depth, const Choices& choices) {
  std::size_t number = 0, bit = 1;
  for (bool Choices::*const choice : choicesAt(depth)) {
    if (choices.*choice) number |= bit;
    bit <<= 1;
  }
  return number;
}

/// The choices of a number.
constexpr Choices choicesOf(Depth depth, std::size_t number) {
  Choices choices;
  for (bool Choices::*const choice : choicesAt(depth)) {
    choices.*choice = (number & 1) != 0;
    number >>= 1;
  }
  return choices;
}

}  // namespace orvanite
