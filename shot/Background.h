// SPDX-License-Identifier: BSD-3-Clause
//
// A background of any size and encoding, brought to the plate's: the one place where a side picture
// is resampled or decoded.
#pragma once

#include <string>

#include "media/Picture.h"

namespace orvanite::shot {

/// How a background of another shape lies in the plate's frame.
enum class Fit {
  fill,     // fills the frame, its shape kept, centred: what reaches beyond is cut
  fit,      // lies in the frame whole, its shape kept, centred; black beside it
  stretch,  // is pulled to the frame's shape
  none      // keeps its pixels, centred
};

/// Throws Error (wrongUse) about `subject` for anything but the names above.
Fit fitOf(const std::string& text, const std::string& subject);

/// Where a picture of width x height lies in a frame. aspect  how wide its pixels are beside those
/// of the frame, 1 for the same.
media::Window placeOf(int width, int height, double aspect, const media::Window& frame, Fit fit);

/// Light of an encoding's values ("linear", "log" or "video"), and back. Log is the keyer's own;
/// video is taken as sRGB (IEC 61966-2-1), which pictures to put behind something are made for.
float toLight(float value, const std::string& encoding);
float fromLight(float light, const std::string& encoding);

/// The whole of a float picture over the frame, resampled in light and stored again.
///
/// place      where it lies, by placeOf
/// from, to   encodings of the picture and of the result; nothing is decoded where both are the
///            same and no pixel is resampled
media::Picture fitted(media::Picture picture, const media::Window& place,
                      const media::Window& frame, const std::string& from, const std::string& to);

}  // namespace orvanite::shot
