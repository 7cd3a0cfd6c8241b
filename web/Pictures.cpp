// SPDX-License-Identifier: BSD-3-Clause
#include "web/Pictures.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>

#include "apps/view/PageView.h"
#include "base/Error.h"
#include "keyer/Fitter.h"
#include "keyer/Samples.h"

namespace orvanite::web {
namespace {

std::size_t size(int count) { return static_cast<std::size_t>(count); }

// Rows come in whole steps of as many, so that bands of any divisor want the same ones.
constexpr int rowStep = 16;
// So many do not take the place of a view's.
constexpr int fewRows = 128;

template <class Code>
void shrink(const Picture& from, Picture& to, int divisor) {
  using Sum = std::conditional_t<std::is_floating_point_v<Code>, float, std::uint32_t>;
  const auto* const source = reinterpret_cast<const Code*>(from.pixels.data());
  auto* result = reinterpret_cast<Code*>(to.pixels.data());
  for (int y = to.top; y < to.bottom(); ++y) {
    const int top = y * divisor, bottom = std::min(from.height, top + divisor);
    for (int x = 0; x < to.width; ++x, result += 4) {
      const int left = x * divisor, right = std::min(from.width, left + divisor);
      std::array<Sum, 4> sums{};
      for (int v = top; v < bottom; ++v) {
        const Code* pixel = source + 4 * (size(v - from.top) * size(from.width) + size(left));
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
      own{0, 0, wide, high},
      pixels(stride() * size(high)) {}

void Picture::reshape(int wide, int high, Depth samples) {
  width = wide;
  height = high;
  depth = samples;
  hasAlpha = false;
  own = {0, 0, wide, high};
  top = 0;
  makeRoom(stride() * size(high));
}

void Picture::makeRoom(std::size_t bytes) {
  if (pixels.capacity() < bytes) pixels = {};  // before there is room for the new ones
  pixels.resize(bytes);
}

std::size_t Picture::stride() const { return 4 * size(width) * size(bytesOf(depth)); }

int Picture::bottom() const {
  return width == 0 ? 0 : top + static_cast<int>(pixels.size() / stride());
}

OtileImage Picture::image(int x, int y) const {
  const std::ptrdiff_t bytes = bytesOf(depth);
  // The engine reads through the same kind of pointers that it writes through.
  std::byte* const first =
      const_cast<std::byte*>(pixels.data()) + (std::ptrdiff_t{y - top} * width + x) * 4 * bytes;
  return {first, first + bytes, first + 2 * bytes, first + 3 * bytes, 4, 4 * width};
}

void Picture::paintBeside(const Window& inside, const std::array<float, 3>& colour) {
  auto* pixel = reinterpret_cast<float*>(pixels.data());
  for (int y = top; y < bottom(); ++y) {
    const bool rowInside = y >= inside.y && y < inside.y + inside.height;
    for (int x = 0; x < width; ++x, pixel += 4) {
      if (rowInside && x >= inside.x && x < inside.x + inside.width) continue;
      std::copy(colour.begin(), colour.end(), pixel);
    }
  }
}

Picture shrunk(const Picture& picture, int divisor) {
  Picture result;
  result.width = (picture.width + divisor - 1) / divisor;
  result.height = (picture.height + divisor - 1) / divisor;
  result.depth = picture.depth;
  result.hasAlpha = picture.hasAlpha;
  result.top = (picture.top + divisor - 1) / divisor;
  const int bottom =
      picture.bottom() == picture.height ? result.height : picture.bottom() / divisor;
  result.pixels.resize(result.stride() * size(std::max(0, bottom - result.top)));
  withSampleOf(picture.depth, [&]<class Sample>(std::type_identity<Sample>) {
    shrink<Sample>(picture, result, divisor);
  });
  return result;
}

Picture part(const Picture& picture, const Window& window) {
  Picture result(window.width, window.height, picture.depth);
  result.hasAlpha = picture.hasAlpha;
  const std::size_t pixel = 4 * size(bytesOf(picture.depth)), row = result.stride();
  for (int y = 0; y < window.height; ++y) {
    const std::size_t from =
        size(window.y + y - picture.top) * picture.stride() + size(window.x) * pixel;
    std::memcpy(result.pixels.data() + size(y) * row, picture.pixels.data() + from, row);
  }
  return result;
}

Picture toScreen(const Picture& picture, bool light) {
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

Picture fitted(const std::byte* samples, int width, int height, Depth depth, int frameWidth,
               int frameHeight, Depth frameDepth) {
  const auto encoding = [](Depth of) { return of == Depth::floats ? "linear" : "video"; };
  Picture result(frameWidth, frameHeight, frameDepth);
  Fitter fitter(width, height, placeOf(width, height, 1, frameWidth, frameHeight, Fit::fill),
                frameWidth, frameHeight, encoding(depth), encoding(frameDepth));
  std::vector<float> line(4 * size(frameWidth));
  withSampleOf(depth, [&]<class Sample>(std::type_identity<Sample>) {
    const auto read = [&](int row, float* to) {
      const auto* const from =
          reinterpret_cast<const Sample*>(samples) + 4 * size(row) * size(width);
      // The command's library multiplies by a rounded share, too.
      const float share = 1 / static_cast<float>(maxOf(depth));
      std::transform(from, from + 4 * size(width), to,
                     [share](Sample code) { return static_cast<float>(code) * share; });
    };
    for (int y = 0; y < frameHeight; ++y) {
      fitter.row(y, read, line.data());
      toWorking(result.pixels.data() + size(y) * result.stride(), frameDepth,
                reinterpret_cast<const std::byte*>(line.data()), orvanite::Sample::real,
                line.size());
    }
  });
  return result;
}

void makeOpaque(Picture& picture) {
  constexpr std::uint32_t opaque = 0xff000000;  // little-endian, as this machine is
  std::byte* const pixels = picture.pixels.data();
  for (std::size_t i = 0; i < picture.pixels.size(); i += sizeof opaque) {
    std::uint32_t pixel = 0;
    std::memcpy(&pixel, pixels + i, sizeof pixel);
    pixel |= opaque;
    std::memcpy(pixels + i, &pixel, sizeof pixel);
  }
}

void Pictures::take(Role role, const Picture& picture) {
  if (role == Role::plate) {
    full_ = {};
    few_ = {};
  } else {
    const Picture& plate = shape(Role::plate);
    if (picture.width != plate.width || picture.height != plate.height) {
      throw Error::expected(Fault::wrongUse, names[index(role)],
                            "the plate's size, " + sizeOf(plate), sizeOf(picture));
    }
    if (picture.depth != plate.depth) {
      throw Error(Fault::wrongUse, names[index(role)], "expected the plate's depth");
    }
  }
  if (picture.depth != Depth::floats && !picture.fillsFrame()) {
    throw Error(Fault::wrongUse, names[index(role)], "expected a picture that fills its frame");
  }
  full_[index(role)] = few_[index(role)] = picture;
  small_.clear();
  if (role == Role::plate) ++plates_;
}

void Pictures::drop(Role role) {
  full_[index(role)] = few_[index(role)] = {};
  small_.clear();
}

void Pictures::turn(const Picture& plate) {
  const Picture& held = shape(Role::plate);
  if (plate.width != held.width || plate.height != held.height || plate.depth != held.depth) {
    throw Error::expected(Fault::wrongUse, names[index(Role::plate)],
                          "every frame to have the first one's size, " + sizeOf(held),
                          sizeOf(plate));
  }
  for (auto* rows : {&full_, &few_}) {
    Picture& one = (*rows)[index(Role::plate)];
    one.hasAlpha = plate.hasAlpha;
    one.own = plate.own;
    one.top = 0;
    one.pixels.clear();
  }
  std::erase_if(small_, [](const auto& one) { return one.first.first == index(Role::plate); });
}

const Picture& Pictures::fetched(Role role, int top, int bottom) {
  Picture& full = full_[index(role)];
  Picture& few = few_[index(role)];
  if (full.holds(top, bottom)) return full;
  if (few.holds(top, bottom)) return few;
  Picture& to = bottom - top > fewRows ? full : few;
  to.top = top / rowStep * rowStep;
  const int end = std::min(full.height, (bottom + rowStep - 1) / rowStep * rowStep);
  to.makeRoom(to.stride() * size(end - to.top));
  rows_(role, to.top, end - to.top, to.pixels.data());
  if (role == Role::background) {
    view::makeTransparent(to.pixels.data(), to.depth, size(to.width) * size(end - to.top));
  }
  return to;
}

const Picture& Pictures::at(Role role, int divisor, int top, int bottom) {
  if (divisor == 1) return fetched(role, top, bottom);
  Picture& small = small_[{index(role), divisor}];
  if (!small.holds(top, bottom)) {
    const int end = std::min(shape(role).height, bottom * divisor);
    small = shrunk(fetched(role, top * divisor, end), divisor);
  }
  return small;
}

Inputs Pictures::inputs() const {
  return {has(Role::background), has(Role::holdOut), has(Role::garbage), has(Role::cleanPlate)};
}

}  // namespace orvanite::web
