// SPDX-License-Identifier: BSD-3-Clause
//
// The definition of the integer kernels: what happens to a pixel of 8-bit or 16-bit pictures, step
// by step. Everything else that renders integers must give these bits.
//
// Colours are working values (16383 is 1.0), key quantities are key units (4096 is 1.0). Products
// of the two come back with (x + 2048) >> 12 unless a shift is marked as truncating; divisions
// truncate toward zero.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "engine/QMXOrvaniteTable.h"

namespace orvanite {

/// A red, green and blue of whatever the step works in.
struct Triple {
  int v[3];
  int& operator[](int c) { return v[c]; }
  int operator[](int c) const { return v[c]; }
};

/// What a kernel reads of the engine, copied once a call: the compiler then knows that the
/// destination's pixels are none of it.
struct Constants {
  explicit Constants(const QMXOrvaniteTable& e);

  int view, fgMax, bgMax, refMax, dstMax, gMatteMax, hMatteMax;
  bool saturates[2];
  int satMatrix[2][3][3];
  Triple screenWork, replaceWork, refScreenWork, bgColourWork;
  int refScreenKey;
  const std::int16_t *fgLinear[3], *keyTable[3], *refTable[3], *refKeyTable[3], *bgTable[3];
  const std::int16_t *holdTable, *garbageTable, *screenTable, *clipTable;
  const std::uint16_t *fgGradeTable[3], *outputTable[3];
};

/// Where one pixel lies in each image, in samples from the channel pointers.
struct Place {
  std::ptrdiff_t dst, bg, fg, hold, garbage, ref;
};

/// A sample; codes above max read as max, so that no table is left whatever the picture holds.
template <class T>
int code(const void* channel, std::ptrdiff_t at, int max) {
  return std::min<int>(static_cast<const T*>(channel)[at], max);
}

template <class T>
Triple codes(const OtileImage& image, std::ptrdiff_t at, int max) {
  return {
      {code<T>(image.red, at, max), code<T>(image.green, at, max), code<T>(image.blue, at, max)}};
}

template <class Entry>
Triple lookUp(const Entry* const (&table)[3], const Triple& at) {
  return {{table[0][at[0]], table[1][at[1]], table[2][at[2]]}};
}

inline int sum(const Triple& v) { return v[0] + v[1] + v[2]; }

inline int roundShift(int product) { return (product + 2048) >> 12; }

/// A saturation matrix on working values. Neutral-scale ratios can carry its sums past 32 bits.
inline Triple saturate(const int (&matrix)[3][3], const Triple& in) {
  Triple out;
  for (int c = 0; c < 3; ++c) {
    std::int64_t total = 2048;
    for (int k = 0; k < 3; ++k) total += static_cast<std::int64_t>(matrix[c][k]) * in[k];
    out[c] = static_cast<int>(std::clamp<std::int64_t>(total >> 12, 0, QMXOrvaniteTable::workMax));
  }
  return out;
}

}  // namespace orvanite

/// One kernel per combination. T is unsigned char or unsigned short; Ref keys against a clean
/// plate, Hold and Garbage use their mattes, Alpha writes the destination's alpha (and merges the
/// background's in view 0).
template <class T, int Ref, int Hold, int Garbage, int Alpha>
struct QMXOrvaniteRender {
  /// Keys width x height pixels. 0 done, 1 refused with nothing written: an incomplete
  /// destination, no background in view 0, neither background nor foreground, or a clean plate
  /// wanted of a kernel that has none. The mattes and clean plate that the kernel is for must be
  /// there.
  int operator()(QMXOrvaniteTable* engine, int width, int height, Otile* tile) const;

 private:
  using Constants = orvanite::Constants;
  using Place = orvanite::Place;
  using Triple = orvanite::Triple;

  static void backgroundPixel(const Constants& k, const Otile& tile, const Place& at);
  static void keyPixel(const Constants& k, const Otile& tile, const Place& at);

  static Triple background(const Constants& k, const OtileImage& bg, std::ptrdiff_t at) {
    const Triple b = orvanite::lookUp(k.bgTable, orvanite::codes<T>(bg, at, k.bgMax));
    return k.saturates[1] ? orvanite::saturate(k.satMatrix[1], b) : b;
  }

  static void write(const OtileImage& dst, std::ptrdiff_t at, const Triple& v) {
    static_cast<T*>(dst.red)[at] = static_cast<T>(v[0]);
    static_cast<T*>(dst.green)[at] = static_cast<T>(v[1]);
    static_cast<T*>(dst.blue)[at] = static_cast<T>(v[2]);
  }

  static void writeAlpha(const OtileImage& dst, std::ptrdiff_t at, std::int64_t v) {
    if constexpr (Alpha) static_cast<T*>(dst.alpha)[at] = static_cast<T>(v);
  }

  /// A matte as a destination code.
  static int dstCode(const Constants& k, int matte) {
    return static_cast<int>((static_cast<std::int64_t>(k.dstMax) * matte + 2048) >> 12);
  }
};

template <class T, int Ref, int Hold, int Garbage, int Alpha>
void QMXOrvaniteRender<T, Ref, Hold, Garbage, Alpha>::backgroundPixel(const Constants& k,
                                                                      const Otile& tile,
                                                                      const Place& at) {
  const Triple b = background(k, tile.bg, at.bg);
  std::int64_t alpha = 0;  // of a background that has none
  if (Alpha && tile.bg.alpha != nullptr) {
    const std::int64_t sample = orvanite::code<T>(tile.bg.alpha, at.bg, k.bgMax);
    alpha = sample * k.dstMax / k.bgMax;
  }
  write(tile.dst, at.dst, orvanite::lookUp(k.outputTable, b));
  writeAlpha(tile.dst, at.dst, alpha);
}

template <class T, int Ref, int Hold, int Garbage, int Alpha>
void QMXOrvaniteRender<T, Ref, Hold, Garbage, Alpha>::keyPixel(const Constants& k,
                                                               const Otile& tile, const Place& at) {
  using namespace orvanite;
  constexpr int one = QMXOrvaniteTable::keyOne;
  constexpr int white = QMXOrvaniteTable::workMax;

  // The plate's working colour and its projection on the screen's direction.
  const Triple fg = codes<T>(tile.fg, at.fg, k.fgMax);
  const int projection = sum(lookUp(k.keyTable, fg));
  Triple colour = lookUp(k.fgLinear, fg);

  // How much of the pixel is screen, and which screen colour that is.
  int amount = 0;
  Triple screen = k.screenWork;
  if constexpr (Ref) {
    const Triple ref = codes<T>(tile.ref, at.ref, k.refMax);
    screen = lookUp(k.refTable, ref);
    int divisor = sum(lookUp(k.refKeyTable, ref));
    if (divisor < 1) {  // no screen in the clean plate here: the screen colour stands in
      screen = k.refScreenWork;
      divisor = k.refScreenKey;
    }
    if (projection > 0) amount = std::min(16384, projection * one / divisor);
  } else {
    amount = k.screenTable[std::clamp(projection, 0, 4095)];
  }

  // Take the screen out; what is not screen is the matte.
  for (int c = 0; c < 3; ++c) colour[c] = std::max(0, colour[c] - roundShift(amount * screen[c]));
  int matte = amount <= one ? one - amount : 0;

  int held = 0;
  if constexpr (Hold) {
    const int hold = code<T>(tile.hold.alpha, at.hold, k.hMatteMax);
    if (matte != one && hold != 0) {
      held = ((one - matte) * k.holdTable[hold]) >> 12;  // truncating
      matte += held;
      for (int c = 0; c < 3; ++c) {
        colour[c] = std::min(white, colour[c] + ((held * k.replaceWork[c]) >> 12));  // truncating
      }
    }
  }

  // Unpremultiply. Where that would pass white, the largest channel becomes exactly white and the
  // matte rises with it.
  const int largest = std::max({colour[0], colour[1], colour[2]});
  if (largest * one > matte * white) {
    for (int c = 0; c < 3; ++c) colour[c] = colour[c] * white / largest;
    matte = largest * one / white;
  } else if (matte > 0) {
    for (int c = 0; c < 3; ++c) colour[c] = colour[c] * one / matte;
  }

  // Grade the colour, shape the matte.
  Triple graded = lookUp(k.fgGradeTable, colour);
  if (k.saturates[0]) graded = saturate(k.satMatrix[0], graded);
  matte = k.clipTable[matte];
  if constexpr (Garbage) {
    const int garbage = code<T>(tile.garbage.alpha, at.garbage, k.gMatteMax);
    if (garbage != 0) {
      const int kept = k.garbageTable[garbage];
      matte = kept - (((one - matte) * kept) >> 12);  // truncating
    }
  }

  if (k.view == 2) {
    const int v = dstCode(k, matte);
    write(tile.dst, at.dst, {{v, v, v}});
    writeAlpha(tile.dst, at.dst, v);
    return;
  }
  if (k.view == 5) {
    // Clear is black, solid blue, anything between green by its matte; held shows in the red.
    const std::int64_t quarter = k.dstMax / 4;
    const auto above = [&](int key) {
      return static_cast<int>(quarter + ((key * (k.dstMax - quarter)) >> 12));
    };
    Triple status = {{above(held), above(matte), 0}};
    if (matte == 0) status = {{0, 0, 0}};
    if (matte == one) status = {{above(held), 0, k.dstMax}};
    write(tile.dst, at.dst, status);
    writeAlpha(tile.dst, at.dst, dstCode(k, matte));
    return;
  }

  Triple out = graded;
  const auto mixOver = [&](const Triple& under) {
    for (int c = 0; c < 3; ++c) out[c] = under[c] + roundShift(matte * (graded[c] - under[c]));
  };
  if (k.view == 0) {
    mixOver(background(k, tile.bg, at.bg));
    if (Alpha && tile.bg.alpha != nullptr) {
      // The colour was mixed with the keyed matte; only then does the background's alpha join it.
      const std::int64_t sample = code<T>(tile.bg.alpha, at.bg, k.bgMax);
      matte += static_cast<int>((one - matte) * sample / k.bgMax);
    }
  } else if (k.view == 1) {
    mixOver(k.bgColourWork);
  }
  write(tile.dst, at.dst, lookUp(k.outputTable, out));
  writeAlpha(tile.dst, at.dst, dstCode(k, matte));
}

template <class T, int Ref, int Hold, int Garbage, int Alpha>
int QMXOrvaniteRender<T, Ref, Hold, Garbage, Alpha>::operator()(QMXOrvaniteTable* engine, int width,
                                                                int height, Otile* tile) const {
  const bool bgPresent = orvanite::hasColours(tile->bg);
  const bool fgPresent = orvanite::hasColours(tile->fg);
  if (!orvanite::isComplete(tile->dst)) return 1;
  if (engine->view == 0 && !bgPresent) return 1;
  if (!bgPresent && !fgPresent) return 1;
  if (Ref == 0 && engine->refEnabled != 0) return 1;

  const Constants constants(*engine);
  const Otile images = *tile;
  // Steps of images that take no part may hold anything.
  const auto at = [](bool present, const OtileImage& image, int x, int y) -> std::ptrdiff_t {
    return present ? static_cast<std::ptrdiff_t>(y) * image.lineStep +
                         static_cast<std::ptrdiff_t>(x) * image.pixelStep
                   : 0;
  };
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const Place place = {at(true, images.dst, x, y),        at(bgPresent, images.bg, x, y),
                           at(fgPresent, images.fg, x, y),    at(Hold, images.hold, x, y),
                           at(Garbage, images.garbage, x, y), at(Ref, images.ref, x, y)};
      if (fgPresent) {
        keyPixel(constants, images, place);
      } else {
        backgroundPixel(constants, images, place);
      }
    }
  }
  return 0;
}
