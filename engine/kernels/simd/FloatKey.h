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
#include "engine/tables/HalfTables.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

namespace {

using Colours = FloatPack<3>;

/// What a tile's kernel reads, beside its pixels.
struct FloatSetup {
  explicit FloatSetup(const QMXOrvaniteTable& engine, const Otile& record, const Choices& choices)
      : e(engine),
        view(viewOf(engine.view)),
        mergesAlpha(choices.alpha && view == View::composite && record.bg.alpha != nullptr),
        saturates{engine.saturation[0] != 1.0f, engine.saturation[1] != 1.0f},
        grades{engine.gradeActive[0] != 0, engine.gradeActive[1] != 0} {
    for (int c = 0; c < 3; ++c) {
      if (engine.neutralScale[c] != 1.0f) scales = true;
      keys[c] = reinterpret_cast<const std::uint16_t*>(engine.floatTable[c]);
    }
    const HalfTables* const halves = engine.halfTables;
    if (halves == nullptr || halves->decodedFor != engine.colourspace) return;
    linear = halves->linear;
    if (halves->roundTrip[0] != nullptr) roundTrip = halves->roundTrip;
    keysAreProducts = halves->keyIsProduct[0] && halves->keyIsProduct[1] && halves->keyIsProduct[2];
    for (int c = 0; c < 3; ++c) keyFactor[c] = halves->keyFactor[c];
  }

  const QMXOrvaniteTable& e;
  View view;
  const std::uint16_t* keys[3];  // half patterns
  bool mergesAlpha;              // the background's into the matte
  bool saturates[2], grades[2];
  bool scales = false;  // the working space is not linear light itself

  // By half pattern, when it is there: tables/HalfTables.h.
  const float* linear = nullptr;
  const float* const* roundTrip = nullptr;
  bool keysAreProducts = false;
  float keyFactor[3] = {};
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

// Colours are changed in place and channel by channel: whole ones, when chosen between or handed
// on, g++ sends through memory.

HWY_INLINE void assign(Colours& to, const Colours& from) {
  for (std::size_t c = 0; c < 3; ++c) to.v[c] = from.v[c];
}

HWY_INLINE Colours multiply(const float (&matrix)[3][3], const Colours& in) {
  Colours out;
  for (std::size_t c = 0; c < 3; ++c) {
    const Floats sum =
        hn::Add(hn::Mul(floats(matrix[c][0]), in.v[0]), hn::Mul(floats(matrix[c][1]), in.v[1]));
    out.v[c] = hn::Add(sum, hn::Mul(floats(matrix[c][2]), in.v[2]));
  }
  return out;
}

HWY_INLINE Floats dropNegative(Floats v) {
  return hn::IfThenZeroElse(hn::Lt(v, hn::Zero(floatTag)), v);
}

HWY_INLINE Floats atMostOne(Floats v) { return hn::IfThenElse(hn::Gt(v, floats(1)), floats(1), v); }

HWY_INLINE void saturate(const float (&matrix)[3][3], Colours& colour) {
  const Colours mixed = multiply(matrix, colour);
  for (std::size_t c = 0; c < 3; ++c) colour.v[c] = dropNegative(mixed.v[c]);
}

/// What keying knows of a pixel beside its colour.
struct Matte {
  Floats amount;  // of screen, 0..1
  Floats keyed;   // 1 - amount, raised where the hold-out holds: what the colour is divided by
  Floats held;
  FloatMask holds;  // where the hold-out changed anything
  Floats out;       // clipped, and taken away where the garbage matte is
};

/// How much of each pixel is screen, from the shares of its channels.
HWY_INLINE Floats screenAmount(const Colours& shares) {
  const Floats sum = hn::Add(hn::Add(shares.v[0], shares.v[1]), shares.v[2]);
  return atMostOne(dropNegative(sum));
}

/// The same where every key table is a product, from the linear light of the samples rounded to
/// halves. Such a product may be -0 where the table has 0; with a channel that is 0 the tables' sum
/// is never -0, and for all other colours the sign of a zero amount changes nothing.
HWY_INLINE Floats screenAmountOf(const FloatSetup& s, const Colours& linear) {
  Colours shares;
  for (std::size_t c = 0; c < 3; ++c) {
    const Floats scaled = hn::Mul(floats(s.e.screenScale), linear.v[c]);
    shares.v[c] = roundedToHalf(hn::Mul(scaled, floats(s.keyFactor[c])));
  }
  return hn::Add(screenAmount(shares), hn::Zero(floatTag));
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
HWY_INLINE void removeScreen(const QMXOrvaniteTable& e, const Matte& m, bool holding,
                             Colours& colour) {
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
}

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

HWY_INLINE void mix(Floats matte, const Colours& under, Colours& top) {
  for (std::size_t c = 0; c < 3; ++c) {
    top.v[c] = hn::Add(hn::Mul(matte, hn::Sub(top.v[c], under.v[c])), under.v[c]);
  }
}

/// The keyed matte with the background's alpha merged in.
HWY_INLINE Floats mergeAlpha(Floats matte, Floats alpha) {
  const Floats merged = hn::Add(hn::Mul(hn::Sub(floats(1), matte), alpha), matte);
  return hn::IfThenElse(hn::Eq(alpha, hn::Zero(floatTag)), matte, merged);
}

/// Asks for what the next block will read: its first loop would wait for memory otherwise.
HWY_INLINE void prefetchNext(const float* from) {
  constexpr std::size_t line = 64 / sizeof(float);
  const float* const next = from + samplesPerPixel * blockPixels;
  for (std::size_t k = 0; k < samplesPerPixel * floatLanes(); k += line) {
    __builtin_prefetch(next + k);
  }
}

/// The same of all that linear keying without mattes touches, four blocks ahead: it is bound by
/// memory, and a block ahead was too near. With mattes, and where there is more to compute, it
/// costs more than it gains.
HWY_INLINE void prefetchAhead(const Block& block, std::size_t at) {
  constexpr std::size_t line = 64 / sizeof(float), ahead = samplesPerPixel * 4 * blockPixels;
  for (std::size_t k = at + ahead; k < at + ahead + samplesPerPixel * floatLanes(); k += line) {
    __builtin_prefetch(block.fg + k);
    if (block.bg != nullptr) __builtin_prefetch(block.bg + k);
    if (block.dst != block.fg) __builtin_prefetch(block.dst + k, 1);
  }
}

/// A number for each channel of a block's pixels.
template <class T>
struct Planes {
  HWY_ALIGN T of[3][blockPixels];
};

/// The half patterns of a block's samples, negative ones as 0. True when every sample is itself
/// that half and finite, or a zero: the key's share of an infinity is no product with its light.
HWY_INLINE bool readPatterns(const float* from, Arrangement arrangement, std::size_t pixels,
                             Planes<std::uint16_t>& patterns) {
  FloatMask exact = hn::Eq(floats(0), floats(0));
  for (std::size_t i = 0; i < pixels; i += floatLanes()) {
    prefetchNext(from + samplesPerPixel * i);
    const Pixels p = loadPixels(from + samplesPerPixel * i, arrangement);
    for (std::size_t c = 0; c < 3; ++c) {
      const hn::Vec<PatternTag> pattern = halfPatterns(dropNegative(p.colour[c]));
      hn::Store(pattern, patternTag, patterns.of[c] + i);
      exact = hn::And(exact, hn::Eq(fromHalf(pattern), p.colour[c]));
      exact = hn::And(exact, hn::Le(p.colour[c], floats(largestFloat)));
    }
  }
  return hn::AllTrue(floatTag, exact);
}

/// Reads tables by pattern, by scalar loads: gathers are slower on most machines.
template <class T>
HWY_INLINE void readTables(const T* const (&tables)[3], const Planes<std::uint16_t>& patterns,
                           std::size_t pixels, Planes<T>& entries) {
  for (std::size_t c = 0; c < 3; ++c) {
    const T* const table = tables[c];
    for (std::size_t i = 0; i < pixels; i += 4) {  // whole vectors: a multiple of 4
      // Read as one word, since g++ would have vectors take patterns apart one by one.
      std::uint64_t four = 0;
      __builtin_memcpy(&four, patterns.of[c] + i, sizeof four);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
      constexpr int shifts[4] = {48, 32, 16, 0};
#else
      constexpr int shifts[4] = {0, 16, 32, 48};
#endif
      entries.of[c][i] = table[four >> shifts[0] & 0xFFFF];
      entries.of[c][i + 1] = table[four >> shifts[1] & 0xFFFF];
      entries.of[c][i + 2] = table[four >> shifts[2] & 0xFFFF];
      entries.of[c][i + 3] = table[four >> shifts[3] & 0xFFFF];
    }
  }
}

HWY_INLINE Colours load(const Planes<float>& planes, std::size_t i) {
  return {{hn::Load(floatTag, planes.of[0] + i), hn::Load(floatTag, planes.of[1] + i),
           hn::Load(floatTag, planes.of[2] + i)}};
}

HWY_INLINE Colours loadHalves(const Planes<std::uint16_t>& planes, std::size_t i) {
  Colours out;
  for (std::size_t c = 0; c < 3; ++c) {
    out.v[c] = fromHalf(hn::Load(patternTag, planes.of[c] + i));
  }
  return out;
}

}  // namespace

}  // namespace orvanite::ORVANITE_SIMD_TARGET
