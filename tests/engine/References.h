// SPDX-License-Identifier: BSD-3-Clause
//
// The 48 reference kernels as plain functions, so that a sweep can call each of them by number.
#pragma once

#include <utility>

#include "engine/QMXOrvaniteTable.h"
#include "engine/kernels/QMXOrvaniteRender.h"
#include "engine/kernels/QMXOrvaniteRender32.h"
#include "tests/engine/Pixel.h"

template <class T>
using Kernel = int (*)(QMXOrvaniteTable*, int, int, Otile*);

namespace references {

template <bool choice>
using Tag = std::conditional_t<choice, QMXOrvaniteTable::Otrue, QMXOrvaniteTable::Ofalse>;

// Bits of `number`: 8 the clean plate (floats: linear), 4 hold-out, 2 garbage, 1 alpha.
template <class T, int number>
int call(QMXOrvaniteTable* engine, int width, int height, Otile* tile) {
  constexpr bool first = (number & 8) != 0, hold = (number & 4) != 0, garbage = (number & 2) != 0,
                 alpha = (number & 1) != 0;
  if constexpr (sizeof(T) == 4)
    return engine->QMXOrvaniteRender32(width, height, tile, Tag<first>{}, Tag<hold>{},
                                       Tag<garbage>{}, Tag<alpha>{});
  else
    return QMXOrvaniteRender<T, first, hold, garbage, alpha>()(engine, width, height, tile);
}

template <class T, int... number>
Kernel<T> choose(int wanted, std::integer_sequence<int, number...>) {
  static constexpr Kernel<T> kernels[] = {&call<T, number>...};
  return kernels[wanted];
}

}  // namespace references

template <class T>
Kernel<T> referenceKernel(const model::Instance& instance, bool linear) {
  const bool first = sizeof(T) == 4 ? linear : instance.ref;
  const int number = first * 8 + instance.hold * 4 + instance.garbage * 2 + instance.alpha;
  return references::choose<T>(number, std::make_integer_sequence<int, 16>());
}
