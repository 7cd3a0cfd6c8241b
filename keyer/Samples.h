// SPDX-License-Identifier: BSD-3-Clause
//
// The kinds of samples that pictures have, and the way from each to what the engine keys.
// The engine knows bytes, words and floats; halves are keyed as floats, and floats beside a clean
// plate as words.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/Depth.h"

namespace orvanite {

/// What a picture's samples are.
enum class Sample : std::uint8_t { byte, word, half, real };

/// Bytes of one sample.
constexpr int bytesOf(Sample sample) {
  return sample == Sample::byte ? 1 : sample == Sample::real ? 4 : 2;
}

/// The engine's depth for pictures of a kind. Beside a clean plate the engine keys
/// integers only: floats and halves are keyed as words then.
constexpr Depth workingDepth(Sample sample, bool cleanPlate) {
  if (sample == Sample::byte) return Depth::bytes;
  return sample == Sample::word || cleanPlate ? Depth::shorts : Depth::floats;
}

/// Whether the engine reads samples of a kind as they are at a depth.
constexpr bool isNative(Sample sample, Depth depth) {
  return sample != Sample::half && depth == depthOf(bytesOf(sample));
}

/// Bytes from one sample to the next; 0: they lie side by side.
struct Steps {
  std::ptrdiff_t to = 0;    // in the result
  std::ptrdiff_t from = 0;  // in what is brought
};

/// Brings n samples to a depth. Between kinds the largest code stands for 1.0, rounded half up;
/// what lies outside 0..1 goes to the ends of codes, and NaN to 0.
void toWorking(std::byte* to, Depth depth, const std::byte* from, Sample sample, std::size_t n,
               Steps steps = {});

/// And back. Halves are rounded to the nearest, to even where two are as near.
void fromWorking(std::byte* to, Sample sample, const std::byte* from, Depth depth, std::size_t n,
                 Steps steps = {});

/// The value of one sample; 1.0 is white.
float valueOf(const std::byte* at, Sample sample);

/// Writes a value as a code of a depth, rounded half up and held inside the codes.
void writeCode(std::byte* at, Depth depth, float value);

}  // namespace orvanite
