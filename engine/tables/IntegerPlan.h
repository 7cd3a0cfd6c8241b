// SPDX-License-Identifier: BSD-3-Clause
//
// What the vector kernels for 8-bit and 16-bit pictures read beside the engine's tables: the same
// entries packed so that what is read together lies together, and what was found out about them.
//
// makeLuts brings it up to date after the tables; rendering only reads it. It is a convenience:
// where it is missing or not usable, the definition keys the tile.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "base/Depth.h"
#include "engine/tables/SureScreen.h"

struct QMXOrvaniteTable;

namespace orvanite {

struct IntegerPlan {
  static constexpr int workEntries = 16384;

  /// What a build has changed, as bits.
  enum Change { keys = 1, plate = 2, background = 4, grade = 8, output = 16, all = 31 };

  /// An image's entries, by channel. Of 8-bit pictures 64 bits each: the channel's working value
  /// at its place (red lowest, then green, blue; 16 bits each) and its key contribution in the
  /// highest 16, so that the sum over the channels is a pixel. Of 16-bit pictures 32 bits each:
  /// working value below, key contribution above.
  struct Packed {
    std::uint64_t bytes[3][256];
    std::uint8_t parts[3][4][256];  // of 8 bits: the same by byte, working value first, low first
    const std::uint32_t* words[3] =
        {};  // one entry per code, null unless in use; equal ones are one
    std::unique_ptr<std::uint32_t[]> ownedWords[3];
    bool keysFit;  // any sum of three key contributions fits 16 bits
  };

  std::optional<Depth> depth;  // that the packed entries are for
  bool usable = false;         // every entry lies in the range that the kernels rely on
  bool refUsable = false;

  // fg where it is no line; ref while the clean plate is in use; bg without keys, 8-bit only.
  Packed fg, ref, bg;

  // By channel, the first channel whose table holds the same: kernels read that one, so that equal
  // tables take their room in the caches once. Of fgGradeTable, bgTable, outputTable; and of the
  // output after the grade, unless the grade is the identity.
  int sameGrade[3] = {0, 1, 2}, sameBackground[3] = {0, 1, 2}, sameOutput[3] = {0, 1, 2};
  int sameGraded[3] = {0, 1, 2};

  // Tables found to be the identity.
  bool gradeIsIdentity = false;
  bool clipIsIdentity = false;
  bool plateReturns[2] = {};  // 8-bit: foreground, background codes come out as they went in

  // Tables found to be straight lines, entry by entry: the kernels compute them. Light is
  // code / max, in single precision as everything here.
  bool workIsLine = false;        // 16-bit: fgLinear 16383 * light
  bool plateIsLine = false;       // and keyTable engine.keyFactor * light, and fg.keysFit
  bool backgroundIsLine = false;  // bgTable 16383 * light
  bool outputIsLine = false;      // outputTable max * (working value / 16383)

  TableBounds bounds;
  SureScreen screen;  // none beside a clean plate

  bool saturationFits[2] = {};  // the matrix's sums of products fit 32 bits

  float screenScale = 1;  // screenTable[i] is min(16384, i * screenScale + 0.5), truncated
  float clipLow = 0;      // clipTable[i] is (i - clipLow) / clipRange + 0.5 within 0..4096,
  float clipRange = 1;
  float clipSlope = 0;  // or, where this is not 0, (i - clipLow) * clipSlope + 0.5

  // 8-bit: output codes by working value; and by code what a pixel of pure foreground or
  // background becomes, each channel at its byte of a little-endian red, green, blue, alpha.
  std::uint8_t outputCodes[3][workEntries];
  std::uint8_t gradedBytes[3]
                          [workEntries];  // of values before the grade, unless it is the identity
  std::uint32_t fgOutput[3][256];
  std::uint32_t bgOutput[3][256];

  // 16-bit: the same, and the output codes of background codes, unless both tables are lines.
  std::uint16_t gradedCodes[3][workEntries];
  const std::uint16_t* bgCodes[3] = {};
  std::unique_ptr<std::uint16_t[]> ownedBgCodes[3];
};

/// Brings the engine's plan up to date with its tables. Cannot fail: without memory there is no
/// plan, or one that is not usable.
void updatePlan(QMXOrvaniteTable& engine, int changes);

}  // namespace orvanite
