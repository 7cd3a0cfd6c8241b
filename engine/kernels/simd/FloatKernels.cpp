// SPDX-License-Identifier: BSD-3-Clause
//
// Built once per target: the float kernels, one for each encoding.
#include "engine/kernels/simd/FloatKey.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

namespace {

/// The kernel of one encoding.
template <class Decode, class Encode>
class FloatKernel {
 public:
  FloatKernel(const QMXOrvaniteTable& e, const Otile& record, const FloatTile& tile,
              const TileVariant& variant)
      : s_(e, record, variant), tile_(tile), grade_{{e, 0}, {e, 1}} {}

  void operator()(const Block& block) const {
    if (block.fg == nullptr) {
      passBackground(block);
    } else {
      key(block);
    }
  }

 private:
  void key(const Block& block) const {
    Shares shares;
    readShares(s_, block.fg, tile_.fg.order, block.pixels, shares);
    for (std::size_t i = 0; i < block.pixels; i += floatLanes()) {
      keyVector(block, samplesPerPixel * i, amountAt(shares, i));
    }
  }

  HWY_INLINE void keyVector(const Block& block, std::size_t at, Floats amount) const {
    const QMXOrvaniteTable& e = s_.e;
    const Matte m = matteOf(e, amount, block.hold != nullptr ? block.hold + at : nullptr,
                            block.garbage != nullptr ? block.garbage + at : nullptr);
    Pixels out;
    out.alpha = m.out;
    if (e.view == 2 || e.view == 5) {
      const Colours shown = e.view == 2 ? showMatte(m) : showStatus(m);
      for (std::size_t c = 0; c < 3; ++c) out.colour[c] = shown.v[c];
    } else {
      const Pixels fg = loadPixels(block.fg + at, tile_.fg.order);
      Colours colour = working(decode_(Colours{{fg.colour[0], fg.colour[1], fg.colour[2]}}));
      colour = removeScreen(e, colour, m, block.hold != nullptr);
      if (s_.grades[0]) colour = working(grade_[0](linear(colour)));
      if (s_.saturates[0]) colour = saturate(e.satMatrix32[0], colour);
      if (e.view == 0) {
        const Pixels bg = loadPixels(block.bg + at, tile_.bg.order);
        Colours under = decode_(Colours{{bg.colour[0], bg.colour[1], bg.colour[2]}});
        if (s_.grades[1]) under = grade_[1](under);
        under = working(under);
        if (s_.saturates[1]) under = saturate(e.satMatrix32[1], under);
        colour = mix(m.out, colour, under);
        if (s_.mergesAlpha) out.alpha = mergeAlpha(m.out, bg.alpha);
      } else if (e.view == 1) {
        colour = mix(m.out, colour,
                     {{floats(e.bgColourLinear[0]), floats(e.bgColourLinear[1]),
                       floats(e.bgColourLinear[2])}});
      }
      colour = encode_(linear(colour));
      for (std::size_t c = 0; c < 3; ++c) out.colour[c] = colour.v[c];
    }
    store(out, block.dst + at);
  }

  void passBackground(const Block& block) const {
    const QMXOrvaniteTable& e = s_.e;
    for (std::size_t at = 0; at < samplesPerPixel * block.pixels;
         at += samplesPerPixel * floatLanes()) {
      const Pixels bg = loadPixels(block.bg + at, tile_.bg.order);
      Colours colour = decode_(Colours{{bg.colour[0], bg.colour[1], bg.colour[2]}});
      colour = working(grade_[1](colour));
      if (s_.saturates[1]) {
        colour = multiply(e.satMatrix32[1], colour);
        for (Floats& v : colour.v) {
          v = hn::IfThenElseZero(hn::Gt(v, hn::Zero(floatTag)), v);  // a NaN becomes 0 here
        }
      }
      colour = encode_(linear(colour));
      // A background without alpha counts as one whose alpha is 0.
      Pixels out = {{colour.v[0], colour.v[1], colour.v[2]}, hn::Zero(floatTag)};
      if (tile_.bg.whole) out.alpha = bg.alpha;
      store(out, block.dst + at);
    }
  }

  /// Linear light to the working space, and back.
  HWY_INLINE Colours working(const Colours& v) const {
    return s_.scales ? times(v, s_.e.neutralScale) : v;
  }
  HWY_INLINE Colours linear(const Colours& v) const {
    return s_.scales ? over(v, s_.e.neutralScale) : v;
  }

  HWY_INLINE void store(Pixels out, float* to) const {
    if (!s_.alpha) out.alpha = loadPixels(to, tile_.dst.order).alpha;  // stays what it is
    storePixels(out, to, tile_.dst.order);
  }

  FloatSetup s_;
  FloatTile tile_;
  Grade grade_[2];
  Decode decode_;
  Encode encode_;
};

template <class Decode, class Encode>
void keyTile(const QMXOrvaniteTable& engine, int width, int height, const Otile& record,
             const TileVariant& variant) {
  FloatTile tile;
  if (!describe(engine, width, height, record, variant, tile)) return;  // choose() has asked
  walk(tile, variant.alpha, FloatKernel<Decode, Encode>(engine, record, tile, variant));
}

TileKernel choose(const QMXOrvaniteTable& engine, int width, int height, const Otile& record,
                  const TileVariant& variant) {
  FloatTile tile;
  if (!describe(engine, width, height, record, variant, tile)) return nullptr;
  if (engine.colourspace == logSpace) return keyTile<LogToLinear, LinearToLog>;
  if (engine.colourspace == videoSpace) return keyTile<VideoToLinear, LinearToVideo>;
  return keyTile<Identity, Identity>;
}

}  // namespace

extern const FloatKernels floatKernels;
const FloatKernels floatKernels = {compiledFor, choose};

}  // namespace orvanite::ORVANITE_SIMD_TARGET
