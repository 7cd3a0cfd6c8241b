// SPDX-License-Identifier: BSD-3-Clause
//
// Built once per target: the kernels for 8-bit and 16-bit tiles.
#include "engine/kernels/simd/IntegerKey.h"
#include "engine/targets/Kernels.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

namespace {

template <class T>
bool keyAs(const QMXOrvaniteTable& engine, int width, int height, const Otile& record,
           const Choices& choices) {
  constexpr int full = maxOf(depthOfSample<T>);
  const IntegerPlan* const plan = engine.plan;
  if (plan == nullptr || !plan->usable || plan->depth != depthOfSample<T>) return false;
  if (!hasColours(record.fg)) return false;
  if (choices.hold && engine.hMatteMax != full) return false;
  if (choices.garbage && engine.gMatteMax != full) return false;
  if (choices.ref && !plan->refUsable) return false;
  for (int set = 0; set < 2; ++set) {
    if (engine.saturation[set] != 1.0f && !plan->saturationFits[set]) return false;
  }
  Tile<T> tile;
  if (!describe(engine, width, height, record, choices, tile)) return false;
  IntegerKernel<T> kernel(engine, choices, record.bg.alpha != nullptr);
  walk(tile, choices.alpha, [&kernel](const Block<T>& block) { kernel(block); });
  return true;
}

bool key(const QMXOrvaniteTable& engine, Depth depth, int width, int height, const Otile& record,
         const Choices& choices) {
  return depth == Depth::bytes ? keyAs<std::uint8_t>(engine, width, height, record, choices)
                               : keyAs<std::uint16_t>(engine, width, height, record, choices);
}

}  // namespace

extern const IntegerKernels integerKernels;
const IntegerKernels integerKernels = {key};

}  // namespace orvanite::ORVANITE_SIMD_TARGET
