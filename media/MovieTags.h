// SPDX-License-Identifier: BSD-3-Clause
//
// What goes from one movie to another beside pictures and sound: titles, chapters, and what
// displays of a high dynamic range want to know.
#pragma once

#include <string>

#include "media/MovieLibrary.h"
#include "media/Source.h"

namespace orvanite::media {

/// Fills in the tags of a movie: of its file, its stream, and its first frame. Times count from
/// `facts.start`, which is known.
void readTags(const AVFormatContext& format, const AVStream& video, const AVFrame& first,
              ShotFacts& facts);

/// Writes them, before the header is written.
///
/// start, length  seconds from the shot's first frame to that of the new movie, and that this has:
///                chapters are cut to it
/// Throws Error (failure) when memory runs out.
void writeTags(const ShotFacts& facts, double start, double length, AVFormatContext& format,
               AVStream& video);

/// What x265 takes for the light of the facts, such as "hdr10=1:max-cll=1000,400"; empty: nothing.
std::string x265Light(const ShotFacts& facts);

}  // namespace orvanite::media
