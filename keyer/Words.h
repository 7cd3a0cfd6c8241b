// SPDX-License-Identifier: BSD-3-Clause
//
// Rows of samples as the 16-bit words that are keyed beside estimates, and back. Words lie where
// the samples are if those are such words already; else in a buffer, interleaved.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "base/Depth.h"
#include "engine/orvanite.h"

namespace orvanite {

/// A value as a word: 0..1 is 0..65535, rounded half up; what lies outside goes to the ends.
inline std::uint16_t wordOf(float value) {
  return static_cast<std::uint16_t>(std::clamp(value, 0.0f, 1.0f) * 65535 + 0.5f);
}

/// A picture without its first rows. Steps may be negative.
OtileImage rowsFrom(const OtileImage& image, Depth depth, int row);

/// The way between samples of one depth and words. Images begin at the first of the rows that are
/// asked for; channels may be missing. Any number of threads.
class Words {
 public:
  /// Room for words, which may be used again.
  using Buffer = std::vector<std::uint16_t>;

  /// decodes  the samples are codes, the words light
  /// lit      both are light
  /// white    the value of float colours that is the greatest word
  void prepare(Depth depth, bool decodes, bool lit, float white);

  /// Where the words of a picture lie: its own, or `buffer`, which becomes large enough.
  OtileImage place(const OtileImage& image, int width, int rows, Buffer& buffer) const;

  /// The same in `buffer`, whatever lies where.
  static OtileImage placeApart(int width, int rows, Buffer& buffer);

  /// Makes words of samples, unless they are their own. A missing channel is white.
  void take(const OtileImage& image, const OtileImage& words, int width, int rows) const;

  /// And back. May change words that are not the picture's own.
  /// colours  whether they are colours; else all channels are mattes
  void give(const OtileImage& words, const OtileImage& image, int width, int rows,
            bool colours) const;

  /// A row of a matte.
  void takeMatte(const void* samples, int step, int width, std::uint16_t* to) const;

  /// A row of one channel of a picture whose values are codes as words already.
  void takeCodes(const std::uint16_t* codes, int width, std::uint16_t* to, int step) const;

  /// A row of one channel of a picture whose values are codes, whatever the samples are.
  void takeCodes(const float* codes, int width, std::uint16_t* to) const;

 private:
  /// A line between two words of light; see takeCodes.
  struct Step {
    double word, more;
  };

  template <class Sample>
  void takeAs(const OtileImage& image, const OtileImage& words, int width, int rows) const;
  template <class Sample>
  void giveAs(const OtileImage& words, const OtileImage& image, int width, int rows,
              bool colours) const;

  Depth depth_ = Depth::shorts;
  bool decodes_ = false, lit_ = false;
  float white_ = 1;
  std::vector<std::uint16_t> decode_, decodeBytes_;  // words of codes as words of light
  std::vector<std::uint16_t> encode_;                // and back
  std::vector<std::uint8_t> encodeBytes_;
  std::vector<Step> steps_;
  float stepsFor_ = 0;  // the white that they were made for
};

}  // namespace orvanite
