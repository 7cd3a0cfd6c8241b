// SPDX-License-Identifier: BSD-3-Clause
//
// Built once per target: the lanes of the integer kernels against the definitions, over everything
// that can occur. The definitions are in wide integers, with the language's own division.
#include "tests/engine/LaneChecks.h"

#include "engine/kernels/simd/IntegerLanes.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

namespace {

/// Calls f for whole vectors of arguments a = low..high at one b, and compares.
template <class Lanes, class Definition>
void compare(LaneDifference& to, int low, int high, int b, const Lanes& lanes,
             const Definition& definition) {
  HWY_ALIGN std::uint16_t in[maxShortLanes], out[maxShortLanes];
  const int step = static_cast<int>(shortLanes());
  for (int a = low; a <= high; a += step) {
    for (int k = 0; k < step; ++k) in[k] = static_cast<std::uint16_t>(a + k < high ? a + k : high);
    hn::Store(lanes(hn::Load(u16Tag, in)), u16Tag, out);
    bool same = true;
    for (int k = 0; k < step; ++k) {
      same &= out[k] == static_cast<std::uint16_t>(definition(static_cast<std::int16_t>(in[k])));
    }
    if (same) continue;
    for (int k = 0; k < step; ++k) {
      const int wanted = definition(static_cast<std::int16_t>(in[k]));
      if (out[k] == static_cast<std::uint16_t>(wanted)) continue;
      if (to.count++ == 0) {
        to.a = a + k;
        to.b = b;
        to.got = out[k];
        to.wanted = wanted;
      }
    }
  }
}

LaneDifference raised() {
  LaneDifference d;
  for (int largest = 1; largest <= 16383; ++largest) {
    const Divisor by = prepareDivision(shorts(largest), hn::MaskFromVec(shorts(0xFFFF)));
    compare(
        d, 0, largest, largest, [&](U16 colour) { return divide(colour, by); },
        [&](int colour) { return colour * 16383 / largest; });
  }
  return d;
}

LaneDifference unpremultiply() {
  LaneDifference d;
  for (int matte = 1; matte <= 4096; ++matte) {
    const Divisor by = prepareDivision(shorts(matte), hn::MaskFromVec(shorts(0)));
    // Larger colours raise the matte instead.
    const int most = matte * 16383 / 4096;
    compare(
        d, 0, most, matte, [&](U16 colour) { return divide(colour, by); },
        [&](int colour) { return colour * 4096 / matte; });
  }
  return d;
}

LaneDifference cleanPlate() {
  LaneDifference d;
  for (int p = 1; p <= 32767; ++p) {
    // Beyond 4 p every key gives the ceiling; some of those, and some below 0.
    const int most = p < 8000 ? 4 * p + 700 : 32767;
    compare(
        d, -40, most, p, [&](U16 key) { return screenAmount(key, shorts(p)); },
        [&](int key) {
          const int amount = key <= 0 ? 0 : key * 4096 / p;
          return amount < 16384 ? amount : 16384;
        });
  }
  for (int p = 1; p < 8000; p += 97) {
    compare(
        d, 4 * p, 32767, p, [&](U16 key) { return screenAmount(key, shorts(p)); },
        [](int) { return 16384; });
  }
  return d;
}

LaneDifference removeScreenDifference() {
  LaneDifference d;
  for (int screen = 0; screen <= 16383; ++screen) {
    const U16 s = shorts(screen);
    const int colour = screen * 7 % 16384;
    compare(
        d, 0, 16384, screen,
        [&](U16 amount) {
          const U16 part8 = hn::ShiftLeft<3>(hn::And(amount, shorts(4095)));
          return removeScreen(shorts(colour), hn::ShiftRight<12>(amount), part8, s);
        },
        [&](int amount) {
          const int left = colour - ((amount * screen + 2048) >> 12);
          return left < 0 ? 0 : left;
        });
  }
  return d;
}

LaneDifference mixDifference() {
  LaneDifference d;
  for (int matte = 0; matte <= 4096; ++matte) {
    for (const int under : {0, 5461, 16383}) {
      compare(
          d, 0, 16383, matte, [&](U16 over) { return mix(shorts(matte), over, shorts(under)); },
          [&](int over) { return under + ((matte * (over - under) + 2048) >> 12); });
    }
  }
  return d;
}

LaneDifference keyProductDifference() {
  LaneDifference d;
  for (int a = 0; a <= 4096; ++a) {
    compare(
        d, 0, 16383, a, [&](U16 b) { return keyProduct(shorts(a), b); },
        [&](int b) { return a * b >> 12; });
  }
  return d;
}

template <class T>
LaneDifference mergeAlphaDifference() {
  constexpr int max = sizeof(T) == 1 ? 255 : 65535;
  LaneDifference d;
  for (int alpha = 0; alpha <= max; ++alpha) {
    compare(
        d, 0, 4096, alpha, [&](U16 matte) { return mergeAlpha<T>(matte, shorts(alpha)); },
        [&](int matte) { return matte + (4096 - matte) * alpha / max; });
  }
  return d;
}

template <class T>
void matteDifferences(LaneDifference& d) {
  constexpr int max = sizeof(T) == 1 ? 255 : 65535;
  compare(
      d, 0, 4096, max, [](U16 v) { return matteCode<T>(v); },
      [](int v) { return static_cast<int>((static_cast<std::int64_t>(max) * v + 2048) >> 12); });
  compare(
      d, 0, 4096, -max, [](U16 v) { return statusCode<T>(v); },
      [](int v) { return max / 4 + ((v * (max - max / 4)) >> 12); });
  // Arguments reach the definition as 16 bits with a sign.
  compare(
      d, 0, max, 0, [](U16 v) { return matteKey<T>(v); },
      [](int v) {
        const std::int64_t code = v & 0xFFFF;
        return static_cast<int>((4096 * code + max / 2) / max);
      });
}

LaneDifference mattes() {
  LaneDifference d;
  matteDifferences<std::uint8_t>(d);
  matteDifferences<std::uint16_t>(d);
  compare(
      d, 0, 16383, 4096, [](U16 v) { return matteOfColour(v); },
      [](int v) { return v * 4096 / 16383; });
  return d;
}

/// Single precision throughout, as the engine's tables are made.
template <class T>
void lineDifferences(LaneDifference& d) {
  constexpr int max = static_cast<T>(~T{0});
  const auto light = [](int v, int most) {
    return static_cast<float>(v & 0xFFFF) / static_cast<float>(most);
  };
  compare(
      d, 0, max, 16383, [](U16 v) { return workOfCode<T>(v); },
      [&](int v) { return static_cast<int>(16383.0f * light(v, max) + 0.5f); });
  for (const float factor : {4095.9f, 11234.567f, -0.3f, -8191.25f}) {
    compare(
        d, 0, max, static_cast<int>(factor),
        [&](U16 v) {
          const EvenOdd s = scaled(lightOf<max>(v), floats(factor));
          return join(s.even, s.odd);
        },
        [&](int v) { return static_cast<int>(factor * light(v, max) + 0.5f); });
  }
  compare(
      d, 0, 16383, max, [](U16 v) { return codeOf<T>(v); },
      [&](int v) { return static_cast<int>(static_cast<float>(max) * light(v, 16383) + 0.5f); });
}

LaneDifference lines() {
  LaneDifference d;
  lineDifferences<std::uint8_t>(d);
  lineDifferences<std::uint16_t>(d);
  return d;
}

}  // namespace

extern const LaneChecks laneChecks;
const LaneChecks laneChecks = {raised,
                               unpremultiply,
                               cleanPlate,
                               removeScreenDifference,
                               mixDifference,
                               keyProductDifference,
                               mergeAlphaDifference<std::uint8_t>,
                               mergeAlphaDifference<std::uint16_t>,
                               mattes,
                               lines};

}  // namespace orvanite::ORVANITE_SIMD_TARGET
