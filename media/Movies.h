// SPDX-License-Identifier: BSD-3-Clause
//
// What is behind MovieModule.h.
#pragma once

#include <memory>
#include <string>

#include "media/MovieWriter.h"
#include "media/Source.h"

namespace orvanite::media {

/// As openMovie.
std::unique_ptr<Source> readMovie(const std::string& path, const OpenOptions& how);
/// As MovieWriter's constructor.
std::unique_ptr<MovieWriter::Output> writeMovie(const std::string& path,
                                                const MovieOptions& options);

}  // namespace orvanite::media
