// SPDX-License-Identifier: BSD-3-Clause
//
// Loops along rows that many pictures pass through: blurs, and what the finish does to mattes and
// colours. Plain loops, compiled for every level of the processor that kernels are compiled for;
// each gives the same bits, as sums are of whole numbers or in the order that is written.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "keyer/Finish.h"

namespace orvanite {

/// What the finish sums samples in: whole numbers, that double holds up to 2^53.
template <class Sample>
using SumOf = std::conditional_t<std::is_same_v<Sample, std::uint8_t>, std::int32_t, double>;

/// A row of foreground pixels of four samples, and what lies around each.
template <class Sample>
struct ColourRow {
  Sample* pixels;               ///< changed in place
  const std::uint16_t* matte;   ///< where it is 0, nothing changes
  const std::uint16_t* own;     ///< the matte before it was finished; null: no colour from inside
  const float* inside;          ///< red, green, blue of the inside, and how much there is of it
  const float* behind;          ///< the same of the background; null where it is not looked at
  const std::uint16_t* nearby;  ///< how solid the neighbourhood is; null: no light comes around
  int count;                    ///< of pixels
};

/// A row of a plane that is stretched over more columns: each value lies between two cells of one
/// row of the plane, or of two, before the first, or after the last.
struct StretchedRow {
  const float *above, *below;  ///< rows of the plane
  float share;                 ///< how near to the second
  int cells;                   ///< in either
  /// Columns from one cell to the next, where they are the same everywhere and at most
  /// `mostRepeats`; the first column is then the first right of half of them before a cell. Else 0.
  int repeats;
  const int* places;    ///< of each column: after how many cells it lies
  const float* shares;  ///< and how near to the one after
  int count;            ///< of columns
};

/// The most columns to a cell that are stretched at once.
inline constexpr int mostRepeats = 8;

/// How far around a pixel a line of its matte over its colours looks, in pixels.
inline constexpr int guideReach = 2;

/// What is nearer to clear or solid than a code of eight bits is not refined.
inline constexpr std::uint16_t nearlyClear = 65535 / 255, nearlySolid = 65535 - nearlyClear;

/// How far around a pixel the subject's colour is looked for, in pixels.
inline constexpr int subjectReach = 8;

/// What is summed of the subject around a pixel: how many pixels there are, their red, green and
/// blue (1 is 65535), and the squares of all three (of 256ths).
inline constexpr int subjectPlanes = 5;

/// A row of floats, 1 is full, beside what is known around it; planes lie `stride` apart.
struct SubjectRow {
  float* pixels;             ///< red, green, blue, and the matte, which is changed in place
  const float* screen;       ///< red, green, blue of the screen there
  const std::int32_t* sums;  ///< columns' sums; the first is subjectReach before the row's first
  std::ptrdiff_t stride;     ///< from one plane to the next
  int count;                 ///< of pixels
};

/// A row of a plate and its matte.
template <class Sample>
struct GuideRow {
  const Sample *red, *green, *blue;  ///< channels
  std::ptrdiff_t step;               ///< between samples of one
  const std::uint16_t* matte;        ///< samples side by side; null: there is none
};

/// A row of pixels of four samples, not multiplied, whose matte was refined.
template <class Sample>
struct RefinedRow {
  const std::uint16_t *was, *is;  ///< the matte before and now
  const Sample* const* screen;    ///< the screen's channels; null: it has one colour
  std::ptrdiff_t step;            ///< between samples of one
  std::array<float, 3> colour;    ///< that one; 1 is full
  int primary;                    ///< the screen's strongest channel
  Sample* pixels;                 ///< changed in place
  int count;                      ///< of pixels
};

/// What is done to rows of pixels of one depth, by the finish to such of four samples.
template <class Sample>
struct ColourRows {
  /// Light of a row's red, green and blue codes, whose samples lie `step` apart, and, each
  /// `stride` floats on, red and blue less light.
  void (*splitChroma)(const Sample* const* channels, std::ptrdiff_t step, int count,
                      std::ptrdiff_t stride, float* light);

  /// Red, green, blue and matte as fitMatte takes them: 1 is full. Floats count from 0 to 4, NaN
  /// counts as 0.
  void (*takeGuide)(const GuideRow<Sample>& row, int count, std::ptrdiff_t stride, float* values);

  /// A row's matte; 0 where the garbage matte, of samples `step` apart, cuts whole.
  void (*uncut)(const Sample* garbage, std::ptrdiff_t step, const std::uint16_t* matte, int count,
                std::uint16_t* to);

  /// Gives pixels the colour that goes with their matte: what is more solid than it was loses less
  /// of the screen, but shows no more of it than before or than its other channels have.
  void (*recolour)(const RefinedRow<Sample>& row);

  /// Copies pixels; in place of alpha stands full less the matte.
  void (*prepare)(const Sample* pixels, const std::uint16_t* matte, int count, Sample* to);
  /// Sums of columns in which a row of the inside takes the place of the one in `line`.
  /// own  the pixels' matte, which weighs them
  void (*weigh)(const Sample* pixels, const std::uint16_t* own, int count, SumOf<Sample>* line,
                SumOf<Sample>* columns);
  /// Sums of columns in which one row comes and another goes; null: none does.
  void (*exchange)(const Sample* come, const Sample* go, int count, SumOf<Sample>* columns);
  /// Means of 2 * reach + 1 columns' sums, and their weights.
  /// weight  of all of them together, where it is the same everywhere; 0: each column has its own
  void (*slide)(const SumOf<Sample>* columns, int count, int reach, float weight, float* means);
  /// Takes colour from inside, spill out, and the background's light in.
  void (*finish)(const Finish& finish, const ColourRow<Sample>& row);
};

/// The functions of one level.
struct RowTable {
  /// The weighted sum of `terms` rows.
  void (*weigh)(const float* taps, const float* const* at, int terms, int width, float* to);

  /// The least and the greatest of rows `stride` samples apart, and of what they were.
  void (*measure)(const std::uint16_t* first, std::ptrdiff_t stride, int rows, int count,
                  std::uint16_t& least, std::uint16_t& most);
  /// Full less each sample.
  void (*turn)(std::uint16_t* row, int count);
  /// A matte's edge moves inwards by `part` 65536ths of a pixel. The rows have a pixel more at
  /// either end.
  void (*shrink)(const std::uint16_t* above, const std::uint16_t* here, const std::uint16_t* below,
                 std::uint32_t part, int count, std::uint16_t* to);
  /// Means along a row over 2 * whole + 1 samples, at most 255, and `part` 256ths of one more at
  /// each end.
  /// sums  room for three times the row
  void (*meanAlong)(const std::uint16_t* row, int whole, int part, int count, std::int32_t* sums,
                    std::uint16_t* to);
  /// Means along columns. One row comes into the sums first, and one goes afterwards; `low` and
  /// `high` are those of which a part counts.
  void (*meanAcross)(const std::uint16_t* come, const std::uint16_t* go, const std::uint16_t* low,
                     const std::uint16_t* high, int whole, int part, int count, std::int32_t* sums,
                     std::uint16_t* to);
  /// The least of what stands there and of what stands above or below, `more` added to it.
  void (*nearer)(const std::int16_t* above, const std::int16_t* below, std::int16_t more, int count,
                 std::int16_t* least);
  /// Which pixels of a row have to be looked at: those with a matte above 0 where `other` is not
  /// full, and all of them where there is no other.
  /// Returns how many from the first to the last, which is `first` pixels in.
  int (*wanted)(const std::uint16_t* matte, const std::uint16_t* other, int count, int& first);
  /// The same of those that are neither clear nor solid, by more than a 255th.
  int (*soft)(const std::uint16_t* matte, int count, int& first);
  /// Where a row goes above a limit, or no more: `at` takes the first pixels of either in turn.
  /// above  whether what is before the row lies above
  /// Returns how many there are; `at` has room for `count`.
  int (*changes)(const std::uint16_t* row, int count, std::uint16_t limit, bool above, int* at);

  /// Codes as words: 0..1 is 0..65535, rounded half up; what lies outside goes to the ends.
  void (*words)(const float* codes, int count, std::uint16_t* to);
  /// Stretches a row.
  /// room  for the cells, the columns, and 2 * mostRepeats + 2
  void (*stretch)(const StretchedRow& row, float* room, float* values);

  /// Lines of red and of blue less light over light, each through the nine pixels around one.
  /// rows   three rows: their light and, each `stride` samples on, red and blue less light; a pixel
  ///        more at either end
  /// lines  slope and start of red's, slope and start of blue's, each `stride` samples on
  void (*fitChroma)(const float* const* rows, std::ptrdiff_t stride, int count, float* lines);
  /// Colours of a row as three rows of such lines say, which have one more at either end.
  /// lead   how far they are followed, 0..1
  /// words  red, green and blue, 65535 where the row has 1.0, rounded and cut
  void (*leadChroma)(const float* const* lines, const float* row, std::ptrdiff_t stride, float lead,
                     int count, std::uint16_t* const* words);

  /// The subject's pixels of a row enter columns' sums, and those that stood in `held` leave.
  /// row   red, green, blue, matte, `stride` samples on each; colours are at most 4
  /// held  subjectPlanes planes, likewise; the row's stand there afterwards
  /// sums  likewise
  void (*gatherSubject)(const float* row, std::ptrdiff_t stride, int count, std::int32_t* held,
                        std::int32_t* sums);
  /// Mattes that are neither clear nor solid, by more than a 255th, go a part of the way to where
  /// their colour lies between the screen's and the subject's around: the further, the more these
  /// differ, the more alike the subject's are, and the nearer to their line the colour lies. What
  /// is of another hue than the screen is at least partly solid.
  void (*mixMatte)(const SubjectRow& row);

  /// Lines of a matte over red, green and blue, each through the square of pixels around one.
  /// rows   2 * guideReach + 1 rows: their red and, each `stride` samples on, green, blue and
  /// matte;
  ///        guideReach pixels more at either end
  /// flat   what is added to the variance of a colour: the flatter one is, the flatter the line
  /// lines  slopes of red, green and blue, and start, each `stride` samples on
  void (*fitMatte)(const float* const* rows, std::ptrdiff_t stride, float flat, int count,
                   float* lines);
  /// The matte of a row as so many rows of such lines say, which have guideReach more at either
  /// end. What is clear or solid in `uncut`, or nearer to it than a 255th, stays.
  /// share  how far they are followed, 0..1
  void (*followMatte)(const float* const* lines, const float* row, std::ptrdiff_t stride,
                      float share, const std::uint16_t* was, const std::uint16_t* uncut, int count,
                      std::uint16_t* is);

  ColourRows<std::uint8_t> bytes;    ///< of the finish
  ColourRows<std::uint16_t> shorts;  ///< likewise
  ColourRows<float> floats;          ///< likewise

  /// Those of a depth.
  template <class Sample>
  const ColourRows<Sample>& colours() const {
    if constexpr (std::is_same_v<Sample, std::uint8_t>) {
      return bytes;
    } else if constexpr (std::is_same_v<Sample, std::uint16_t>) {
      return shorts;
    } else {
      return floats;
    }
  }
};

/// Those for the target in force.
const RowTable& rowTable();

/// Those for the target of that name; null where this build has none. A processor may lack what
/// they need.
const RowTable* rowTableFor(const char* target);

}  // namespace orvanite
