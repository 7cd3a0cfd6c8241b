// SPDX-License-Identifier: BSD-3-Clause
//
// Writes pictures to files of the format that their name's ending says, whole or not at all.
//
// What lands in the file: the picture's samples as they are. Alpha is written where the format can
// hold it and is marked unassociated where the format can say so (TIFF; PNG always is): colours are
// never multiplied or divided by it here. OpenEXR cannot say so and is read as associated by
// convention: a picture meant for such readers is multiplied by its alpha before it is written.
#pragma once

#include <span>
#include <string>

#include "media/Picture.h"

namespace orvanite::media {

/// Throws Error: wrongUse when no format has this ending or when the file is one of the inputs,
/// by whatever path; failure when its folder is missing.
void checkOutput(const std::string& path, std::span<const std::string> inputs);

/// The same for a file of any format.
void checkPlace(const std::string& path, std::span<const std::string> inputs);

/// Whether two names are of one file: by what exists, links followed, or by the folder that a file
/// would be made in.
bool isSameFile(const std::string& a, const std::string& b);

/// Whether files of this name's format hold alpha; false where there is no such format.
bool pictureHoldsAlpha(const std::string& path);

/// How a picture's samples are held by files of this name's format: the nearest that it has.
Samples writtenSamples(const std::string& path, Samples samples);

/// Whether files of this name's format are read as premultiplied by convention.
bool pictureIsPremultiplied(const std::string& path);

/// Whether files of this name's format keep pixels that are less or more than the frame.
bool keepsDataWindow(const std::string& path);

/// Writes the picture with its header's windows and metadata, in the picture's samples or the
/// nearest that the format holds. Where the format knows no windows, a picture that holds the whole
/// frame is cut to it. Throws Error (failure); no file is left behind then.
void writePicture(const Picture& picture, const std::string& path);

}  // namespace orvanite::media
