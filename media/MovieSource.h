// SPDX-License-Identifier: BSD-3-Clause
//
// Movies as shots: whatever FFmpeg decodes. Frames are numbered from 1. Of 8-bit video the pictures
// are 8-bit, of deeper video 16-bit.
#pragma once

#include <memory>
#include <string>

#include "media/Source.h"

namespace orvanite::media {

/// Whether a name ends as those of movies do.
bool isMovieName(const std::string& path);

/// Throws Error: noSuchFile, or failure for what cannot be read or is interlaced.
std::unique_ptr<Source> openMovie(const std::string& path);

}  // namespace orvanite::media
