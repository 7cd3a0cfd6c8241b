// SPDX-License-Identifier: BSD-3-Clause
//
// Where every frame of a movie is: its time, and the key frame from which decoding reaches it.
// Taken from QuickTime's table of frames where that is plain; made by looking through the whole
// file once, without decoding, elsewhere. Frame 100 is the hundredth, whatever else a header says.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "media/MovieLibrary.h"

namespace orvanite::media {

struct MovieIndex {
  struct Key {
    std::int64_t time, decodeTime;
  };

  std::vector<std::int64_t> times;  // of the frames, ascending, in the stream's time base
  std::vector<Key> keys;            // ascending
  AVRational rate{0, 1};            // frames a second
  int promised = 0;                 // frames by the file's header; more than there are: cut off

  /// Reads what it must and leaves the input at some place. Throws Error (failure) about `path`
  /// when there is no frame, when frames have no times, or when they are not evenly spaced.
  static MovieIndex of(MovieInput& input, int stream, const std::string& path);

  int count() const { return static_cast<int>(times.size()); }
  /// The last key frame at or before a time; the first where there is none.
  const Key& keyBefore(std::int64_t time) const;
};

}  // namespace orvanite::media
