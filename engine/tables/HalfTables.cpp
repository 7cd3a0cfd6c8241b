// SPDX-License-Identifier: BSD-3-Clause
#include "engine/tables/HalfTables.h"

#include <algorithm>

#include "engine/colour/Encoding.h"
#include "engine/targets/Target.h"

namespace orvanite {

namespace {

// A half is its pattern and nothing else.
std::uint16_t* patterns(Imath::half* table) { return reinterpret_cast<std::uint16_t*>(table); }
const std::uint16_t* patterns(const Imath::half* table) {
  return reinterpret_cast<const std::uint16_t*>(table);
}

const EncodingFunctions* functions() {
  const Target* const target = activeTarget();
  return target != nullptr ? target->encodings : nullptr;
}

void encodeAll(float* values, int n, int colourspace) {
  if (const EncodingFunctions* const f = functions()) {
    f->fromLinear(values, values, static_cast<std::size_t>(n), colourspace);
  } else {
    std::transform(values, values + n, values, [&](float v) { return fromLinear(v, colourspace); });
  }
}

}  // namespace

void HalfTables::decode(int colourspace) {
  if (decodedFor == colourspace) return;
  for (int i = 0; i < entries; ++i) {
    const auto bits = static_cast<std::uint16_t>(i);
    linear[i] = static_cast<float>(Imath::half(Imath::half::FromBits, bits));
  }
  if (const EncodingFunctions* const f = functions()) {
    f->toLinear(linear, linear, entries, colourspace);
  } else {
    std::transform(linear, linear + entries, linear,
                   [&](float v) { return toLinear(v, colourspace); });
  }
  decodedFor = colourspace;
}

void HalfTables::travel(const QMXOrvaniteTable& e) {
  if (travelled_ == e.colourspace && std::equal(scale_, scale_ + 3, e.neutralScale)) return;
  std::copy(e.neutralScale, e.neutralScale + 3, scale_);
  travelled_ = e.colourspace;
  const bool coded =
      functions() != nullptr && (e.colourspace == logSpace || e.colourspace == videoSpace);
  for (int c = 0; c < 3; ++c) {
    roundTrip[c] = coded ? storage_[c] : nullptr;
    if (!coded) continue;
    for (int earlier = 0; earlier < c; ++earlier) {
      if (scale_[earlier] == scale_[c]) roundTrip[c] = roundTrip[earlier];
    }
    if (roundTrip[c] != storage_[c]) continue;
    const float scale = scale_[c];
    std::transform(linear, linear + entries, storage_[c],
                   [scale](float v) { return scale * v / scale; });
    encodeAll(storage_[c], entries, e.colourspace);
  }
}

bool HalfTables::fillKey(Imath::half* table, unsigned first, unsigned end, const float* p, float x0,
                         float w, float scale) const {
  const EncodingFunctions* const f = functions();
  if (f == nullptr) return false;
  // The terms of splineValue, rounded as there.
  const float spline[4] = {(p[0] + 4 * p[1] + p[2]) / 6, (p[2] - p[0]) / 2,
                           (p[0] - 2 * p[1] + p[2]) / 2, (3 * (p[1] - p[2]) - p[0] + p[3]) / 6};
  f->fillKey(linear, patterns(table), first, end, spline, x0, w, scale);
  return true;
}

void HalfTables::examineKey(const Imath::half* table, int channel, float scale, float factor) {
  constexpr int finite = 0x7C00;
  keyFactor[channel] = factor;
  const EncodingFunctions* const f = functions();
  keyIsProduct[channel] =
      f != nullptr && f->isKeyProduct(linear, patterns(table), finite, scale, factor);
}

}  // namespace orvanite
