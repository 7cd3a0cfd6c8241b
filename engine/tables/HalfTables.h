// SPDX-License-Identifier: BSD-3-Clause
//
// What a float build keeps by half pattern beside the key: plates that came from half files hold
// nothing but half values, for which the encodings need no power and no logarithm.
//
// Every entry has the bits of the definition. Tables are built again only when what they depend on
// has changed, so moving a slider of the key touches none of them.
#pragma once

#include <optional>

#include "engine/QMXOrvaniteTable.h"

namespace orvanite {

struct HalfTables {
  static constexpr int entries = QMXOrvaniteTable::halfEntries;  // the non-negative patterns

  /// Linear light of each half value, in the encoding of this code.
  float linear[entries];
  std::optional<int> decodedFor;

  /// By channel: what is written for a half sample that goes into the working space and out again
  /// with nothing done to it. Null in linear encoding, where it is cheaper to compute, and for the
  /// definition. Channels of equal neutral scale share one table.
  const float* roundTrip[3] = {};

  /// The key's share of a channel is half(half(scale * linear * factor)): true for every entry
  /// of a finite sample when the channel's curve is constant.
  bool keyIsProduct[3] = {};
  float keyFactor[3] = {};

  /// Brings linear up to date; afterwards the key tables can be filled from it.
  void decode(int colourspace);

  /// Brings roundTrip up to date with the encoding and the neutral scale.
  void travel(const QMXOrvaniteTable& engine);

  /// Fills a key table's entries from `first` up to `end`: scale * linear * the spline over
  /// p[0..3], whose parameter grows from 0 at x0 by w a unit. False, and nothing filled, when the
  /// process runs the definition.
  bool fillKey(Imath::half* table, unsigned first, unsigned end, const float* p, float x0, float w,
               float scale) const;

  /// Looks whether a channel's key table, just filled, is a product. Every entry is compared.
  void examineKey(const Imath::half* table, int channel, float scale, float factor);

 private:
  std::optional<int> travelled_;  // the encoding of roundTrip
  float scale_[3] = {};           // the neutral scale of roundTrip
  float storage_[3][entries];
};

}  // namespace orvanite
