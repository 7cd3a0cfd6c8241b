// SPDX-License-Identifier: BSD-3-Clause
//
// Numbers for the sweeps: seeded, and the same on every machine and with every library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>

/// splitmix64; the standard library's distributions differ between libraries, so none is used.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state(seed) {}

  std::uint64_t next() {
    std::uint64_t z = (state += 0x9e3779b97f4a7c15u);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return z ^ (z >> 31);
  }

  /// An integer in low..high, both included.
  int between(int low, int high) {
    const auto span = static_cast<std::uint64_t>(static_cast<std::int64_t>(high) - low + 1);
    return static_cast<int>(low + static_cast<std::int64_t>(next() % span));
  }

  /// A multiple of 2^-24 in [0, 1): exact as a float.
  float unit() { return static_cast<float>(next() >> 40) * 0x1p-24f; }

  float real(float low, float high) { return low + (high - low) * unit(); }

  bool oneIn(int n) { return between(1, n) == 1; }

  template <class Value>
  Value pick(std::initializer_list<Value> values) {
    return *std::next(values.begin(), between(0, static_cast<int>(values.size()) - 1));
  }

 private:
  std::uint64_t state;
};
