// SPDX-License-Identifier: BSD-3-Clause
//
// Every instance is flattened into a function of this file: were it called, the linker could take
// the engine's instance of the same name, compiled with other flags, in its place.
#include "bench/Reference.h"

#include <array>
#include <cstddef>
#include <utility>

#include "engine/kernels/QMXOrvaniteRender.h"
#include "engine/kernels/QMXOrvaniteRender32.h"

namespace orvanite::bench {

namespace {

using Render = void (*)(QMXOrvaniteTable&, int, int, Otile&);

template <bool b>
using Flag = std::conditional_t<b, QMXOrvaniteTable::Otrue, QMXOrvaniteTable::Ofalse>;

/// T float, or the sample of integers; i holds the choices as bits, the first Ref or Linear.
template <class T, std::size_t i>
[[gnu::flatten]] void render(QMXOrvaniteTable& e, int width, int height, Otile& tile) {
  constexpr bool first = (i & 8) != 0, hold = (i & 4) != 0, garbage = (i & 2) != 0,
                 alpha = (i & 1) != 0;
  if constexpr (std::is_same_v<T, float>) {
    e.QMXOrvaniteRender32(width, height, &tile, Flag<first>(), Flag<hold>(), Flag<garbage>(),
                          Flag<alpha>());
  } else {
    QMXOrvaniteRender<T, first, hold, garbage, alpha>()(&e, width, height, &tile);
  }
}

template <class T, std::size_t... i>
constexpr std::array<Render, 16> instances(std::index_sequence<i...>) {
  return {render<T, i>...};
}

template <class T>
void renderAs(QMXOrvaniteTable& e, int width, int height, Otile& tile, const TileVariant& v,
              bool first) {
  static constexpr auto all = instances<T>(std::make_index_sequence<16>());
  all[std::size_t{first} << 3 | std::size_t{v.hold} << 2 | std::size_t{v.garbage} << 1 |
      std::size_t{v.alpha}](e, width, height, tile);
}

}  // namespace

void renderReference(QMXOrvaniteTable& e, int depth, int width, int height, Otile& tile,
                     const TileVariant& variant) {
  if (depth == 1) return renderAs<unsigned char>(e, width, height, tile, variant, variant.ref);
  if (depth == 2) return renderAs<unsigned short>(e, width, height, tile, variant, variant.ref);
  renderAs<float>(e, width, height, tile, variant, e.colourspace == 0);
}

}  // namespace orvanite::bench
