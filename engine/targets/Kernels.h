// SPDX-License-Identifier: BSD-3-Clause
//
// What is compiled once for each target, as tables of functions: the seam between ordinary code
// and the objects that are built with a processor's own flags. Ordinary code calls through these
// tables only; the objects export nothing else, so no instruction of one machine can leak into
// the code for another.
//
// Every function gives the same bits on every target.
#pragma once

#include <cstddef>
#include <cstdint>

#include "engine/Choices.h"
#include "engine/orvanite.h"

namespace orvanite {

/// The encodings over arrays; in and out may be the same array. Definitions: colour/Encoding.h.
struct EncodingFunctions {
  void (*toLinear)(const float* in, float* out, std::size_t n, int colourspace);
  void (*fromLinear)(const float* in, float* out, std::size_t n, int colourspace);
  void (*power)(const float* in, float* out, std::size_t n, float exponent);
  void (*regrade)(const float* in, float* out, std::size_t n, float exposure, float gamma,
                  float offset);

  /// Entries first to end of a float key table, as half patterns, by half pattern of the sample:
  /// scale * linear * (s0 + s1 t + s2 t^2 + s3 t^3), highest power first, each step rounded, where
  /// t = (sample - x0) * w.
  void (*fillKey)(const float* linear, std::uint16_t* table, unsigned first, unsigned end,
                  const float (&spline)[4], float x0, float w, float scale);

  /// Whether the first `entries` of a key table are scale * linear * factor throughout.
  bool (*isKeyProduct)(const float* linear, const std::uint16_t* table, unsigned entries,
                       float scale, float factor);

  /// The double-precision estimates before rounding, of finite values above 0, for measuring how
  /// far they lie from the definition: in^exponent, and the common logarithm.
  void (*powerEstimate)(const float* in, double* out, std::size_t n, float exponent);
  void (*logarithmEstimate)(const float* in, double* out, std::size_t n);
};

/// What is told of the machine when a target's objects are compiled, as bits of Feature.
using Features = std::uint32_t;

struct FloatKernels {
  /// Keys a float tile that has passed every check of the dispatcher. False, and nothing written,
  /// when the definition has to key it: an image that is not interleaved red first or alpha first,
  /// or buffers that overlap other than pixel for pixel.
  bool (*key)(const QMXOrvaniteTable& engine, int width, int height, const Otile& tile,
              const Choices& choices);
};

struct IntegerKernels {
  /// The same for an integer tile, of bytes or shorts.
  bool (*key)(const QMXOrvaniteTable& engine, Depth depth, int width, int height, const Otile& tile,
              const Choices& choices);
};

}  // namespace orvanite
