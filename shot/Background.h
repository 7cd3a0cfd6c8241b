// SPDX-License-Identifier: BSD-3-Clause
//
// A background of any size and encoding, brought to the plate's: the one place where a side picture
// is resampled or decoded, by keyer/Fitter.
#pragma once

#include <string>

#include "keyer/Fitter.h"
#include "media/Picture.h"

namespace orvanite::shot {

/// Throws Error (wrongUse) about `subject` for anything but "fill", "fit", "stretch" and "none".
Fit fitOf(const std::string& text, const std::string& subject);

/// The whole of a float picture over the frame, at a depth: resampled in light and stored again.
///
/// aspect    how wide its pixels are beside those of the frame, 1 for the same
/// from, to  encodings of the picture and of the result; nothing is decoded where both are the
///           same and no pixel is resampled
media::Picture fitted(const media::Picture& picture, double aspect, Fit fit,
                      const media::Window& frame, const std::string& from, const std::string& to,
                      Depth depth);

}  // namespace orvanite::shot
