// SPDX-License-Identifier: BSD-3-Clause
//
// Movies as shots: whatever FFmpeg decodes. Frames are numbered from 1. Of 8-bit video the pictures
// are 8-bit, of deeper video 16-bit.
#pragma once

#include <memory>
#include <string>

#include "media/Source.h"

namespace orvanite::media {

/// Throws Error (wrongUse) about `subject` for a name of no matrix: 601, 709, 2020, 240M or fcc.
void checkMatrix(const std::string& name, const std::string& subject);

/// Whether a name ends as those of movies do.
bool isMovieName(const std::string& path);

/// Throws Error: noSuchFile, failure for what cannot be read or is interlaced and not to be
/// deinterlaced, wrongUse for a way of opening that does not go with it.
std::unique_ptr<Source> openMovie(const std::string& path, const OpenOptions& how = {});

}  // namespace orvanite::media
