// SPDX-License-Identifier: BSD-3-Clause
//
// Test doubles around the node: one that shows its engine and buffers, and an image source whose
// pixels, domain and layout a test chooses.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include "host/NRxOrvanite.h"

class Probe : public NRxOrvanite {
 public:
  QMXOrvaniteTable* engine() { return engine_; }
  NRiIBuf& buffer(int i) { return *buffers_[i]; }
  NRiPlug* plug(const char* name) const { return getPlug(NRiName(name)); }
  using NRxOrvanite::fillOutputBuffer;
};

// A repeatable value of 0..65535 for a place, a channel and a seed.
inline std::uint32_t noise(int x, int y, int c, int seed) {
  std::uint32_t h = static_cast<std::uint32_t>(x) * 2654435761u ^
                    static_cast<std::uint32_t>(y) * 2246822519u ^
                    static_cast<std::uint32_t>(c * 7 + seed) * 3266489917u;
  h ^= h >> 15;
  h *= 2246822519u;
  h ^= h >> 13;
  return h & 65535u;
}

// Writes channel value c (0 alpha .. 3 red) of a picture's pixel as an element of a depth.
inline void putElement(void* to, int depth, int x, int y, int c, int seed) {
  const std::uint32_t value = noise(x, y, c, seed);
  if (depth == 1) {
    *static_cast<std::uint8_t*>(to) = static_cast<std::uint8_t>(value >> 8);
  } else if (depth == 2) {
    const auto element = static_cast<std::uint16_t>(value);
    std::memcpy(to, &element, 2);
  } else {
    const float element = static_cast<float>(value) / 60000.0f - 0.01f;  // below 0 and above 1 too
    std::memcpy(to, &element, 4);
  }
}

// Paints a buffer's channels with the noise of a seed.
inline void paintNoise(NRiIBuf& buffer, int seed) {
  for (int y = buffer.firstLine; y < buffer.firstLine + buffer.lines; ++y) {
    for (int x = buffer.firstPixel; x < buffer.firstPixel + buffer.width; ++x) {
      std::byte* to = buffer.at(x, y);
      for (int c = 0; c < 4; ++c) {
        if (!(buffer.channels & (1 << c))) continue;
        putElement(to, buffer.depth, x, y, c, seed);
        to += buffer.depth;
      }
    }
  }
}

class Source : public NRiFx {
 public:
  Source(int width, int height, int depth, int channels, int seed)
      : Source(width, height, depth, channels, seed, {0, 0, width, height}) {}
  Source(int width, int height, int depth, int channels, int seed, const NRiRect& domain)
      : channels_(channels), seed_(seed) {
    out_->width()->set(width);
    out_->height()->set(height);
    out_->bytes()->set(depth);
    out_->channels()->set(channels);
    domain_ = domain;
    out_->dod()->set(static_cast<void*>(&domain_));
    out_->image()->set(NRiName::sprintf("source%d", seed));
  }
  const NRiName& getClassName() const override {
    static const NRiName name("Source");
    return name;
  }
  NRiNode* create() const override { return nullptr; }
  void setBackground(const NRiBPixel& pixel) {
    background_ = pixel;
    out_->bPixel()->set(static_cast<void*>(&background_));
  }

 protected:
  void fillOutputBuffer() override {
    outputBuffer().allocate(out_->getRoi().intersect(domain_), channels_, out_->bytes()->asInt());
    paintNoise(outputBuffer(), seed_);
  }

 private:
  int channels_;
  int seed_;
};
