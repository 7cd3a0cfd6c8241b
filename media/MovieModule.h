// SPDX-License-Identifier: BSD-3-Clause
//
// What media/ asks of its half that knows FFmpeg. That half is a library of its own,
// orvanite-movies, which is loaded when the first movie is met: FFmpeg brings 107 other libraries,
// which stills do without.
#pragma once

#include <memory>
#include <string>

#include "media/MovieWriter.h"
#include "media/Source.h"

namespace orvanite::media {

/// Each as the function of MovieSource.h or MovieWriter.h that calls it says.
struct MovieModule {
  std::unique_ptr<Source> (*open)(const std::string& path, const OpenOptions& how);
  void (*checkMatrix)(const std::string& name, const std::string& subject);
  std::unique_ptr<MovieWriter::Output> (*write)(const std::string& path,
                                                const MovieOptions& options);
  void (*checkCodec)(const std::string& path, const std::string& codec);
  bool (*holdsAlpha)(const std::string& path, const std::string& codec);
  double (*soundStart)(const std::string& path);
  Ratio (*parseFrameRate)(const std::string& text, const std::string& subject);
};

/// Loads it at the first call. Throws Error (failure) where it cannot be loaded.
const MovieModule& movieModule();

}  // namespace orvanite::media

/// The library's one symbol.
extern "C" [[gnu::visibility("default")]] const orvanite::media::MovieModule orvaniteMovies;
