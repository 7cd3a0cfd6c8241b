// SPDX-License-Identifier: BSD-3-Clause
//
// The 48 kernels of the definition, by number: plain code, one pixel at a time. What happens to a
// pixel stands in QMXOrvaniteRender.h (integers) and QMXOrvaniteRender32.h (floats); every other
// kernel gives the same bits.
//
// The instances are made here from the list of choices. A file that includes this header compiles
// them with its own flags: the dispatcher does, and the benchmarks for their baseline.
#pragma once

#include <array>
#include <cstddef>
#include <type_traits>
#include <utility>

#include "engine/Choices.h"
#include "engine/kernels/QMXOrvaniteRender.h"
#include "engine/kernels/QMXOrvaniteRender32.h"

namespace orvanite {

namespace {

/// Keys a tile; 0 done, 1 refused.
using DefinitionKernel = int (*)(QMXOrvaniteTable* engine, int width, int height, Otile* tile);

/// The kernel of a number, for samples of T. Flattened: were the instance called, the linker could
/// take the one of another file, compiled with other flags, in its place.
template <class T, std::size_t number>
[[gnu::flatten]] int runDefinition(QMXOrvaniteTable* engine, int width, int height, Otile* tile) {
  constexpr Choices c = choicesOf(depthOfSample<T>, number);
  if constexpr (std::is_same_v<T, float>) {
    using Otrue = QMXOrvaniteTable::Otrue;
    using Ofalse = QMXOrvaniteTable::Ofalse;
    return engine->QMXOrvaniteRender32(
        width, height, tile, std::conditional_t<c.linear, Otrue, Ofalse>(),
        std::conditional_t<c.hold, Otrue, Ofalse>(), std::conditional_t<c.garbage, Otrue, Ofalse>(),
        std::conditional_t<c.alpha, Otrue, Ofalse>());
  } else {
    return QMXOrvaniteRender<T, c.ref, c.hold, c.garbage, c.alpha>()(engine, width, height, tile);
  }
}

template <class T, std::size_t... number>
constexpr std::array<DefinitionKernel, sizeof...(number)> definitionKernels(
    std::index_sequence<number...>) {
  return {runDefinition<T, number>...};
}

/// The kernel for a depth and choices.
inline DefinitionKernel definitionKernel(Depth depth, const Choices& choices) {
  return withSampleOf(depth, [&]<class T>(std::type_identity<T>) {
    static constexpr auto all =
        definitionKernels<T>(std::make_index_sequence<kernelCount(depthOfSample<T>)>());
    return all[kernelNumber(depth, choices)];
  });
}

}  // namespace

}  // namespace orvanite
