// SPDX-License-Identifier: BSD-3-Clause
//
// Pictures of any layout and depth, keyed: used where they lie when the engine reads them so, and
// copied in bands of rows otherwise.
// Knows the keyer and samples; pixels in memory only.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "keyer/BlindKeyer.h"
#include "keyer/Keyer.h"
#include "keyer/Mattes.h"
#include "keyer/Samples.h"
#include "keyer/Screen.h"

namespace orvanite {

/// Where a picture lies. The pixels are the caller's.
struct Picture {
  int width = 0;                         // pixels, at least 1
  int height = 0;                        // rows, at least 1
  Sample sample = Sample::byte;          // of all channels
  std::array<std::byte*, 4> channels{};  // red, green, blue, alpha of the first pixel; null: absent
  std::ptrdiff_t pixelStride = 0;        // bytes, of any sign
  std::ptrdiff_t rowStride = 0;          // bytes, of any sign

  /// Whether it has any channel.
  bool present() const { return channels[0] || channels[1] || channels[2] || channels[3]; }
  /// Whether it has red, green and blue.
  bool coloured() const { return channels[0] && channels[1] && channels[2]; }
};

/// The pictures of a frame, by role. Only `result` is written.
struct PictureFrame {
  Picture plate;       // needed
  Picture background;  // absent, like all others but the result: not there
  Picture holdOut;     // a matte that keeps
  Picture garbage;     // a matte that cuts
  Picture cleanPlate;  // the screen without the subject
  Picture result;      // needed
};

/// Keys frames whose pictures lie anyhow.
class PictureKeyer {
 public:
  /// threads    how many may work on the frame; 0 for as many as the process has
  /// estimates  what settings that key beside estimates are beside: a key that was found in a frame
  ///            of the shot, and is carried to this one; null: found in this frame alone
  /// Throws Error (wrongUse) about the picture that is missing or does not fit, or for settings
  /// that cannot key; failure when memory runs out. Mattes of more than one channel are read from
  /// the channel that was given, else by MatteChannel::automatic.
  void render(const Settings& settings, const PictureFrame& frame, int threads,
              const BlindKey* estimates = nullptr);

 private:
  Keyer keyer_;
  BlindKeyer beside_;
};

/// A plate as the screen's search reads it: where it lies, or in a copy.
class SearchedPlate {
 public:
  /// Throws Error (wrongUse) for a picture without colours; failure when memory runs out.
  explicit SearchedPlate(const Picture& picture);
  /// As long as this and the picture live.
  const Plate& plate() const { return plate_; }

 private:
  std::vector<std::byte> copy_;
  Plate plate_;
};

/// Throws Error (wrongUse) about `role` when a picture cannot be one: no size, or strides that make
/// pixels or rows overlap.
void checkPicture(const Picture& picture, const std::string& role);

}  // namespace orvanite
