// SPDX-License-Identifier: BSD-3-Clause
//
// Drawn masks as options write them, and over the pictures of a shot.
#pragma once

#include <string>

#include "keyer/MaskShape.h"
#include "media/Picture.h"

namespace orvanite::shot {

/// "X,Y,WIDTH,HEIGHT" with a size above 0. Throws Error (wrongUse) about `subject`.
MaskShape rectangleOf(const std::string& text, const std::string& subject);

/// "X,Y,X,Y,X,Y,..." with three corners at least. Throws Error (wrongUse) about `subject`.
MaskShape polygonOf(const std::string& text, const std::string& subject);

/// Joins a shape into a matte's alpha: the greater of both.
/// frame  the plate's frame, in the picture's coordinates
void join(const MaskShape& shape, const media::Window& frame, media::Picture& matte);

}  // namespace orvanite::shot
