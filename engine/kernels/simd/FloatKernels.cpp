// SPDX-License-Identifier: BSD-3-Clause
//
// Built once per target: the float kernels, one for each encoding.
#include <type_traits>

#include "engine/kernels/simd/FloatKey.h"
#include "engine/targets/Kernels.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

namespace {

/// Whether rounding to halves costs less than reading a table.
#if defined(__F16C__)
constexpr bool cheapHalves = true;
#else
constexpr bool cheapHalves = false;
#endif

/// The kernel of one encoding.
template <class Decode, class Encode>
class FloatKernel {
 public:
  FloatKernel(const QMXOrvaniteTable& e, const Otile& record, const Tile<float>& tile,
              const Choices& choices)
      : s_(e, record, choices), tile_(tile), grade_{{e, 0}, {e, 1}}, tame_(isTameSetup(s_)) {
    for (int c = 0; c < 3; ++c) {
      flatCode_[c] = fromLinear(e.bgColourLinear[c] / e.neutralScale[c], e.colourspace);
    }
  }

  void operator()(const Block& block) const {
    // The dispatcher refuses tiles that have neither.
    if (block.fg != nullptr) {
      key(block);
    } else if (block.bg != nullptr) {
      passBackground(block);
    }
  }

 private:
  static constexpr bool coded = !std::is_same_v<Encode, Identity>;

  void key(const Block& block) const {
    Planes<std::uint16_t> fg, bg, shares;
    if constexpr (!coded) {
      if (s_.keysAreProducts && cheapHalves) {
        keyProducts(block);
        return;
      }
    }
    const bool halves = readPatterns(block.fg, tile_.fg.arrangement, block.pixels, fg);
    if constexpr (coded) {
      if (halves && s_.roundTrip != nullptr && !showsMatte(s_.view) &&
          (s_.view != View::composite ||
           readPatterns(block.bg, tile_.bg.arrangement, block.pixels, bg))) {
        keyHalves(block, fg, bg);
        return;
      }
    }
    readTables(s_.keys, fg, block.pixels, shares);
    for (std::size_t i = 0; i < block.pixels; i += floatLanes()) {
      keyVector(block, samplesPerPixel * i, screenAmount(loadHalves(shares, i)));
    }
  }

  /// Linear samples whose key needs no table.
  void keyProducts(const Block& block) const {
    const Floats zero = hn::Zero(floatTag);
    for (std::size_t at = 0; at < samplesPerPixel * block.pixels;
         at += samplesPerPixel * floatLanes()) {
      if (block.hold == nullptr && block.garbage == nullptr) prefetchAhead(block, at);
      const Pixels fg = loadPixels(block.fg + at, tile_.fg.arrangement);
      Colours halves;
      FloatMask finite = hn::Eq(zero, zero);
      for (std::size_t c = 0; c < 3; ++c) {
        halves.v[c] = roundedToHalf(hn::Abs(dropNegative(fg.colour[c])));
        finite = hn::And(finite, hn::Le(halves.v[c], floats(largestFloat)));
      }
      Floats amount = screenAmountOf(s_, halves);
      if (HWY_UNLIKELY(!hn::AllTrue(floatTag, finite))) amount = amountByTables(halves);
      keyVector(block, at, amount);
    }
  }

  HWY_NOINLINE Floats amountByTables(const Colours& halves) const {
    Colours shares;
    HWY_ALIGN std::uint16_t patterns[maxFloatLanes];
    for (std::size_t c = 0; c < 3; ++c) {
      hn::Store(halfPatterns(halves.v[c]), patternTag, patterns);
      for (std::size_t k = 0; k < floatLanes(); ++k) patterns[k] = s_.keys[c][patterns[k]];
      shares.v[c] = fromHalf(hn::Load(patternTag, patterns));
    }
    return screenAmount(shares);
  }

  HWY_INLINE Matte matteAt(const Block& block, std::size_t at, Floats amount) const {
    return matteOf(s_.e, amount, block.hold != nullptr ? block.hold + at : nullptr,
                   block.garbage != nullptr ? block.garbage + at : nullptr);
  }

  /// From the working colour of the plate to the graded foreground without its screen.
  HWY_INLINE void toForeground(const Matte& m, bool holding, Colours& colour) const {
    removeScreen(s_.e, m, holding, colour);
    if (s_.grades[0]) {
      toLinear(colour);
      assign(colour, grade_[0](colour));
      toWorking(colour);
    }
    if (s_.saturates[0]) saturate(s_.e.satMatrix32[0], colour);
  }

  /// From the background's linear light to the graded background in the working space.
  HWY_INLINE void toBackground(Colours& colour) const {
    if (s_.grades[1]) assign(colour, grade_[1](colour));
    toWorking(colour);
    if (s_.saturates[1]) saturate(s_.e.satMatrix32[1], colour);
  }

  HWY_INLINE Colours flat() const {
    return {{floats(s_.e.bgColourLinear[0]), floats(s_.e.bgColourLinear[1]),
             floats(s_.e.bgColourLinear[2])}};
  }

  HWY_INLINE void keyVector(const Block& block, std::size_t at, Floats amount) const {
    const Matte m = matteAt(block, at, amount);
    Pixels out;
    out.alpha = m.out;
    if (showsMatte(s_.view)) {
      const Colours status = showStatus(m);
      for (std::size_t c = 0; c < 3; ++c) {
        out.colour[c] = s_.view == View::matte ? m.out : status.v[c];
      }
    } else {
      const Pixels fg = loadPixels(block.fg + at, tile_.fg.arrangement);
      if (tame_ && hn::AllTrue(floatTag, hn::Eq(m.out, hn::Zero(floatTag))) &&
          showBackground(block, at, fg, m)) {
        return;
      }
      Colours colour = decode_(Colours{{fg.colour[0], fg.colour[1], fg.colour[2]}});
      toWorking(colour);
      toForeground(m, block.hold != nullptr, colour);
      if (s_.view == View::composite) {
        const Pixels bg = loadPixels(block.bg + at, tile_.bg.arrangement);
        Colours under = decode_(Colours{{bg.colour[0], bg.colour[1], bg.colour[2]}});
        toBackground(under);
        mix(m.out, under, colour);
        if (s_.mergesAlpha) out.alpha = mergeAlpha(m.out, bg.alpha);
      } else if (s_.view == View::flat) {
        mix(m.out, flat(), colour);
      }
      toLinear(colour);
      const Colours written = encode_(colour);
      for (std::size_t c = 0; c < 3; ++c) out.colour[c] = written.v[c];
    }
    store(out, block.dst + at);
  }

  /// Pixels that are clear throughout, in views 0 and 1: what lies under them is what is written,
  /// since 0 * (colour - under) + under is under unless something is infinite. False, and nothing
  /// written, when something might be.
  HWY_INLINE bool showBackground(const Block& block, std::size_t at, const Pixels& fg,
                                 const Matte& m) const {
    // With a divisor of 2^-24 or more, tame colours stay far below infinity.
    FloatMask tame = hn::Or(hn::Eq(m.keyed, hn::Zero(floatTag)), hn::Ge(m.keyed, floats(0x1p-24f)));
    tame = hn::And(tame, isTame(fg));
    if (s_.view == View::flat) {
      if (!hn::AllTrue(floatTag, tame)) return false;
      store({{floats(flatCode_[0]), floats(flatCode_[1]), floats(flatCode_[2])}, m.out},
            block.dst + at);
      return true;
    }
    const Pixels bg = loadPixels(block.bg + at, tile_.bg.arrangement);
    tame = hn::And(tame, isTame(bg));
    if (!hn::AllTrue(floatTag, tame)) return false;
    Colours under = decode_(Colours{{bg.colour[0], bg.colour[1], bg.colour[2]}});
    toBackground(under);
    toLinear(under);
    const Colours written = encode_(under);
    Pixels out = {{written.v[0], written.v[1], written.v[2]}, m.out};
    if (s_.mergesAlpha) out.alpha = mergeAlpha(m.out, bg.alpha);
    store(out, block.dst + at);
    return true;
  }

  /// Samples that are at most 10^6.2 in linear light.
  static HWY_INLINE FloatMask isTame(const Pixels& p) {
    // Patterns of floats that are not negative are in the order of their values; all others, and
    // NaNs, are larger.
    const auto bits = [&](std::size_t c) { return hn::BitCast(wordTag, p.colour[c]); };
    const Words largest = hn::Max(hn::Max(bits(0), bits(1)), bits(2));
    const Words four = hn::BitCast(wordTag, floats(4));
    return hn::RebindMask(floatTag, hn::Eq(hn::Max(largest, four), four));
  }

  /// Whether tame samples give tame colours: no grade, and no parameter that is not far below
  /// 10^10. Then a colour is below 10^10 * 2^24 * 10^10.
  static bool isTameSetup(const FloatSetup& s) {
    constexpr float limit = 1e10f;
    const auto within = [](float v) { return v > -limit && v < limit; };
    const QMXOrvaniteTable& e = s.e;
    bool tame = (s.view == View::composite || s.view == View::flat) && !s.grades[0] && !s.grades[1];
    for (int c = 0; c < 3; ++c) {
      tame = tame && e.neutralScale[c] > 0 && e.neutralScale[c] < 1000;
      tame = tame && within(e.screenLinear[c]) && within(e.replaceLinear[c]);
      tame = tame && within(e.bgColourLinear[c]);
      for (int k = 0; k < 3; ++k) {
        tame = tame && within(e.satMatrix32[0][c][k]) && within(e.satMatrix32[1][c][k]);
      }
    }
    return tame;
  }

  /// Blocks of which every sample is a half: decoded by table, and encoded by table wherever what
  /// is written came through unchanged, from the plate or from the background. The others are
  /// collected and encoded together.
  void keyHalves(const Block& block, Planes<std::uint16_t>& fg,
                 const Planes<std::uint16_t>& bg) const {
    const QMXOrvaniteTable& e = s_.e;
    const float* const decoders[3] = {s_.linear, s_.linear, s_.linear};
    const bool over = s_.view == View::composite, overFlat = s_.view == View::flat;
    Planes<float> fgLinear, bgLinear, flatMasks;
    Planes<std::uint16_t> shares;
    readTables(decoders, fg, block.pixels, fgLinear);
    if (over) readTables(decoders, bg, block.pixels, bgLinear);
    const bool products = s_.keysAreProducts && cheapHalves;
    if (!products) readTables(s_.keys, fg, block.pixels, shares);

    // What remains to be encoded, and where it goes: channel * blockPixels + pixel.
    constexpr std::size_t most = 3 * blockPixels;
    HWY_ALIGN float values[most + arrayPack * maxFloatLanes];
    HWY_ALIGN std::uint32_t places[most + maxFloatLanes];
    HWY_ALIGN float alphas[blockPixels];
    std::size_t count = 0;
    for (std::size_t i = 0; i < block.pixels; i += floatLanes()) {
      const std::size_t at = samplesPerPixel * i;
      Colours colour = load(fgLinear, i);
      const Floats amount =
          products ? screenAmountOf(s_, colour) : screenAmount(loadHalves(shares, i));
      const Matte m = matteAt(block, at, amount);
      toWorking(colour);
      Colours top, under;  // as they come in; the background as it would go out untouched
      assign(top, colour);
      assign(under, colour);
      toForeground(m, block.hold != nullptr, colour);
      Floats alpha = m.out;
      if (over) {
        Colours below = load(bgLinear, i);
        assign(under, below);
        toWorking(under);
        toBackground(below);
        mix(m.out, below, colour);
        if (s_.mergesAlpha) {
          alpha = mergeAlpha(m.out, loadPixels(block.bg + at, tile_.bg.arrangement).alpha);
        }
      } else if (overFlat) {
        mix(m.out, flat(), colour);
      }
      hn::Store(alpha, floatTag, alphas + i);
      Colours light;
      assign(light, colour);
      toLinear(light);
      for (std::size_t c = 0; c < 3; ++c) {
        FloatMask known = hn::Eq(colour.v[c], top.v[c]);
        if (over) {
          const FloatMask below = hn::Eq(colour.v[c], under.v[c]);
          usePatterns(below, bg.of[c] + i, fg.of[c] + i);
          known = hn::Or(known, below);
        } else if (overFlat) {
          const FloatMask below = hn::Eq(colour.v[c], floats(e.bgColourLinear[c]));
          hn::Store(hn::VecFromMask(floatTag, below), floatTag, flatMasks.of[c] + i);
          known = hn::Or(known, below);
        }
        if (hn::AllTrue(floatTag, known)) continue;
        count +=
            collect(light.v[c], hn::Not(known), static_cast<std::uint32_t>(c * blockPixels + i),
                    values + count, places + count);
      }
    }

    Planes<float> out;
    const float* const trips[3] = {s_.roundTrip[0], s_.roundTrip[1], s_.roundTrip[2]};
    readTables(trips, fg, block.pixels, out);
    for (std::size_t k = 0; k < arrayPack * floatLanes(); ++k) values[count + k] = 1;
    for (std::size_t k = 0; k < count; k += arrayPack * floatLanes()) {
      FloatPack<arrayPack> pack;
      for (std::size_t v = 0; v < arrayPack; ++v) {
        pack.v[v] = hn::LoadU(floatTag, values + k + v * floatLanes());
      }
      pack = encode_(pack);
      for (std::size_t v = 0; v < arrayPack; ++v) {
        hn::StoreU(pack.v[v], floatTag, values + k + v * floatLanes());
      }
    }
    float* const flatOut = &out.of[0][0];
    for (std::size_t k = 0; k < count; ++k) flatOut[places[k]] = values[k];

    for (std::size_t i = 0; i < block.pixels; i += floatLanes()) {
      Colours shown = load(out, i);
      if (overFlat) {
        const Colours masks = load(flatMasks, i);
        for (std::size_t c = 0; c < 3; ++c) {
          shown.v[c] =
              hn::IfThenElse(hn::MaskFromVec(masks.v[c]), floats(flatCode_[c]), shown.v[c]);
        }
      }
      store({{shown.v[0], shown.v[1], shown.v[2]}, hn::Load(floatTag, alphas + i)},
            block.dst + samplesPerPixel * i);
    }
  }

  /// Puts patterns of `from` where the mask holds.
  static HWY_INLINE void usePatterns(FloatMask mask, const std::uint16_t* from, std::uint16_t* to) {
    if (hn::AllFalse(floatTag, mask)) return;
    const hn::RebindToSigned<WordTag> signedTag;
    const hn::Rebind<std::int16_t, FloatTag> shortTag;
    const auto chosen = hn::BitCast(
        patternTag,
        hn::DemoteTo(shortTag, hn::BitCast(signedTag, hn::VecFromMask(floatTag, mask))));
    const auto a = hn::Load(patternTag, from), b = hn::Load(patternTag, to);
    hn::Store(hn::Or(hn::And(chosen, a), hn::AndNot(chosen, b)), patternTag, to);
  }

  void passBackground(const Block& block) const {
    const QMXOrvaniteTable& e = s_.e;
    if constexpr (coded) {
      Planes<std::uint16_t> bg;
      if (s_.roundTrip != nullptr && !s_.grades[1] && !s_.saturates[1] &&
          readPatterns(block.bg, tile_.bg.arrangement, block.pixels, bg)) {
        passHalves(block, bg);
        return;
      }
    }
    for (std::size_t at = 0; at < samplesPerPixel * block.pixels;
         at += samplesPerPixel * floatLanes()) {
      const Pixels bg = loadPixels(block.bg + at, tile_.bg.arrangement);
      Colours colour = decode_(Colours{{bg.colour[0], bg.colour[1], bg.colour[2]}});
      assign(colour, grade_[1](colour));
      toWorking(colour);
      if (s_.saturates[1]) {
        assign(colour, multiply(e.satMatrix32[1], colour));
        for (Floats& v : colour.v) {
          v = hn::IfThenElseZero(hn::Gt(v, hn::Zero(floatTag)), v);  // a NaN becomes 0 here
        }
      }
      toLinear(colour);
      assign(colour, encode_(colour));
      passAlpha(block, at, colour);
    }
  }

  /// A background of halves to which nothing is done.
  void passHalves(const Block& block, const Planes<std::uint16_t>& bg) const {
    Planes<float> out;
    const float* const trips[3] = {s_.roundTrip[0], s_.roundTrip[1], s_.roundTrip[2]};
    readTables(trips, bg, block.pixels, out);
    for (std::size_t i = 0; i < block.pixels; i += floatLanes()) {
      passAlpha(block, samplesPerPixel * i, load(out, i));
    }
  }

  /// Writes colours beside the background's alpha; one without alpha counts as one of alpha 0.
  HWY_INLINE void passAlpha(const Block& block, std::size_t at, const Colours& colour) const {
    Pixels out = {{colour.v[0], colour.v[1], colour.v[2]}, hn::Zero(floatTag)};
    if (tile_.bg.whole) out.alpha = loadPixels(block.bg + at, tile_.bg.arrangement).alpha;
    store(out, block.dst + at);
  }

  /// Linear light to the working space, and back.
  HWY_INLINE void toWorking(Colours& v) const {
    if (!s_.scales) return;
    for (std::size_t c = 0; c < 3; ++c) v.v[c] = hn::Mul(floats(s_.e.neutralScale[c]), v.v[c]);
  }
  HWY_INLINE void toLinear(Colours& v) const {
    if (!s_.scales) return;
    for (std::size_t c = 0; c < 3; ++c) v.v[c] = hn::Div(v.v[c], floats(s_.e.neutralScale[c]));
  }

  HWY_INLINE void store(const Pixels& out, float* to) const {
    storePixels(out, to, tile_.dst.arrangement);
  }

  FloatSetup s_;
  Tile<float> tile_;
  Grade grade_[2];
  float flatCode_[3];  // the flat background as it is written where it shows through
  bool tame_;
  Decode decode_;
  Encode encode_;
};

bool key(const QMXOrvaniteTable& engine, int width, int height, const Otile& record,
         const Choices& choices) {
  if (engine.refEnabled != 0) return false;  // the definition refuses it
  Tile<float> tile;
  if (!describe(engine, width, height, record, choices, tile)) return false;
  if (engine.colourspace == logSpace) {
    walk(tile, choices.alpha, FloatKernel<LogToLinear, LinearToLog>(engine, record, tile, choices));
  } else if (engine.colourspace == videoSpace) {
    walk(tile, choices.alpha,
         FloatKernel<VideoToLinear, LinearToVideo>(engine, record, tile, choices));
  } else {
    walk(tile, choices.alpha, FloatKernel<Identity, Identity>(engine, record, tile, choices));
  }
  return true;
}

}  // namespace

extern const FloatKernels floatKernels;
const FloatKernels floatKernels = {key};

}  // namespace orvanite::ORVANITE_SIMD_TARGET
