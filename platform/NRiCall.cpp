// SPDX-License-Identifier: BSD-3-Clause
//
// The table of calls, made from index sequences.
#include "platform/NRiCall.h"

#include <array>
#include <cassert>
#include <utility>

namespace {

template <std::size_t>
using Image = NRiIPlug*;
template <std::size_t>
using Text = const char*;

using Caller = NRiIPlug* (*)(void*, NRiIPlug* const*, const char* const*);

template <std::size_t... I, std::size_t... T>
constexpr Caller callerOf(std::index_sequence<I...>, std::index_sequence<T...>) {
  return [](void* address, [[maybe_unused]] NRiIPlug* const* image,
            [[maybe_unused]] const char* const* text) {
    using Function = NRiIPlug* (*)(Image<I>..., Text<T>...);
    return reinterpret_cast<Function>(address)(image[I]..., text[T]...);
  };
}

using Row = std::array<Caller, NRiMostTexts + 1>;

template <std::size_t images, std::size_t... texts>
constexpr Row rowOf(std::index_sequence<texts...>) {
  return {callerOf(std::make_index_sequence<images>(), std::make_index_sequence<texts>())...};
}

template <std::size_t... images>
constexpr std::array<Row, NRiMostImages + 1> tableOf(std::index_sequence<images...>) {
  return {rowOf<images>(std::make_index_sequence<NRiMostTexts + 1>())...};
}

constexpr auto callers = tableOf(std::make_index_sequence<NRiMostImages + 1>());

}  // namespace

NRiIPlug* NRiCall(void* address, int images, int texts, NRiIPlug* const* image,
                  const char* const* text) {
  assert(images >= 0 && images <= NRiMostImages && texts >= 0 && texts <= NRiMostTexts);
  return callers[static_cast<std::size_t>(images)][static_cast<std::size_t>(texts)](address, image,
                                                                                    text);
}
