// SPDX-License-Identifier: BSD-3-Clause
//
// With a clean plate the pixels are keyed in 8 bits whatever the plate has: the tables of 16 bits
// take a hundred times as long to build and move the mean of the errors by less than settings do.
#include "keyer/KeyTrial.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "base/Error.h"

namespace orvanite {
namespace {

unsigned char codeOf(float v) {
  return static_cast<unsigned char>(std::clamp(v, 0.0f, 1.0f) * 255 + 0.5f);
}

template <class T>
OtileImage imageOf(std::vector<T>& samples) {
  T* p = samples.data();
  return {p, p + 1, p + 2, p + 3, 4, 0};
}

}  // namespace

KeyTrial::KeyTrial(std::vector<KnownPixel> pixels, bool cleanPlate)
    : engine_(orvanite_new()), pixels_(std::move(pixels)), cleanPlate_(cleanPlate) {
  if (!engine_) throw Error(Fault::failure, "auto", "out of memory");
  for (const KnownPixel& p : pixels_) {
    weight_ += static_cast<double>(p.weight);
    for (const float v : p.colour) {
      codes_.push_back(codeOf(v));
      values_.push_back(v);
    }
    for (const float v : p.screen) screenCodes_.push_back(codeOf(v));
    codes_.push_back(255);
    screenCodes_.push_back(255);
    values_.push_back(1);
  }
  keyedCodes_.resize(codes_.size());
  keyedValues_.resize(values_.size());
}

float KeyTrial::error(const Settings& settings) {
  if (pixels_.empty() || !settings.screenProblem().empty()) return unusable;
  Inputs inputs;
  inputs.reference = cleanPlate_;
  const Depth depth = cleanPlate_ ? Depth::bytes : Depth::floats;
  settings.applyTo(engine_.get(), depth, inputs);
  if (orvanite_makeLuts(engine_.get()) != 0) return unusable;
  Otile tile{};
  if (cleanPlate_) {
    tile.fg = imageOf(codes_);
    tile.ref = imageOf(screenCodes_);
    tile.dst = imageOf(keyedCodes_);
  } else {
    tile.fg = imageOf(values_);
    tile.dst = imageOf(keyedValues_);
  }
  if (orvanite_render(engine_.get(), bytesOf(depth), static_cast<int>(pixels_.size()), 1, &tile) !=
      0) {
    return unusable;
  }
  double sum = 0;
  for (std::size_t i = 0; i < pixels_.size(); ++i) {
    sum += static_cast<double>(pixels_[i].weight * std::abs(matteOf(i) - pixels_[i].matte));
  }
  return static_cast<float>(sum / weight_);
}

float KeyTrial::matteOf(std::size_t pixel) const {
  const std::size_t alpha = 4 * pixel + 3;
  return cleanPlate_ ? static_cast<float>(keyedCodes_[alpha]) / 255.0f : keyedValues_[alpha];
}

}  // namespace orvanite
