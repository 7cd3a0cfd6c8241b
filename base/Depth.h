// SPDX-License-Identifier: BSD-3-Clause
//
// Depths of samples, as the flat interface numbers them, and the one way from a depth to code for
// its type. Uses the standard library only.
#pragma once

#include <cstdint>
#include <optional>
#include <type_traits>
#include <utility>

namespace orvanite {

/// How a sample is stored; the number is its size in bytes.
enum class Depth : int { bytes = 1, shorts = 2, floats = 4 };

/// The depth of a number that came through a C interface; none for any other number.
constexpr std::optional<Depth> depthOf(int code) {
  if (code == 1 || code == 2 || code == 4) return static_cast<Depth>(code);
  return std::nullopt;
}

/// The depth that samples of a type have.
template <class Sample>
inline constexpr Depth depthOfSample = static_cast<Depth>(sizeof(Sample));

/// The code that stands for 1.0: 255, 65535, or 1 for floats.
constexpr int maxOf(Depth depth) {
  return depth == Depth::bytes ? 255 : depth == Depth::shorts ? 65535 : 1;
}

/// Bytes of a sample.
constexpr int bytesOf(Depth depth) { return static_cast<int>(depth); }

/// Calls visit(std::type_identity<Sample>()) for the depth's type: std::uint8_t, std::uint16_t or
/// float. The results of the three calls must have one type.
template <class Visit>
decltype(auto) withSampleOf(Depth depth, Visit&& visit) {
  switch (depth) {
    case Depth::bytes:
      return std::forward<Visit>(visit)(std::type_identity<std::uint8_t>());
    case Depth::shorts:
      return std::forward<Visit>(visit)(std::type_identity<std::uint16_t>());
    case Depth::floats:
      break;
  }
  return std::forward<Visit>(visit)(std::type_identity<float>());
}

}  // namespace orvanite
