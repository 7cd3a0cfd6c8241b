// SPDX-License-Identifier: BSD-3-Clause
//
// Room for the integer tables' builds: the linear light of every code, evaluated once for all
// channels and tables of an image, and the values of one table on their way through an encoding.
//
// It only saves time. Where there is no memory for it, or a maximum is larger than pictures have,
// the builders evaluate entry by entry and get the same bits.
#pragma once

#include <memory>

#include "engine/QMXOrvaniteTable.h"

namespace orvanite {

class Scratch {
 public:
  static constexpr int longest = 65536;  // entries of either array

  explicit Scratch(const QMXOrvaniteTable& engine) : e_(engine) {}

  /// toLinear(code / max) for every code, or null. Stays valid until another maximum is asked for.
  const float* linear(int max);

  /// An array of `longest` values, or null.
  float* values();

  /// The engine's encoding and a channel's grading over n values, in place.
  void encode(float* values, int n) const;
  void regrade(float* values, int n, int channel, int set) const;

 private:
  bool reserve();

  const QMXOrvaniteTable& e_;
  std::unique_ptr<float[]> memory_;
  bool refused_ = false;
  int max_ = 0;  // of the codes whose linear light the memory holds
};

}  // namespace orvanite
