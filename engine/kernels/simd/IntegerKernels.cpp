// SPDX-License-Identifier: BSD-3-Clause
//
// Built once per target: the kernels for 8-bit and 16-bit tiles.
#include "engine/kernels/simd/IntegerKey.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

namespace {

template <class T>
void keyTile(const QMXOrvaniteTable& engine, int width, int height, const Otile& record,
             const TileVariant& variant) {
  IntegerTile<T> tile;
  if (!describe(engine, width, height, record, variant, tile)) return;  // choose() has asked
  IntegerKernel<T> kernel(engine, variant, record.bg.alpha != nullptr);
  walk(tile, variant.alpha, [&kernel](const Block<T>& block) { kernel(block); });
}

template <class T>
TileKernel kernelFor(const QMXOrvaniteTable& engine, int width, int height, const Otile& record,
                     const TileVariant& variant) {
  constexpr int full = static_cast<T>(~T{0});
  const IntegerPlan* const plan = engine.plan;
  if (plan == nullptr || !plan->usable || plan->depth != static_cast<int>(sizeof(T))) {
    return nullptr;
  }
  if (variant.hold && engine.hMatteMax != full) return nullptr;
  if (variant.garbage && engine.gMatteMax != full) return nullptr;
  if (variant.ref && !plan->refUsable) return nullptr;
  for (int set = 0; set < 2; ++set) {
    if (engine.saturation[set] != 1.0f && !plan->saturationFits[set]) return nullptr;
  }
  IntegerTile<T> tile;
  return describe(engine, width, height, record, variant, tile) ? keyTile<T> : nullptr;
}

TileKernel choose(const QMXOrvaniteTable& engine, int depth, int width, int height,
                  const Otile& record, const TileVariant& variant) {
  return depth == 1 ? kernelFor<std::uint8_t>(engine, width, height, record, variant)
                    : kernelFor<std::uint16_t>(engine, width, height, record, variant);
}

}  // namespace

extern const IntegerKernels integerKernels;
const IntegerKernels integerKernels = {compiledFor, choose};

}  // namespace orvanite::ORVANITE_SIMD_TARGET
