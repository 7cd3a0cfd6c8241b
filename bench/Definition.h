// SPDX-License-Identifier: BSD-3-Clause
//
// The definition's kernels as every speed-up is stated against: compiled -O3, on x86 for x86-64-v2
// (see CMakeLists.txt), whatever the engine's own objects are compiled for.
#pragma once

#include "engine/Choices.h"
#include "engine/QMXOrvaniteTable.h"

namespace orvanite::bench {

/// Keys a tile with the definition's kernel for the choices. The tile has passed the dispatcher's
/// checks.
void renderDefinition(QMXOrvaniteTable& engine, Depth depth, int width, int height, Otile& tile,
                      const Choices& choices);

}  // namespace orvanite::bench
