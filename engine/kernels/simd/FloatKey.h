// SPDX-License-Identifier: BSD-3-Clause
//
// The steps of the float kernel on vectors of pixels. Read kernels/QMXOrvaniteRender32.h first:
// the same steps, the same order of operations, one pixel at a time.
//
// Steps that a tile does not need are skipped by tests of its setup, which are the same for every
// vector and cost next to nothing.
#pragma once

#include "engine/kernels/simd/Encodings.h"
#include "engine/kernels/simd/FloatTile.h"
#include "engine/kernels/simd/Halves.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

namespace {

using Colours = FloatPack<3>;

/// What a tile's kernel reads, beside its pixels.
struct FloatSetup {
  explicit FloatSetup(const QMXOrvaniteTable& engine, const Otile& record, const TileVariant& v)
      : e(engine),
        alpha(v.alpha),
        mergesAlpha(v.alpha && engine.view == 0 && record.bg.alpha != nullptr),
        saturates{engine.saturation[0] != 1.0f, engine.saturation[1] != 1.0f},
        grades{engine.gradeActive[0] != 0, engine.gradeActive[1] != 0} {
    for (int c = 0; c < 3; ++c) {
      if (engine.neutralScale[c] != 1.0f) scales = true;
      keys[c] = reinterpret_cast<const std::uint16_t*>(engine.floatTable[c]);
    }
  }

  const QMXOrvaniteTable& e;
  const std::uint16_t* keys[3];  // half patterns
  bool alpha;                    // the destination's is written
  bool mergesAlpha;              // with the background's
  bool saturates[2], grades[2];
  bool scales = false;           // the working space is not linear light itself
};

/// The grading of one set.
class Grade {
 public:
  Grade(const QMXOrvaniteTable& e, int set)
      : channel_{{e.exposure[set][0], e.gamma[set][0], e.offset[set][0]},
                 {e.exposure[set][1], e.gamma[set][1], e.offset[set][1]},
                 {e.exposure[set][2], e.gamma[set][2], e.offset[set][2]}} {}

  HWY_INLINE Colours operator()(const Colours& in) const {
    Colours out;
    for (std::size_t c = 0; c < 3; ++c) {
      const FloatPack<1> one = {{in.v[c]}};
      out.v[c] = channel_[c](one).v[0];
    }
    return out;
  }

 private:
  Regrade channel_[3];
};

HWY_INLINE Colours times(const Colours& in, const float (&factor)[3]) {
  Colours out;
  for (std::size_t c = 0; c < 3; ++c) out.v[c] = hn::Mul(floats(factor[c]), in.v[c]);
  return out;
}

HWY_INLINE Colours over(const Colours& in, const float (&divisor)[3]) {
  Colours out;
  for (std::size_t c = 0; c < 3; ++c) out.v[c] = hn::Div(in.v[c], floats(divisor[c]));
  return out;
}

HWY_INLINE Colours multiply(const float (&matrix)[3][3], const Colours& in) {
  Colours out;
  for (std::size_t c = 0; c < 3; ++c) {
    const Floats sum = hn::Add(hn::Mul(floats(matrix[c][0]), in.v[0]),
                               hn::Mul(floats(matrix[c][1]), in.v[1]));
    out.v[c] = hn::Add(sum, hn::Mul(floats(matrix[c][2]), in.v[2]));
  }
  return out;
}

HWY_INLINE Floats dropNegative(Floats v) {
  return hn::IfThenZeroElse(hn::Lt(v, hn::Zero(floatTag)), v);
}

HWY_INLINE Floats atMostOne(Floats v) {
  return hn::IfThenElse(hn::Gt(v, floats(1)), floats(1), v);
}

HWY_INLINE Colours saturate(const float (&matrix)[3][3], const Colours& in) {
  Colours out = multiply(matrix, in);
  for (Floats& v : out.v) v = dropNegative(v);
  return out;
}

/// What keying knows of a pixel beside its colour.
struct Matte {
  Floats amount;  // of screen, 0..1
  Floats keyed;   // 1 - amount, raised where the hold-out holds: what the colour is divided by
  Floats held;
  FloatMask holds;  // where the hold-out changed anything
  Floats out;     // clipped, and taken away where the garbage matte is
};

/// How much of each pixel is screen, from the shares of its channels.
HWY_INLINE Floats screenAmount(const hn::Vec<PatternTag> (&shares)[3]) {
  const Floats sum = hn::Add(hn::Add(fromHalf(shares[0]), fromHalf(shares[1])),
                             fromHalf(shares[2]));
  return atMostOne(dropNegative(sum));
}

HWY_INLINE Matte matteOf(const QMXOrvaniteTable& e, Floats amount, const float* hold,
                         const float* garbage) {
  const Floats one = floats(1), zero = hn::Zero(floatTag);
  Matte m = {amount, hn::Sub(one, amount), zero, hn::Lt(one, zero), zero};
  if (hold != nullptr) {
    const Floats h = loadMatte(hold);
    m.holds = hn::And(hn::Lt(m.keyed, one), hn::Gt(h, zero));
    const Floats held = hn::Mul(hn::Sub(one, m.keyed), atMostOne(h));
    m.held = hn::IfThenElseZero(m.holds, held);
    m.keyed = hn::IfThenElse(m.holds, hn::Add(m.keyed, held), m.keyed);
  }
  const Floats stretched = hn::Mul(hn::Sub(m.keyed, floats(e.clipLow)), floats(e.clipScale));
  m.out = hn::IfThenElseZero(hn::Ge(m.keyed, floats(e.clipLow)), atMostOne(stretched));
  if (garbage != nullptr) {
    const Floats g = loadMatte(garbage);
    const Floats kept = hn::Sub(one, atMostOne(g));
    const Floats left = hn::Sub(kept, hn::Mul(hn::Sub(one, m.out), kept));
    m.out = hn::IfThenElse(hn::Gt(g, zero), left, m.out);
  }
  return m;
}

/// Takes the screen out of working colours and undoes the premultiplication.
HWY_INLINE Colours removeScreen(const QMXOrvaniteTable& e, Colours colour, const Matte& m,
                                bool holding) {
  const Floats one = floats(1), zero = hn::Zero(floatTag);
  const FloatMask screened = hn::Gt(m.amount, zero);
  for (std::size_t c = 0; c < 3; ++c) {
    const Floats left = hn::Sub(colour.v[c], hn::Mul(m.amount, floats(e.screenLinear[c])));
    colour.v[c] = hn::IfThenZeroElse(hn::And(screened, hn::Lt(left, zero)), left);
  }
  if (holding) {
    for (std::size_t c = 0; c < 3; ++c) {
      const Floats filled = hn::Add(colour.v[c], hn::Mul(m.held, floats(e.replaceLinear[c])));
      colour.v[c] = hn::IfThenElse(m.holds, filled, colour.v[c]);
    }
  }
  // Nothing changes where the matte is 1, and nothing may where it is not above 0.
  const FloatMask between = hn::And(hn::Gt(m.keyed, zero), hn::Ne(m.keyed, one));
  if (!hn::AllFalse(floatTag, between)) {
    for (std::size_t c = 0; c < 3; ++c) {
      colour.v[c] = hn::IfThenElse(between, hn::Div(colour.v[c], m.keyed), colour.v[c]);
    }
  }
  return colour;
}

/// The matte view.
HWY_INLINE Colours showMatte(const Matte& m) { return {{m.out, m.out, m.out}}; }

/// The status view: clear is black, solid blue, anything between green by its matte; held shows in
/// the red.
HWY_INLINE Colours showStatus(const Matte& m) {
  const auto raised = [](Floats v) __attribute__((always_inline)) {
    return hn::Add(floats(0.25f), hn::Mul(floats(0.75f), v));
  };
  const FloatMask clear = hn::Eq(m.out, hn::Zero(floatTag));
  const FloatMask solid = hn::Eq(m.out, floats(1));
  Colours status;
  status.v[0] = hn::IfThenZeroElse(clear, raised(m.held));
  status.v[1] = hn::IfThenZeroElse(hn::Or(clear, solid), raised(m.out));
  status.v[2] = hn::IfThenElseZero(solid, floats(1));
  return status;
}

HWY_INLINE Colours mix(Floats matte, const Colours& top, const Colours& under) {
  Colours out;
  for (std::size_t c = 0; c < 3; ++c) {
    out.v[c] = hn::Add(hn::Mul(matte, hn::Sub(top.v[c], under.v[c])), under.v[c]);
  }
  return out;
}

/// The keyed matte with the background's alpha merged in.
HWY_INLINE Floats mergeAlpha(Floats matte, Floats alpha) {
  const Floats merged = hn::Add(hn::Mul(hn::Sub(floats(1), matte), alpha), matte);
  return hn::IfThenElse(hn::Eq(alpha, hn::Zero(floatTag)), matte, merged);
}

/// The shares of the screen amount that the pixels' channels have, as half patterns. Table reads
/// are scalar loads: gathers are slower on most machines.
struct Shares {
  HWY_ALIGN std::uint16_t of[3][blockPixels];
};

HWY_INLINE void readShares(const FloatSetup& s, const float* fg, Order order, std::size_t pixels,
                           Shares& shares) {
  HWY_ALIGN std::uint16_t patterns[3][blockPixels];
  for (std::size_t i = 0; i < pixels; i += floatLanes()) {
    const Pixels p = loadPixels(fg + samplesPerPixel * i, order);
    for (std::size_t c = 0; c < 3; ++c) {
      hn::Store(halfPatterns(dropNegative(p.colour[c])), patternTag, patterns[c] + i);
    }
  }
  for (std::size_t c = 0; c < 3; ++c) {
    const std::uint16_t* const table = s.keys[c];
    for (std::size_t i = 0; i < pixels; i += 4) {
      shares.of[c][i] = table[patterns[c][i]];
      shares.of[c][i + 1] = table[patterns[c][i + 1]];
      shares.of[c][i + 2] = table[patterns[c][i + 2]];
      shares.of[c][i + 3] = table[patterns[c][i + 3]];
    }
  }
}

HWY_INLINE Floats amountAt(const Shares& shares, std::size_t i) {
  const hn::Vec<PatternTag> three[3] = {hn::Load(patternTag, shares.of[0] + i),
                                        hn::Load(patternTag, shares.of[1] + i),
                                        hn::Load(patternTag, shares.of[2] + i)};
  return screenAmount(three);
}

}  // namespace

}  // namespace orvanite::ORVANITE_SIMD_TARGET
