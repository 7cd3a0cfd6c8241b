// SPDX-License-Identifier: BSD-3-Clause
//
// From what a person asks of a movie and what its shot says to how it is written. The one place
// that decides rate, sound and where in the shot it begins.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "media/MovieWriter.h"

namespace orvanite::media {

/// What may be asked of a movie; the rest is the shot's.
struct MovieWish {
  std::string codec;  // empty: the usual one for the file's ending
  MovieStrength strength;
  std::optional<Ratio> frameRate;  // none: the shot's, else 24
  std::string sound;  // of this file, begun with the shot's first frame; "none"; empty: the shot's
};

/// The options of a movie of these frames of a shot, in the order in which they are written, at
/// least one; the pictures' size, samples and alpha, and the threads, are left to the caller. What
/// was decided is added to `notices`, a line each, for a person to see. Throws Error (wrongUse) for
/// a sound that was asked for and cannot go along.
///
/// shot  whose facts and sound the movie takes over; null where it is made of no file
MovieOptions movieOf(const Source* shot, const MovieWish& wish, const std::vector<int>& frames,
                     std::vector<std::string>& notices);

}  // namespace orvanite::media
