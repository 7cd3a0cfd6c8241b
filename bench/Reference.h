// SPDX-License-Identifier: BSD-3-Clause
//
// The reference kernels as every speed-up is stated against: compiled -O3, on x86 for x86-64-v2
// (see CMakeLists.txt), whatever the engine's own objects are compiled for.
#pragma once

#include "engine/QMXOrvaniteTable.h"
#include "engine/kernels/simd/Kernels.h"

namespace orvanite::bench {

/// Keys a tile with the reference's instance for a depth of 1, 2 or 4 bytes and for the choices.
/// The tile has passed the dispatcher's checks.
void renderReference(QMXOrvaniteTable& engine, int depth, int width, int height, Otile& tile,
                     const TileVariant& variant);

}  // namespace orvanite::bench
