// SPDX-License-Identifier: BSD-3-Clause
//
// A fuzzer's input as a stream of values; past its end everything is zero.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>

namespace orvanite::fuzz {

class Bytes {
 public:
  Bytes(const std::uint8_t* data, std::size_t size) : next_(data), end_(data + size) {}

  bool empty() const { return next_ == end_; }
  std::uint8_t byte() { return empty() ? std::uint8_t{0} : *next_++; }

  /// 0..count-1
  int below(int count) { return byte() % count; }

  /// Half the floats are taken bit by bit, the others from values at which code branches.
  float real() {
    constexpr float infinity = std::numeric_limits<float>::infinity();
    static constexpr float corners[] = {
        0.0f,     -0.0f,     0.5f,
        1.0f,     2.0f,      -1.0f,
        0.001f,   1e-30f,    1e30f,
        65504.0f, 1e-45f,    0.081f,
        0.018f,   0.9f,      0.25f,
        3.4e38f,  -3.4e38f,  0.1f,
        infinity, -infinity, std::numeric_limits<float>::quiet_NaN()};
    const std::uint8_t how = byte();
    if (how < 128) return corners[how % std::size(corners)];
    if (how < 224) return static_cast<float>(byte()) / 255.0f;
    std::uint32_t bits = 0;
    for (int i = 0; i < 4; ++i) bits = bits << 8 | byte();
    float v;
    std::memcpy(&v, &bits, sizeof v);
    return v;
  }

 private:
  const std::uint8_t* next_;
  const std::uint8_t* end_;
};

}  // namespace orvanite::fuzz
