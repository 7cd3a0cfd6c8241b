// SPDX-License-Identifier: BSD-3-Clause
//
// Vectors of a plate that are screen and nothing else, told from their codes: half of a plate needs
// no look-up then, and none of the key's steps.
#pragma once

#include "engine/kernels/simd/IntegerSamples.h"
#include "engine/tables/SureScreen.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

namespace {

using ByteTag = hn::ScalableTag<std::uint8_t>;
using Bytes = hn::Vec<ByteTag>;

inline constexpr ByteTag byteTag;

/// The upper eight bits of a byte vector's number of samples.
HWY_INLINE Bytes upperBytes(const std::uint8_t* from) { return hn::LoadU(byteTag, from); }
HWY_INLINE Bytes upperBytes(const std::uint16_t* from) {
  const auto bytes = [](const std::uint16_t* at) {
    return hn::BitCast(byteTag, hn::LoadU(u16Tag, at));
  };
  return hn::ConcatOdd(byteTag, bytes(from + shortLanes()), bytes(from));
}

/// SureScreen for pixels whose samples lie in one of the two orders.
class ScreenLimits {
 public:
  HWY_INLINE ScreenLimits(const SureScreen& screen, bool alphaFirst)
      : limits_{hn::LoadDup128(byteTag, screen.below[0]), hn::LoadDup128(byteTag, screen.below[1])},
        before_(hn::Set(byteTag, screen.before)) {
    const auto place = [alphaFirst](int c) { return 8 * (alphaFirst ? 3 - c : c); };
    shift_ = place(screen.channel);
    places_[0] = place(screen.others[0]);
    places_[1] = place(screen.others[1]);
    compared_ = hn::Set(wordTag, 0xFFu << places_[0] | 0xFFu << places_[1]);
  }

  /// Whether all pixels of one vector of shorts are screen.
  template <class T>
  HWY_INLINE bool hold(const T* pixels) const {
    const std::size_t step = hn::Lanes(byteTag);
    const Bytes least = hn::Min(room(upperBytes(pixels)), room(upperBytes(pixels + step)));
    return hn::AllFalse(byteTag, hn::Eq(least, hn::Zero(byteTag)));
  }

 private:
  /// What is left below the limits, of every sample that has one; the others have room.
  HWY_INLINE Bytes room(Bytes samples) const {
    const Words pixels = hn::BitCast(wordTag, samples);
    const Words own = hn::And(hn::ShiftRightSame(pixels, shift_), hn::Set(wordTag, 0xFF));
    constexpr int most = SureScreen::slots * SureScreen::slotCodes - 1;
    const Bytes above = hn::Min(hn::SaturatedSub(hn::BitCast(byteTag, own), before_),
                                hn::Set(byteTag, static_cast<std::uint8_t>(most)));
    const Bytes slot = hn::BitCast(byteTag, hn::ShiftRight<3>(hn::BitCast(wordTag, above)));
    const auto limit = [&](int k) {  // slot 0's, which the three bytes above it have, is 0
      const Words looked = hn::BitCast(wordTag, hn::TableLookupBytes(limits_[k], slot));
      return hn::ShiftLeftSame(looked, places_[k]);
    };
    const Words limits = hn::Or(hn::Or(limit(0), limit(1)), hn::Not(compared_));
    return hn::SaturatedSub(hn::BitCast(byteTag, limits),
                            hn::BitCast(byteTag, hn::And(pixels, compared_)));
  }

  static_assert(SureScreen::slotCodes == 8);
  Bytes limits_[2], before_;
  Words compared_;
  int shift_, places_[2];
};

}  // namespace

}  // namespace orvanite::ORVANITE_SIMD_TARGET
