// SPDX-License-Identifier: BSD-3-Clause
//
// The integer kernel on whole vectors of pixels, stage by stage over a block: look up the plate,
// key it, sort vectors into pure foreground, pure background, solid and mixed ones, and give each
// kind the work that it needs. Stages are loops of their own: one long loop would wait on itself.
//
// Read kernels/QMXOrvaniteRender.h first: the same steps, one pixel at a time.
#pragma once

#include "engine/kernels/simd/IntegerLookups.h"
#include "engine/kernels/simd/IntegerScreen.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

namespace {

/// Vectors of a block by the number of their first pixel.
struct Places {
  std::uint16_t at[blockPixels];
  std::size_t count = 0;

  /// Counts the place in or not, without a branch.
  void add(std::size_t i, bool in) {
    at[count] = static_cast<std::uint16_t>(i);
    count += in ? 1 : 0;
  }
};

template <class T>
class IntegerKernel {
 public:
  IntegerKernel(const QMXOrvaniteTable& e, const Choices& choices, bool bgAlpha)
      : e_(e), p_(*e.plan), choices_(choices), view_(viewOf(e.view)) {
    mergesAlpha_ = view_ == View::composite && choices.alpha && bgAlpha;
    saturates_[0] = e.saturation[0] != 1.0f;
    saturates_[1] = e.saturation[1] != 1.0f && view_ == View::composite;
    showsPure_ = !showsMatte(view_) && !saturates_[0];
    // A matte of 0 leaves no colour to saturate, unless the view mixes nothing.
    showsBackground_ =
        view_ == View::unpremultiplied ? !saturates_[0] : !showsMatte(view_) && !saturates_[1];
    showsSolid_ = showsPure_ && view_ != View::unpremultiplied;
    passesScreen_ = p_.screen.any && showsBackground_ && view_ != View::unpremultiplied;
    for (std::size_t c = 0; c < 3; ++c) {
      if constexpr (sizeof(T) == 1) {
        output_[c] = p_.outputCodes[p_.sameOutput[c]];
        graded_[c] = p_.gradedBytes[p_.sameGraded[c]];
      } else {
        output_[c] = e.outputTable[p_.sameOutput[c]];
        graded_[c] = p_.gradedCodes[p_.sameGraded[c]];
      }
      grade_[c] = e.fgGradeTable[p_.sameGrade[c]];
      background_[c] = e.bgTable[p_.sameBackground[c]];
    }
  }

  void operator()(const Block<T>& block) {
    mixed_.count = solid_.count = pureFg_.count = pureBg_.count = 0;
    if (passesScreen_) {
      passScreen(block);
    } else if (open_.count * shortLanes() != block.pixels) {
      openAll(block);
    }
    if (p_.plateIsLine) {
      computeLine(block);
    } else {
      lookUpOpen(block);
    }
    if (!p_.fg.keysFit) limitKeys(e_, block.fg, block.pixels, fg_);
    if (choices_.ref) lookUpKeyed(block.ref, p_.ref, 0, block.pixels, ref_);
    keyVectors(block);
    if (showsMatte(view_)) return;
    const bool graded = !p_.gradeIsIdentity;
    const bool mixes =
        view_ != View::unpremultiplied || saturates_[0];  // else grade and output are one look-up
    if (graded && mixes) grade(mixed_);
    if (view_ == View::composite && !p_.backgroundIsLine) lookUpBackground(block);
    if (mixes) mixVectors(block);
    writeColours(block, mixed_, graded && !mixes);
    writeColours(block, solid_, graded);
    writeForeground(block);
    writeBackground(block);
  }

 private:
  using Output = std::conditional_t<sizeof(T) == 1, std::uint8_t, std::uint16_t>;

  /// What every vector of a tile reads, kept where a loop finds it without looking it up again.
  struct Constants {
    U16 screen[3], replace[3];
    U16 refScreen[3], refScreenKey;
    U16 clear;  // a matte that is no greater is clipped to 0; in view 4 only 0 is
    U16 clipLow;
    Floats screenScale, clipRange, clipSlope;
  };

  struct Screen {
    U16 amount, colour[3];
  };

  HWY_INLINE Constants constants() const {
    Constants k;
    for (std::size_t c = 0; c < 3; ++c) {
      k.screen[c] = shorts(e_.screenWork[c]);
      k.replace[c] = shorts(e_.replaceWork[c]);
      k.refScreen[c] = shorts(choices_.ref ? e_.refScreenWork[c] : 0);
    }
    k.refScreenKey = shorts(choices_.ref ? e_.refScreenKey : 1);
    k.clear = shorts(view_ == View::unpremultiplied ? 0 : static_cast<int>(p_.clipLow));
    k.screenScale = floats(p_.screenScale);
    k.clipLow = shorts(static_cast<int>(p_.clipLow));
    k.clipRange = floats(p_.clipRange);
    k.clipSlope = floats(p_.clipSlope);
    return k;
  }

  template <bool ref>
  HWY_INLINE Screen screenAt(const Constants& k, std::size_t i, U16 key) const {
    Screen s;
    if constexpr (!ref) {
      const auto limited = hn::Min(hn::Max(asSigned(key), hn::Zero(i16Tag)), hn::Set(i16Tag, 4095));
      s.amount = screenAmount(asUnsigned(limited), k.screenScale);
      for (std::size_t c = 0; c < 3; ++c) s.colour[c] = k.screen[c];
      return s;
    }
    const Keyed clean = loadKeyed(ref_, i, true);
    const U16Mask usable = above(clean.key, hn::Zero(u16Tag));
    s.amount = screenAmount(key, hn::IfThenElse(usable, clean.key, k.refScreenKey));
    for (std::size_t c = 0; c < 3; ++c) {
      s.colour[c] = hn::IfThenElse(usable, clean.colour[c], k.refScreen[c]);
    }
    return s;
  }

  void openAll(const Block<T>& block) {
    open_.count = 0;
    for (std::size_t i = 0; i < block.pixels; i += shortLanes()) open_.add(i, true);
  }

  /// Passes what is surely screen and not held; leaves the others open.
  HWY_NOINLINE void passScreen(const Block<T>& block) {
    const ScreenLimits limits(p_.screen, block.fg.alphaFirst);
    open_.count = 0;
    for (std::size_t i = 0; i < block.pixels; i += shortLanes()) {
      const bool sure = limits.hold(block.fg.at + 4 * i) &&
                        (block.hold == nullptr || areZero(hn::LoadU(u16Tag, block.hold + i)));
      open_.add(i, !sure);
      if (!sure) continue;
      block.ahead.fetch(i);
      passBackground(block, i);
    }
  }

  /// Looks the plate up in runs of open vectors.
  void lookUpOpen(const Block<T>& block) {
    const std::size_t lanes = shortLanes();
    for (std::size_t n = 0; n < open_.count;) {
      const std::size_t first = open_.at[n];
      std::size_t end = first;
      for (; n < open_.count && open_.at[n] == end; ++n) end += lanes;
      lookUpKeyed(block.fg, p_.fg, first, end - first, fg_);
    }
  }

  /// What lookUpKeyed would bring, where the plate's tables are lines. A stage of its own for the
  /// same reason as the others.
  HWY_NOINLINE void computeLine(const Block<T>& block) {
    const Floats factor[3] = {floats(e_.keyFactor[0]), floats(e_.keyFactor[1]),
                              floats(e_.keyFactor[2])};
    for (std::size_t n = 0; n < open_.count; ++n) {
      const std::size_t i = open_.at[n];
      const Keyed k = keyedLine<T>(loadSamples(block.fg, i), factor);
      for (std::size_t c = 0; c < 3; ++c) hn::Store(k.colour[c], u16Tag, line_[c] + i);
      hn::Store(k.key, u16Tag, line_[3] + i);
    }
  }

  HWY_INLINE Keyed loadLine(std::size_t i) const {
    return {{hn::Load(u16Tag, line_[0] + i), hn::Load(u16Tag, line_[1] + i),
             hn::Load(u16Tag, line_[2] + i)},
            hn::Load(u16Tag, line_[3] + i)};
  }

  void keyVectors(const Block<T>& block) {
    if (p_.plateIsLine) return keyVectors<true>(block);
    return keyVectors<false>(block);
  }

  template <bool line>
  void keyVectors(const Block<T>& block) {
    if (choices_.ref) {
      return block.hold ? keyVectors<line, true, true>(block)
                        : keyVectors<line, true, false>(block);
    }
    return block.hold ? keyVectors<line, false, true>(block)
                      : keyVectors<line, false, false>(block);
  }

  template <bool line, bool ref, bool hold>
  HWY_NOINLINE void keyVectors(const Block<T>& block) {
    const Constants k = constants();
    for (std::size_t n = 0; n < open_.count; ++n) {
      const std::size_t i = open_.at[n];
      block.ahead.fetch(i);
      keyVector<line, ref, hold>(block, k, i);
    }
  }

  /// Keys one vector of pixels: its matte, and its colour where some of it is mixed.
  template <bool line, bool ref, bool hold>
  HWY_INLINE void keyVector(const Block<T>& block, const Constants& k, std::size_t i) {
    const U16 one = shorts(4096);
    const Keyed plate = line ? loadLine(i) : loadKeyed(fg_, i, p_.fg.keysFit);
    if (showsPure_ && hn::AllFalse(u16Tag, above(plate.key, hn::Zero(u16Tag))) &&
        (block.garbage == nullptr || areZero(hn::LoadU(u16Tag, block.garbage + i)))) {
      return passForeground(i, plate);
    }
    const Screen screen = screenAt<ref>(k, i, plate.key);

    const U16 whole = hn::ShiftRight<12>(screen.amount);
    const U16 part8 = hn::ShiftLeft<3>(hn::And(screen.amount, shorts(4095)));
    U16 colour[3];
    for (std::size_t c = 0; c < 3; ++c) {
      colour[c] = removeScreen(plate.colour[c], whole, part8, screen.colour[c]);
    }
    U16 matte = hn::SaturatedSub(one, screen.amount);
    U16 held = hn::Zero(u16Tag);
    if constexpr (hold) {
      held = keyProduct(hn::Sub(one, matte), matteKey<T>(hn::LoadU(u16Tag, block.hold + i)));
      matte = hn::Add(matte, held);
      for (std::size_t c = 0; c < 3; ++c) {
        colour[c] = hn::Min(hn::Add(colour[c], keyProduct(held, k.replace[c])), shorts(16383));
      }
    }

    const U16 largest = hn::Max(hn::Max(colour[0], colour[1]), colour[2]);
    const U16 needed = matteOfColour(largest);
    const U16Mask enough = above(matte, needed);
    U16 shown = hn::Max(matte, needed);
    // What the clip takes to nothing is nothing under any garbage matte, too.
    const U16 left = view_ == View::unpremultiplied ? hn::Or(shown, largest) : shown;
    if (showsBackground_ && hn::AllFalse(u16Tag, above(left, k.clear))) {
      return passBackground(block, i);
    }
    if (!p_.clipIsIdentity) {
      shown = p_.clipSlope != 0 ? clipMatte<true>(shown, k.clipLow, k.clipSlope)
                                : clipMatte<false>(shown, k.clipLow, k.clipRange);
    }
    if (block.garbage != nullptr) {
      const U16 kept = hn::Sub(one, matteKey<T>(hn::LoadU(u16Tag, block.garbage + i)));
      shown = hn::Sub(kept, keyProduct(hn::Sub(one, shown), kept));
    }

    if (view_ == View::matte) return showMatte(block, i, shown);
    if (view_ == View::status) return showStatus(block, i, shown, held);
    noteAlpha(block, i, shown);
    if (sort(i, plate, screen.amount, shown, largest)) return;

    const U16 divisor = hn::Max(hn::IfThenElse(enough, matte, largest), shorts(1));
    const Divisor d = prepareDivision(divisor, hn::Not(enough));
    for (std::size_t c = 0; c < 3; ++c) {
      hn::Store(divide(colour[c], d), u16Tag, colour_[c] + i);
    }
    hn::Store(shown, u16Tag, matte_ + i);
  }

  /// Pixels of screen alone: what lies behind shows.
  HWY_INLINE void passBackground(const Block<T>& block, std::size_t i) {
    pureBg_.add(i, true);
    noteAlpha(block, i, hn::Zero(u16Tag));
  }

  /// Pixels without any screen and without garbage: the plate is what shows.
  HWY_INLINE void passForeground(std::size_t i, const Keyed& plate) {
    pureFg_.add(i, true);
    hn::Store(shorts(static_cast<T>(~T{0})), u16Tag, alpha_ + i);
    if (sizeof(T) == 1) return;
    for (std::size_t c = 0; c < 3; ++c) hn::Store(plate.colour[c], u16Tag, colour_[c] + i);
  }

  static HWY_INLINE bool areZero(U16 v) { return hn::AllTrue(u16Tag, hn::Eq(v, hn::Zero(u16Tag))); }

  /// Notes what kind of pixels a vector holds; true when they are all pure.
  HWY_INLINE bool sort(std::size_t i, const Keyed& plate, U16 amount, U16 shown, U16 largest) {
    const bool fg = !saturates_[0] && areZero(hn::Or(amount, hn::Xor(shown, shorts(4096))));
    // Where the colour shows whatever its matte, it has to be black too.
    const U16 rest = view_ == View::unpremultiplied ? hn::Or(shown, largest) : shown;
    const bool bg = !fg && showsBackground_ && areZero(rest);
    const bool solid = !fg && showsSolid_ && areZero(hn::Xor(shown, shorts(4096)));
    pureFg_.add(i, fg);
    pureBg_.add(i, bg);
    solid_.add(i, solid);
    mixed_.add(i, !fg && !bg && !solid);
    if (sizeof(T) == 2 && fg) {
      for (std::size_t c = 0; c < 3; ++c) hn::Store(plate.colour[c], u16Tag, colour_[c] + i);
    }
    return fg || bg;
  }

  /// The destination's alpha: the matte, joined by the background's.
  HWY_INLINE void noteAlpha(const Block<T>& block, std::size_t i, U16 shown) {
    if (!mergesAlpha_) return hn::Store(matteCode<T>(shown), u16Tag, alpha_ + i);
    if (areOpaque(block.bg, i)) {  // as backgrounds are
      return hn::Store(shorts(static_cast<T>(~T{0})), u16Tag, alpha_ + i);
    }
    const U16 matte = mergeAlpha<T>(shown, loadSamples(block.bg, i).a);
    hn::Store(matteCode<T>(matte), u16Tag, alpha_ + i);
  }

  HWY_INLINE void showMatte(const Block<T>& block, std::size_t i, U16 shown) const {
    const U16 code = matteCode<T>(shown);
    storeSamples({code, code, code, code}, block.dstAlphaFirst, block.dst + 4 * i);
  }

  /// Clear is black, solid blue, anything between green by its matte; held shows in the red.
  HWY_INLINE void showStatus(const Block<T>& block, std::size_t i, U16 shown, U16 held) const {
    const U16Mask clear = hn::Eq(shown, hn::Zero(u16Tag));
    const U16Mask solid = hn::Eq(shown, shorts(4096));
    const U16 full = shorts(static_cast<T>(~T{0}));
    const Samples s = {hn::IfThenZeroElse(clear, statusCode<T>(held)),
                       hn::IfThenZeroElse(hn::Or(clear, solid), statusCode<T>(shown)),
                       hn::IfThenElseZero(solid, full), matteCode<T>(shown)};
    storeSamples(s, block.dstAlphaFirst, block.dst + 4 * i);
  }

  HWY_NOINLINE void grade(const Places& places) {
    const std::size_t lanes = shortLanes();
    for (std::size_t c = 0; c < 3; ++c) {
      const std::uint16_t* const table = grade_[c];
      for (std::size_t n = 0; n < places.count; ++n) {
        std::uint16_t* const v = colour_[c] + places.at[n];
        for (std::size_t k = 0; k < lanes; k += 4) lookUpFour(table, v + k);
      }
    }
  }

  HWY_NOINLINE void lookUpBackground(const Block<T>& block) {
    const std::size_t lanes = shortLanes();
    for (std::size_t n = 0; n < mixed_.count; ++n) {
      const std::size_t first = mixed_.at[n];
      if constexpr (sizeof(T) == 1) {
        lookUpKeyed(block.bg, p_.bg, first, lanes, bg_);
      } else {
        lookUpWork(block.bg, background_, first, lanes, under_);
      }
    }
  }

  HWY_INLINE void loadBackground(const Block<T>& block, std::size_t i, U16 (&under)[3]) const {
    if (p_.backgroundIsLine) {
      workLine<T>(loadSamples(block.bg, i), under);
    } else if constexpr (sizeof(T) == 1) {
      const Keyed bg = loadKeyed(bg_, i, true);
      for (std::size_t c = 0; c < 3; ++c) under[c] = bg.colour[c];
    } else {
      for (std::size_t c = 0; c < 3; ++c) under[c] = hn::Load(u16Tag, under_[c] + i);
    }
  }

  /// Brings the graded colours of mixed pixels to the output's working values.
  HWY_NOINLINE void mixVectors(const Block<T>& block) {
    U16 flat[3];
    for (std::size_t c = 0; c < 3; ++c) flat[c] = shorts(e_.bgColourWork[c]);
    for (std::size_t n = 0; n < mixed_.count; ++n) {
      const std::size_t i = mixed_.at[n];
      U16 over[3];
      for (std::size_t c = 0; c < 3; ++c) over[c] = hn::Load(u16Tag, colour_[c] + i);
      if (saturates_[0]) saturate(e_.satMatrix[0], over);
      if (view_ != View::unpremultiplied) {
        U16 under[3] = {flat[0], flat[1], flat[2]};
        if (view_ == View::composite) {
          loadBackground(block, i, under);
          if (saturates_[1]) saturate(e_.satMatrix[1], under);
        }
        const U16 matte = hn::Load(u16Tag, matte_ + i);
        for (std::size_t c = 0; c < 3; ++c) over[c] = mix(matte, over[c], under[c]);
      }
      for (std::size_t c = 0; c < 3; ++c) hn::Store(over[c], u16Tag, colour_[c] + i);
    }
  }

  /// Puts the colours of places out, those that are not graded yet through their grade.
  HWY_NOINLINE void writeColours(const Block<T>& block, const Places& places, bool graded) const {
    if (p_.outputIsLine && !graded) return writeLine(block, places);
    const auto write =
        block.dstAlphaFirst ? lookUpOutput<true, T, Output> : lookUpOutput<false, T, Output>;
    for (std::size_t n = 0; n < places.count; ++n) {
      const std::size_t i = places.at[n];
      write(graded ? graded_ : output_, colour_[0] + i, colour_[1] + i, colour_[2] + i, alpha_ + i,
            shortLanes(), block.dst + 4 * i);
    }
  }

  void writeLine(const Block<T>& block, const Places& places) const {
    for (std::size_t n = 0; n < places.count; ++n) {
      const std::size_t i = places.at[n];
      const auto code = [&](std::size_t c) { return codeOf<T>(hn::Load(u16Tag, colour_[c] + i)); };
      writeCodes(code(0), code(1), code(2), block, i);
    }
  }

  /// Puts a vector of codes where it belongs, with the alpha from the notes.
  HWY_INLINE void writeCodes(U16 r, U16 g, U16 b, const Block<T>& block, std::size_t i) const {
    storeSamples({r, g, b, hn::Load(u16Tag, alpha_ + i)}, block.dstAlphaFirst, block.dst + 4 * i);
  }

  /// Copies 8-bit colours, and takes the alpha from the notes.
  HWY_INLINE void copyColours(const Pixels<T>& from, const Block<T>& block, std::size_t i) const {
    const Samples s = loadSamples(from, i);
    writeCodes(s.r, s.g, s.b, block, i);
  }

  HWY_NOINLINE void writeForeground(const Block<T>& block) const {
    if constexpr (sizeof(T) == 2) {
      writeColours(block, pureFg_, !p_.gradeIsIdentity);
    } else {
      for (std::size_t n = 0; n < pureFg_.count; ++n) {
        if (p_.plateReturns[0]) {
          copyColours(block.fg, block, pureFg_.at[n]);
        } else {
          writeComposed(block.fg, p_.fgOutput, block, pureFg_.at[n]);
        }
      }
    }
  }

  HWY_NOINLINE void writeBackground(const Block<T>& block) const {
    for (std::size_t n = 0; n < pureBg_.count; ++n) {
      const std::size_t i = pureBg_.at[n];
      if (view_ != View::composite) {
        writeFlat(block, i);
      } else if constexpr (sizeof(T) == 2) {
        writeComposed(block, i);
      } else if (p_.plateReturns[1]) {
        copyColours(block.bg, block, i);
      } else {
        writeComposed(block.bg, p_.bgOutput, block, i);
      }
    }
  }

  /// 16-bit background codes to output codes.
  HWY_INLINE void writeComposed(const Block<T>& block, std::size_t i) const {
    if (p_.backgroundIsLine && p_.outputIsLine) {
      U16 work[3];
      workLine<T>(loadSamples(block.bg, i), work);
      return writeCodes(codeOf<T>(work[0]), codeOf<T>(work[1]), codeOf<T>(work[2]), block, i);
    }
    writeComposed(block.bg, p_.bgCodes, block, i);
  }

  template <class Table>
  HWY_INLINE void writeComposed(const Pixels<T>& from, const Table& table, const Block<T>& block,
                                std::size_t i) const {
    if (block.dstAlphaFirst) {
      lookUpComposed<true>(from, table, alpha_, i, shortLanes(), block.dst);
    } else {
      lookUpComposed<false>(from, table, alpha_, i, shortLanes(), block.dst);
    }
  }

  /// Pure screen over a flat colour, or unmixed: one colour for all.
  void writeFlat(const Block<T>& block, std::size_t i) const {
    U16 codes[3];
    for (std::size_t c = 0; c < 3; ++c) {
      const int working = view_ == View::flat ? e_.bgColourWork[c] : e_.fgGradeTable[c][0];
      codes[c] = shorts(output_[c][working]);
    }
    writeCodes(codes[0], codes[1], codes[2], block, i);
  }

  const QMXOrvaniteTable& e_;
  const IntegerPlan& p_;
  const Choices choices_;
  const View view_;
  bool mergesAlpha_;
  bool saturates_[2];
  bool showsPure_;           // where no pixel has any screen, the plate is what shows
  bool showsBackground_;     // where none has a matte, what lies behind
  bool showsSolid_;          // where the matte is full, the colour without what lies behind
  bool passesScreen_;        // and that of some pixels is told from their codes
  const Output* output_[3];  // of working values
  const Output* graded_[3];  // of working values before the grade
  const std::uint16_t* grade_[3];
  const std::int16_t* background_[3];

  Places open_;  // vectors that the look-ups have to tell of
  Places mixed_, solid_, pureFg_, pureBg_;
  KeyedBuffer<T> fg_, ref_;
  KeyedBuffer<std::uint8_t> bg_;
  HWY_ALIGN std::uint16_t line_[4][blockPixels];  // computed: working values and the key
  HWY_ALIGN std::uint16_t under_[3][blockPixels];
  HWY_ALIGN std::uint16_t colour_[3][blockPixels];
  HWY_ALIGN std::uint16_t matte_[blockPixels];
  HWY_ALIGN std::uint16_t alpha_[blockPixels];
};

}  // namespace

}  // namespace orvanite::ORVANITE_SIMD_TARGET
