// SPDX-License-Identifier: BSD-3-Clause
//
// Options of how pictures and movies are read, and how movies are written.
#pragma once

#include <string>
#include <vector>

#include "media/MovieWish.h"
#include "media/Source.h"

namespace CLI {
class App;
}

namespace orvanite::cli {

/// How a plate is read where its file leaves it open.
class ReadOptions {
 public:
  /// Adds --deinterlace, --matrix, --part and --layer. The object must outlive the parse.
  void addTo(CLI::App& command, const char* group);

  /// Throws Error (wrongUse) for a matrix that is not known.
  media::OpenOptions how() const;

  /// Those that were given, as words of a command line.
  std::vector<std::string> words() const;

 private:
  std::string matrix_, part_, layer_;
  bool deinterlace_ = false;
};

/// How movies are written.
struct MovieOptions {
  std::string codec, frameRate, quality, bitRate, sound;

  /// Adds --codec, --fps, --quality, --bitrate and --sound. The object must outlive the parse.
  void addTo(CLI::App& command, const char* group);

  /// Throws Error (wrongUse) for values that cannot be.
  media::MovieWish wish() const;

  /// The first that was given and says something of a movie that is written; empty: none.
  std::string given() const;
};

}  // namespace orvanite::cli
