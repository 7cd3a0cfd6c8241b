// SPDX-License-Identifier: BSD-3-Clause
//
// Dispatch: checks what a tile must have and picks the one kernel of 48 that its choices ask for,
// once per tile, so that no kernel tests them per pixel. The process's target is asked first; what
// it does not take goes to the definition.
#include <atomic>

#include "engine/View.h"
#include "engine/colour/Encoding.h"
#include "engine/kernels/Definition.h"
#include "engine/targets/Target.h"

namespace orvanite {

namespace {

std::atomic<std::uint64_t> fastTiles{0};

bool keyedByTarget(const Target& target, const QMXOrvaniteTable& e, Depth depth, int width,
                   int height, const Otile& tile, const Choices& choices) {
  if (width < 1 || height < 1) return false;
  if (depth == Depth::floats) {
    return target.floats != nullptr && target.floats->key(e, width, height, tile, choices);
  }
  return target.integers != nullptr && target.integers->key(e, depth, width, height, tile, choices);
}

}  // namespace

std::uint64_t tilesKeyedByTarget() { return fastTiles.load(std::memory_order_relaxed); }

}  // namespace orvanite

int QMXOrvaniteTable::render(int depthCode, int width, int height, Otile* tile) {
  using namespace orvanite;
  constexpr int refused = 1;
  if (tablesDirty != 0) return 0;

  const std::optional<Depth> depth = depthOf(depthCode);
  const bool bgPresent = hasColours(tile->bg);
  const bool fgPresent = hasColours(tile->fg);
  const bool composite = viewOf(view) == View::composite;
  const Choices choices = {.ref = refEnabled != 0 && hasColours(tile->ref),
                           .linear = colourspace == linearSpace,
                           .hold = holdEnabled != 0 && tile->hold.alpha != nullptr,
                           .garbage = garbageEnabled != 0 && tile->garbage.alpha != nullptr,
                           .alpha = !composite || tile->bg.alpha != nullptr};

  if (!isComplete(tile->dst)) return refused;
  if (composite ? !bgPresent : !bgPresent && !fgPresent) return refused;
  if (refEnabled != 0 && !choices.ref) return refused;
  if (!depth) return refused;
  // What an earlier build of the other kind left is older than the parameters.
  if (lastBuilt != (*depth == Depth::floats ? floatKind : integerKind)) return refused;
  const Target* const target = activeTarget();
  if (target == nullptr) return refused;

  if (keyedByTarget(*target, *this, *depth, width, height, *tile, choices)) {
    fastTiles.fetch_add(1, std::memory_order_relaxed);
    return 0;
  }
  return definitionKernel(*depth, choices)(this, width, height, tile);
}
