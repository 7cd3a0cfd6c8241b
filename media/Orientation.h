// SPDX-License-Identifier: BSD-3-Clause
//
// Pictures that lie on their side: how a file says that its rows are to be turned, by the numbers
// of TIFF and Exif, and pixels turned so.
#pragma once

#include "media/Picture.h"

namespace orvanite::media {

/// 1 to 8 as Exif has them: 1 upright, 2 mirrored across, 3 by 180 degrees, 4 mirrored down, 5 and
/// 7 mirrored along a diagonal, 6 to be turned clockwise by 90 degrees, 8 the other way.
using Orientation = int;

/// Whether width and height change places.
constexpr bool liesOnItsSide(Orientation orientation) { return orientation >= 5; }

/// The same in words, such as "turned by 90 degrees".
const char* nameOfOrientation(Orientation orientation);

/// The picture as it is to be seen, its window at 0,0. Throws Error (failure) when memory runs out.
Picture upright(Picture picture, Orientation orientation);

}  // namespace orvanite::media
