// SPDX-License-Identifier: BSD-3-Clause
//
// Single precision holds a 16-bit code and eight bits below it: the result is the nearest code but
// for ties. Loops are written for the compiler's vectors.
#include "media/MovieMatrix.h"

#include <algorithm>
#include <cstdint>
#include <type_traits>

namespace orvanite::media {
namespace {

// Codes of the encoding: black, the reach of luma and of colour differences, their middle.
struct Codes {
  float black, luma, difference, middle, top;
};

Codes codesOf(const LumaEncoding& encoding, const LumaPlanes& planes) {
  const float unit = static_cast<float>(1 << (planes.bits + planes.shift - 8));
  const float top = static_cast<float>(((1 << planes.bits) - 1) << planes.shift);
  if (encoding.fullRange) return {0, top, top, 128 * unit, top};
  return {16 * unit, 219 * unit, 224 * unit, 128 * unit, top};
}

float rounded(float value, float top) { return std::clamp(value + 0.5f, 0.0f, top + 0.5f); }

template <class Plane, class Code>
void rowToRgba(const LumaPlanes& from, const Codes& codes, const LumaEncoding& encoding, int y,
               int width, Code* to) {
  const auto row = [&](std::size_t plane) {
    return reinterpret_cast<const Plane*>(from.rows[plane] + from.rowBytes[plane] * y);
  };
  constexpr float white = sizeof(Code) == 1 ? 255 : 65535;
  const double kg = 1 - encoding.kr - encoding.kb;
  const auto whiteOver = [&](double numerator, float reach) {
    return static_cast<float>(numerator * static_cast<double>(white / reach));
  };
  const float luma = white / codes.luma;
  const float redRed = whiteOver(2 * (1 - encoding.kr), codes.difference);
  const float blueBlue = whiteOver(2 * (1 - encoding.kb), codes.difference);
  const float greenRed = whiteOver(2 * (1 - encoding.kr) * encoding.kr / kg, codes.difference);
  const float greenBlue = whiteOver(2 * (1 - encoding.kb) * encoding.kb / kg, codes.difference);
  const Plane* lumas = row(0);
  const Plane* blues = row(1);
  const Plane* reds = row(2);
  for (std::ptrdiff_t x = 0; x < width; ++x) {
    const float light = (static_cast<float>(lumas[x]) - codes.black) * luma;
    const float blue = static_cast<float>(blues[x]) - codes.middle;
    const float red = static_cast<float>(reds[x]) - codes.middle;
    const float r = rounded(light + redRed * red, white);
    const float g = rounded(light - greenRed * red - greenBlue * blue, white);
    const float b = rounded(light + blueBlue * blue, white);
    to[4 * x] = static_cast<Code>(static_cast<int>(r));
    to[4 * x + 1] = static_cast<Code>(static_cast<int>(g));
    to[4 * x + 2] = static_cast<Code>(static_cast<int>(b));
    to[4 * x + 3] = static_cast<Code>(white);
  }
  if (from.rows[3] == nullptr) return;
  const Plane* alphas = row(3);
  const float alpha = white / static_cast<float>(from.alphaWhite);
  for (std::ptrdiff_t x = 0; x < width; ++x) {
    to[4 * x + 3] =
        static_cast<Code>(static_cast<int>(rounded(static_cast<float>(alphas[x]) * alpha, white)));
  }
}

template <class Code, class Plane>
void rowToLuma(const Code* from, const Codes& codes, const LumaEncoding& encoding, int y, int width,
               const LumaPlanes& to) {
  const auto row = [&](std::size_t plane) {
    return reinterpret_cast<Plane*>(to.rows[plane] + to.rowBytes[plane] * y);
  };
  constexpr float white = sizeof(Code) == 1 ? 255 : 65535;
  const auto kr = static_cast<float>(encoding.kr);
  const auto kb = static_cast<float>(encoding.kb);
  const float kg = 1 - kr - kb;
  const float luma = codes.luma / white;
  const float toBlue = codes.difference / (white * 2 * (1 - kb));
  const float toRed = codes.difference / (white * 2 * (1 - kr));
  Plane* lumas = row(0);
  Plane* blues = row(1);
  Plane* reds = row(2);
  for (std::ptrdiff_t x = 0; x < width; ++x) {
    const auto r = static_cast<float>(from[4 * x]);
    const auto g = static_cast<float>(from[4 * x + 1]);
    const auto b = static_cast<float>(from[4 * x + 2]);
    const float light = kr * r + kg * g + kb * b;
    lumas[x] = static_cast<Plane>(static_cast<int>(rounded(codes.black + light * luma, codes.top)));
    blues[x] = static_cast<Plane>(
        static_cast<int>(rounded(codes.middle + (b - light) * toBlue, codes.top)));
    reds[x] = static_cast<Plane>(
        static_cast<int>(rounded(codes.middle + (r - light) * toRed, codes.top)));
  }
  if (to.rows[3] == nullptr) return;
  Plane* alphas = row(3);
  const float alpha = static_cast<float>(to.alphaWhite) / white;
  for (std::ptrdiff_t x = 0; x < width; ++x) {
    alphas[x] = static_cast<Plane>(
        static_cast<int>(rounded(static_cast<float>(from[4 * x + 3]) * alpha, codes.top)));
  }
}

// Calls with a pointer to a row's codes, of their type.
template <class Action>
void eachRow(const RgbaRows& rows, const Action& action) {
  const auto stride = std::ptrdiff_t{4} * rows.width * rows.bytes;
  for (int y = 0; y < rows.height; ++y) {
    std::byte* row = rows.first + stride * y;
    if (rows.bytes == 1) {
      action(y, reinterpret_cast<std::uint8_t*>(row));
    } else {
      action(y, reinterpret_cast<std::uint16_t*>(row));
    }
  }
}

}  // namespace

void lumaToRgba(const LumaPlanes& from, const LumaEncoding& encoding, const RgbaRows& to) {
  const Codes codes = codesOf(encoding, from);
  eachRow(to, [&](int y, auto* row) {
    if (from.bytes == 1) {
      rowToRgba<std::uint8_t>(from, codes, encoding, y, to.width, row);
    } else {
      rowToRgba<std::uint16_t>(from, codes, encoding, y, to.width, row);
    }
  });
}

void rgbaToLuma(const RgbaRows& from, const LumaEncoding& encoding, const LumaPlanes& to) {
  const Codes codes = codesOf(encoding, to);
  eachRow(from, [&](int y, const auto* row) {
    using Code = std::remove_cvref_t<decltype(*row)>;
    if (to.bytes == 1) {
      rowToLuma<Code, std::uint8_t>(row, codes, encoding, y, from.width, to);
    } else {
      rowToLuma<Code, std::uint16_t>(row, codes, encoding, y, from.width, to);
    }
  });
}

}  // namespace orvanite::media
