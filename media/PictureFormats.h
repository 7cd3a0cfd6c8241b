// SPDX-License-Identifier: BSD-3-Clause
//
// The formats of pictures that are read and written. A file is what its first bytes say, whatever
// its name; everything that is not on the list is refused by name before any library opens it.
#pragma once

#include <string>
#include <string_view>

namespace orvanite::media {

/// OpenImageIO's name of the format that a file is in, one of the list: "png", "jpeg", "openexr",
/// "tiff", "dpx", "cineon", "targa", "webp", "jpeg2000", "hdr", "bmp", "pnm", "sgi", "heif".
/// Throws Error (failure) that names what was found instead, and the list.
std::string pictureFormatOf(const std::string& path);

/// Whether a format, by OpenImageIO's name, is on the list.
bool isPictureFormat(std::string_view format);

/// "PNG, JPEG, ...", for a person to read.
std::string pictureFormatNames();

}  // namespace orvanite::media
