// SPDX-License-Identifier: BSD-3-Clause
//
// The definition of the float kernels: the same keying as QMXOrvaniteRender.h in single
// precision, 1.0 being white and solid. Every product and sum is rounded on its own, in the order
// written; only the encodings and the grading fuse.
//
// Images are interleaved, four samples a pixel, whatever their pixelStep says.
#pragma once

#include <cstddef>

#include "engine/QMXOrvaniteTable.h"

namespace orvanite {

/// A float red, green and blue.
struct Colour {
  float v[3];
  float& operator[](int c) { return v[c]; }
  float operator[](int c) const { return v[c]; }
};

inline float sample(const void* channel, std::ptrdiff_t at) {
  return static_cast<const float*>(channel)[at];
}

inline Colour samples(const OtileImage& image, std::ptrdiff_t at) {
  return {{sample(image.red, at), sample(image.green, at), sample(image.blue, at)}};
}

inline void write(const OtileImage& dst, std::ptrdiff_t at, const Colour& v) {
  static_cast<float*>(dst.red)[at] = v[0];
  static_cast<float*>(dst.green)[at] = v[1];
  static_cast<float*>(dst.blue)[at] = v[2];
}

inline Colour multiply(const float (&matrix)[3][3], const Colour& in) {
  Colour out;
  for (int c = 0; c < 3; ++c) {
    out[c] = matrix[c][0] * in[0] + matrix[c][1] * in[1] + matrix[c][2] * in[2];
  }
  return out;
}

inline Colour saturate(const float (&matrix)[3][3], const Colour& in) {
  Colour out = multiply(matrix, in);
  for (float& v : out.v) v = v < 0 ? 0 : v;  // a NaN stays
  return out;
}

/// Where one pixel lies in each float image, in samples from the channel pointers.
struct FloatPlace {
  std::ptrdiff_t dst, bg, fg, hold, garbage;
};

/// The pixels of one choice of Linear, Hold, Garbage and Alpha.
template <bool linear, bool hold, bool garbage, bool alpha>
struct FloatPixel {
  const QMXOrvaniteTable& e;

  float decode(float v) const { return linear ? v : e.toLinear(v); }
  float encode(float v) const { return linear ? v : e.fromLinear(v); }

  /// The channel's share of the screen amount. Negative samples count as 0.
  float keyOf(int c, float v) const {
    const Imath::half h(v < 0 ? 0 : v);
    return static_cast<float>(e.floatTable[c][h.bits() & 0x7FFFU]);
  }

  void background(const Otile& tile, const FloatPlace& at) const {
    const Colour in = samples(tile.bg, at.bg);
    Colour b;
    for (int c = 0; c < 3; ++c) b[c] = e.bgLinearRegrade(in[c], c);
    if (e.saturation[1] != 1.0f) {
      b = multiply(e.satMatrix32[1], b);
      for (float& v : b.v) v = v > 0 ? v : 0;  // a NaN becomes 0 here
    }
    const float a = alpha && tile.bg.alpha != nullptr ? sample(tile.bg.alpha, at.bg) : 0;
    for (int c = 0; c < 3; ++c) b[c] = e.origSpace(b[c], c);
    write(tile.dst, at.dst, b);
    if constexpr (alpha) static_cast<float*>(tile.dst.alpha)[at.dst] = a;
  }

  void key(const Otile& tile, const FloatPlace& at) const;
};

template <bool linear, bool hold, bool garbage, bool alpha>
void FloatPixel<linear, hold, garbage, alpha>::key(const Otile& tile, const FloatPlace& at) const {
  const float* const scale = e.neutralScale;
  const Colour fg = samples(tile.fg, at.fg);
  Colour colour;
  for (int c = 0; c < 3; ++c) colour[c] = scale[c] * decode(fg[c]);

  // How much of the pixel is screen. A NaN stays, and ends as a clear pixel.
  float amount = keyOf(0, fg[0]) + keyOf(1, fg[1]) + keyOf(2, fg[2]);
  amount = amount < 0 ? 0 : amount > 1 ? 1 : amount;

  for (int c = 0; c < 3; ++c) {
    colour[c] = colour[c] - amount * e.screenLinear[c];
    if (amount > 0 && colour[c] < 0) colour[c] = 0;
  }
  float matte = 1 - amount;

  float held = 0;
  if constexpr (hold) {
    float h = sample(tile.hold.alpha, at.hold);
    if (matte < 1 && h > 0) {
      h = h > 1 ? 1 : h;
      held = (1 - matte) * h;
      for (int c = 0; c < 3; ++c) colour[c] = colour[c] + held * e.replaceLinear[c];
      matte = matte + held;
    }
  }

  if (matte > 0) {
    for (float& v : colour.v) v = v / matte;
  }
  if (e.gradeActive[0] != 0) {
    for (int c = 0; c < 3; ++c) colour[c] = scale[c] * e.regrade(colour[c] / scale[c], c, 0);
  }
  if (e.saturation[0] != 1.0f) colour = saturate(e.satMatrix32[0], colour);

  if (matte >= e.clipLow) {
    matte = (matte - e.clipLow) * e.clipScale;
    matte = matte > 1 ? 1 : matte;
  } else {
    matte = 0;
  }
  if constexpr (garbage) {
    float g = sample(tile.garbage.alpha, at.garbage);
    if (g > 0) {
      g = g > 1 ? 1 : g;
      matte = (1 - g) - (1 - matte) * (1 - g);
    }
  }

  float outAlpha = matte;
  Colour out = colour;
  if (e.view == 2) {
    out = {{matte, matte, matte}};
  } else if (e.view == 5) {
    out = {{0.25f + 0.75f * held, 0.25f + 0.75f * matte, 0}};
    if (matte == 0) out = {{0, 0, 0}};
    if (matte == 1) out = {{0.25f + 0.75f * held, 0, 1}};
  } else {
    if (e.view == 0) {
      const Colour bg = samples(tile.bg, at.bg);
      Colour under;
      for (int c = 0; c < 3; ++c) {
        float v = decode(bg[c]);
        if (e.gradeActive[1] != 0) v = e.regrade(v, c, 1);
        under[c] = scale[c] * v;
      }
      if (e.saturation[1] != 1.0f) under = saturate(e.satMatrix32[1], under);
      for (int c = 0; c < 3; ++c) out[c] = matte * (colour[c] - under[c]) + under[c];
      if (alpha && tile.bg.alpha != nullptr) {
        const float b = sample(tile.bg.alpha, at.bg);
        if (b != 0) outAlpha = (1 - matte) * b + matte;
      }
    } else if (e.view == 1) {
      for (int c = 0; c < 3; ++c) {
        out[c] = matte * (colour[c] - e.bgColourLinear[c]) + e.bgColourLinear[c];
      }
    }
    for (int c = 0; c < 3; ++c) out[c] = encode(out[c] / scale[c]);
  }
  write(tile.dst, at.dst, out);
  if constexpr (alpha) static_cast<float*>(tile.dst.alpha)[at.dst] = outAlpha;
}

}  // namespace orvanite

template <class Linear, class Hold, class Garbage, class Alpha>
int QMXOrvaniteTable::QMXOrvaniteRender32(int width, int height, Otile* tile, Linear, Hold, Garbage,
                                          Alpha) const {
  const bool bgPresent = orvanite::hasColours(tile->bg);
  const bool fgPresent = orvanite::hasColours(tile->fg);
  if (!orvanite::isComplete(tile->dst)) return 1;
  if (view == 0 && !bgPresent) return 1;
  if (!bgPresent && !fgPresent) return 1;
  if (refEnabled != 0) return 1;

  const orvanite::FloatPixel<Linear::value, Hold::value, Garbage::value, Alpha::value> pixel{*this};
  const auto at = [](bool present, const OtileImage& image, int x, int y) -> std::ptrdiff_t {
    return present ? static_cast<std::ptrdiff_t>(y) * image.lineStep + 4 * std::ptrdiff_t{x} : 0;
  };
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const orvanite::FloatPlace place = {
          at(true, tile->dst, x, y), at(bgPresent, tile->bg, x, y), at(fgPresent, tile->fg, x, y),
          at(Hold::value, tile->hold, x, y), at(Garbage::value, tile->garbage, x, y)};
      if (fgPresent) {
        pixel.key(*tile, place);
      } else {
        pixel.background(*tile, place);
      }
    }
  }
  return 0;
}
