// SPDX-License-Identifier: BSD-3-Clause
#include "web/Pictures.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>

#include "apps/view/PageView.h"
#include "base/Error.h"

namespace orvanite::web {
namespace {

std::size_t at(int index) { return static_cast<std::size_t>(index); }

template <class Code>
void shrink(const Picture& from, Picture& to, int divisor) {
  using Sum = std::conditional_t<std::is_floating_point_v<Code>, float, std::uint32_t>;
  const auto* const source = reinterpret_cast<const Code*>(from.pixels.data());
  auto* result = reinterpret_cast<Code*>(to.pixels.data());
  for (int y = 0; y < to.height; ++y) {
    const int top = y * divisor, bottom = std::min(from.height, top + divisor);
    for (int x = 0; x < to.width; ++x, result += 4) {
      const int left = x * divisor, right = std::min(from.width, left + divisor);
      std::array<Sum, 4> sums{};
      for (int v = top; v < bottom; ++v) {
        const Code* pixel = source + 4 * (at(v) * at(from.width) + at(left));
        for (int u = left; u < right; ++u, pixel += 4) {
          for (std::size_t c = 0; c < 4; ++c) sums[c] += pixel[c];
        }
      }
      const auto count = static_cast<Sum>((bottom - top) * (right - left));
      for (std::size_t c = 0; c < 4; ++c) {
        if constexpr (std::is_floating_point_v<Code>) {
          result[c] = sums[c] / count;
        } else {
          result[c] = static_cast<Code>((sums[c] + count / 2) / count);
        }
      }
    }
  }
}

// A composite's alpha is its matte joined with the background's, and files of composites have none:
// without it the matte can be counted.
void makeTransparent(Picture& picture) {
  withSampleOf(picture.depth, [&]<class Sample>(std::type_identity<Sample>) {
    auto* const samples = reinterpret_cast<Sample*>(picture.pixels.data());
    const std::size_t count = picture.pixels.size() / sizeof(Sample);
    for (std::size_t i = 3; i < count; i += 4) samples[i] = 0;
  });
}

std::string sizeOf(const Picture& picture) {
  return std::to_string(picture.width) + "x" + std::to_string(picture.height);
}

constexpr std::array<const char*, roleCount> names{"plate", "background", "hold-out matte",
                                                   "garbage matte", "clean plate"};

}  // namespace

Picture::Picture(int wide, int high, Depth samples)
    : width(wide),
      height(high),
      depth(samples),
      pixels(4 * at(wide) * at(high) * at(bytesOf(samples))) {}

OtileImage Picture::image(int x, int y) const {
  const std::ptrdiff_t bytes = bytesOf(depth);
  // The engine reads through the same kind of pointers that it writes through.
  std::byte* const first =
      const_cast<std::byte*>(pixels.data()) + (std::ptrdiff_t{y} * width + x) * 4 * bytes;
  return {first, first + bytes, first + 2 * bytes, first + 3 * bytes, 4, 4 * width};
}

Picture shrunk(const Picture& picture, int divisor) {
  Picture result((picture.width + divisor - 1) / divisor, (picture.height + divisor - 1) / divisor,
                 picture.depth);
  result.hasAlpha = picture.hasAlpha;
  withSampleOf(picture.depth, [&]<class Sample>(std::type_identity<Sample>) {
    shrink<Sample>(picture, result, divisor);
  });
  return result;
}

Picture part(const Picture& picture, const Window& window) {
  Picture result(window.width, window.height, picture.depth);
  result.hasAlpha = picture.hasAlpha;
  const std::size_t pixel = 4 * at(bytesOf(picture.depth)), row = pixel * at(window.width);
  for (int y = 0; y < window.height; ++y) {
    const std::size_t from = (at(window.y + y) * at(picture.width) + at(window.x)) * pixel;
    std::memcpy(result.pixels.data() + at(y) * row, picture.pixels.data() + from, row);
  }
  return result;
}

Picture toScreen(Picture picture, bool light) {
  if (picture.depth == Depth::bytes) return picture;
  Picture result(picture.width, picture.height, Depth::bytes);
  if (picture.depth == Depth::floats) {
    view::toCodes(reinterpret_cast<const float*>(picture.pixels.data()), result.pixels.size() / 4,
                  reinterpret_cast<std::uint8_t*>(result.pixels.data()), light);
    return result;
  }
  const auto* from = reinterpret_cast<const std::uint16_t*>(picture.pixels.data());
  // To the nearest code: v * 255 / 65535 is v / 257.
  for (std::byte& code : result.pixels) code = static_cast<std::byte>((*from++ + 128) / 257);
  return result;
}

void makeOpaque(Picture& picture) {
  auto* const codes = reinterpret_cast<std::uint8_t*>(picture.pixels.data());
  for (std::size_t i = 3; i < picture.pixels.size(); i += 4) codes[i] = 255;
}

void Pictures::take(Role role, Picture picture) {
  if (role == Role::plate) {
    for (Picture& one : full_) one = {};
  } else {
    const Picture& plate = full(Role::plate);
    if (picture.width != plate.width || picture.height != plate.height) {
      throw Error::expected(Fault::wrongUse, names[index(role)],
                            "the plate's size, " + sizeOf(plate), sizeOf(picture));
    }
    if (picture.depth != plate.depth) {
      throw Error(Fault::wrongUse, names[index(role)], "expected the plate's depth");
    }
  }
  full_[index(role)] = std::move(picture);
  if (role == Role::background) makeTransparent(full_[index(role)]);
  small_.clear();
  if (role == Role::plate) ++plates_;
}

void Pictures::drop(Role role) {
  full_[index(role)] = {};
  small_.clear();
}

void Pictures::turn(Picture plate) {
  Picture& held = full_[index(Role::plate)];
  if (plate.width != held.width || plate.height != held.height || plate.depth != held.depth) {
    throw Error::expected(Fault::wrongUse, names[index(Role::plate)],
                          "every frame to have the first one's size, " + sizeOf(held),
                          sizeOf(plate));
  }
  held = std::move(plate);
  std::erase_if(small_, [](const auto& one) { return one.first.first == index(Role::plate); });
}

const Picture& Pictures::at(Role role, int divisor) {
  if (divisor == 1) return full(role);
  Picture& small = small_[{index(role), divisor}];
  if (small.width == 0) small = shrunk(full(role), divisor);
  return small;
}

Inputs Pictures::inputs() const {
  return {has(Role::background), has(Role::holdOut), has(Role::garbage), has(Role::cleanPlate)};
}

}  // namespace orvanite::web
