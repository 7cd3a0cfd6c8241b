// SPDX-License-Identifier: BSD-3-Clause
//
// Pixels whose matte is known, keyed again and again by an engine of their own: how well settings
// do is measured, not reckoned.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "engine/orvanite.h"
#include "keyer/Screen.h"
#include "keyer/Settings.h"

namespace orvanite {

/// A pixel whose matte is known.
struct KnownPixel {
  Rgb colour{};  // as the plate shows it
  Rgb screen{};  // the screen's own colour there; what a clean plate would show
  /// 0 screen, 1 subject
  float matte = 0;
  float weight = 1;  // its part in the mean, above 0
};

/// Keys known pixels with settings that are tried. One thread at a time.
class KeyTrial {
 public:
  /// cleanPlate  whether each pixel is keyed beside its own screen colour, as 8-bit and 16-bit
  ///             plates are with a clean plate; otherwise they are keyed as float pictures
  /// Throws Error (failure) when memory runs out.
  KeyTrial(std::vector<KnownPixel> pixels, bool cleanPlate);

  /// The weighted mean of the mattes' absolute errors; `unusable` for settings that cannot key.
  float error(const Settings& settings);

  /// What the last settings made of a pixel.
  float matteOf(std::size_t pixel) const;

  /// The error of settings that cannot key, worse than any other.
  static constexpr float unusable = 1e6f;

 private:
  struct Delete {
    void operator()(QMXOrvaniteTable* engine) const { orvanite_delete(engine); }
  };
  std::unique_ptr<QMXOrvaniteTable, Delete> engine_;
  std::vector<KnownPixel> pixels_;
  bool cleanPlate_;
  double weight_ = 0;
  std::vector<unsigned char> codes_, screenCodes_, keyedCodes_;
  std::vector<float> values_, keyedValues_;
};

}  // namespace orvanite
