// SPDX-License-Identifier: BSD-3-Clause
//
// The tile record as the engine reads it: which of its images are there.
// The record itself is declared in engine/orvanite.h, the header that clients see.
#pragma once

#include "engine/orvanite.h"

namespace orvanite {

/// True when the three colour channels are all there: only then does an image count as present.
inline bool hasColours(const OtileImage& image) {
  return image.red != nullptr && image.green != nullptr && image.blue != nullptr;
}

/// True when a destination can be written: all four channels are needed, whatever is written.
inline bool isComplete(const OtileImage& image) {
  return hasColours(image) && image.alpha != nullptr;
}

}  // namespace orvanite
