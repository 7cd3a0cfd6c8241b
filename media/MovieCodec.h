// SPDX-License-Identifier: BSD-3-Clause
//
// The codecs that movies are written in: what each can hold, and which files can hold it.
#pragma once

#include <string>

#include "media/MovieLibrary.h"
#include "media/MovieWriter.h"
#include "media/Picture.h"

namespace orvanite::media {

struct MovieCodec {
  const char* name;             // as people write it
  const char* encoder;          // FFmpeg's name
  AVPixelFormat shallow, deep;  // for 8-bit pictures and for all others
  const char* endings;          // of files that can hold it, each with a blank after it
  bool evenSize;                // width and height must be even
  const char* settings;         // for the encoder, as key=value:key=value
  const char* qualityKey;       // of the setting that is its quality; empty: it loses nothing
  int lowest, highest;          // quality, in the codec's own terms
  bool takesBitRate;            // instead
};

/// The encoder's settings with a quality or a bit rate of one's own. Throws Error (wrongUse) where
/// the codec has none such, or beyond its ends. The caller frees them.
AVDictionary* settingsOf(const MovieCodec& codec, const MovieStrength& strength);

/// The codec of a name, or, where the name is empty, the usual one for the file's ending: ProRes
/// 4444 for .mov, FFV1 for .mkv and .avi, VP9 for .webm, H.264 for .mp4 and .m4v.
/// Throws Error (wrongUse) for names and endings that are not known or do not go together.
const MovieCodec& movieCodecFor(const std::string& name, const std::string& path);

/// "prores4444, ffv1, ..."
std::string movieCodecNames();

}  // namespace orvanite::media
