// SPDX-License-Identifier: BSD-3-Clause
//
// Dispatch: checks what a tile must have and picks the one kernel of 48 that its choices ask for,
// once per tile, so that no kernel tests them per pixel. The process's target is asked first; what
// it has no kernel for goes to the reference.
#include <array>
#include <atomic>
#include <cstddef>
#include <utility>

#include "engine/kernels/QMXOrvaniteRender.h"
#include "engine/kernels/QMXOrvaniteRender32.h"
#include "engine/kernels/Target.h"

namespace orvanite {

namespace {

using Kernel = int (*)(QMXOrvaniteTable* engine, int width, int height, Otile* tile);
using Kernels = std::array<Kernel, 16>;

// A kernel's place in its table: first choice (Ref or Linear), Hold, Garbage, Alpha, as bits.
constexpr std::size_t kernelIndex(bool first, bool hold, bool garbage, bool alpha) {
  return std::size_t{first} << 3 | std::size_t{hold} << 2 | std::size_t{garbage} << 1 |
         std::size_t{alpha};
}

template <class T, std::size_t i>
int renderIntegers(QMXOrvaniteTable* engine, int width, int height, Otile* tile) {
  return QMXOrvaniteRender<T, (i >> 3) & 1, (i >> 2) & 1, (i >> 1) & 1, i & 1>()(engine, width,
                                                                                 height, tile);
}

template <std::size_t i>
int renderFloats(QMXOrvaniteTable* engine, int width, int height, Otile* tile) {
  using Otrue = QMXOrvaniteTable::Otrue;
  using Ofalse = QMXOrvaniteTable::Ofalse;
  return engine->QMXOrvaniteRender32(width, height, tile,
                                     std::conditional_t<(i >> 3) & 1, Otrue, Ofalse>(),
                                     std::conditional_t<(i >> 2) & 1, Otrue, Ofalse>(),
                                     std::conditional_t<(i >> 1) & 1, Otrue, Ofalse>(),
                                     std::conditional_t<i & 1, Otrue, Ofalse>());
}

template <class T, std::size_t... i>
constexpr Kernels integerKernels(std::index_sequence<i...>) {
  return {renderIntegers<T, i>...};
}

template <std::size_t... i>
constexpr Kernels floatKernels(std::index_sequence<i...>) {
  return {renderFloats<i>...};
}

constexpr Kernels kernels8 = integerKernels<unsigned char>(std::make_index_sequence<16>());
constexpr Kernels kernels16 = integerKernels<unsigned short>(std::make_index_sequence<16>());
constexpr Kernels kernels32 = floatKernels(std::make_index_sequence<16>());

std::atomic<std::uint64_t> fastTiles{0};

TileKernel chooseFast(const Target& target, const QMXOrvaniteTable& e, int depth, int width,
                      int height, const Otile& tile, const TileVariant& variant) {
  if (width < 1 || height < 1) return nullptr;
  if (depth == 4) {
    return target.floats != nullptr ? target.floats->choose(e, width, height, tile, variant)
                                    : nullptr;
  }
  return target.integers != nullptr
             ? target.integers->choose(e, depth, width, height, tile, variant)
             : nullptr;
}

}  // namespace

std::uint64_t tilesKeyedByTarget() { return fastTiles.load(std::memory_order_relaxed); }

}  // namespace orvanite

int QMXOrvaniteTable::render(int depth, int width, int height, Otile* tile) {
  using namespace orvanite;
  constexpr int refused = 1;
  if (tablesDirty != 0) return 0;

  const bool bgPresent = hasColours(tile->bg);
  const bool fgPresent = hasColours(tile->fg);
  const bool ref = refEnabled != 0 && hasColours(tile->ref);
  const bool hold = holdEnabled != 0 && tile->hold.alpha != nullptr;
  const bool garbage = garbageEnabled != 0 && tile->garbage.alpha != nullptr;

  if (!isComplete(tile->dst)) return refused;
  if (view == 0 ? !bgPresent : !bgPresent && !fgPresent) return refused;
  if (refEnabled != 0 && !ref) return refused;
  if (depth != 1 && depth != 2 && depth != 4) return refused;
  // What an earlier build of the other kind left is older than the parameters.
  if (lastBuilt != (depth == 4 ? floatKind : integerKind)) return refused;
  const Target* const target = activeTarget();
  if (target == nullptr) return refused;

  const bool alpha = view != 0 || tile->bg.alpha != nullptr;
  const TileVariant variant = {ref, hold, garbage, alpha};
  if (const TileKernel fast = chooseFast(*target, *this, depth, width, height, *tile, variant)) {
    fast(*this, width, height, *tile, variant);
    fastTiles.fetch_add(1, std::memory_order_relaxed);
    return 0;
  }
  const bool first = depth == 4 ? colourspace == 0 : ref;
  const Kernels& kernels = depth == 1 ? kernels8 : depth == 2 ? kernels16 : kernels32;
  return kernels[kernelIndex(first, hold, garbage, alpha)](this, width, height, tile);
}
