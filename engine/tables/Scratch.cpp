// SPDX-License-Identifier: BSD-3-Clause
#include "engine/tables/Scratch.h"

#include <new>

#include "engine/colour/Encoding.h"
#include "engine/targets/Target.h"

namespace orvanite {

namespace {

const EncodingFunctions* functions() {
  const Target* const target = activeTarget();
  return target != nullptr ? target->encodings : nullptr;
}

}  // namespace

bool Scratch::reserve() {
  if (memory_ == nullptr && !refused_) {
    memory_.reset(new (std::nothrow) float[std::size_t{2} * longest]);
    refused_ = memory_ == nullptr;
  }
  return !refused_;
}

const float* Scratch::linear(int max) {
  if (max >= longest || !reserve()) return nullptr;
  float* const to = memory_.get();
  if (max_ == max) return to;
  const int n = max + 1;
  const float one = static_cast<float>(max);
  for (int i = 0; i < n; ++i) to[i] = static_cast<float>(i) / one;
  if (const EncodingFunctions* const f = functions()) {
    f->toLinear(to, to, static_cast<std::size_t>(n), e_.colourspace);
  } else {
    for (int i = 0; i < n; ++i) to[i] = toLinear(to[i], e_.colourspace);
  }
  max_ = max;
  return to;
}

float* Scratch::values() { return reserve() ? memory_.get() + longest : nullptr; }

void Scratch::encode(float* values, int n) const {
  if (const EncodingFunctions* const f = functions()) {
    f->fromLinear(values, values, static_cast<std::size_t>(n), e_.colourspace);
  } else {
    for (int i = 0; i < n; ++i) values[i] = fromLinear(values[i], e_.colourspace);
  }
}

void Scratch::regrade(float* values, int n, int channel, int set) const {
  const float exposure = e_.exposure[set][channel], gamma = e_.gamma[set][channel];
  const float offset = e_.offset[set][channel];
  if (exposure == 1 && gamma == 1 && offset == 0) return;
  if (const EncodingFunctions* const f = functions()) {
    f->regrade(values, values, static_cast<std::size_t>(n), exposure, gamma, offset);
  } else {
    for (int i = 0; i < n; ++i) values[i] = orvanite::regrade(values[i], exposure, gamma, offset);
  }
}

}  // namespace orvanite
