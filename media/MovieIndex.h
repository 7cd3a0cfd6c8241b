// SPDX-License-Identifier: BSD-3-Clause
//
// Where every frame of a movie is: its time, and the key frame from which decoding reaches it.
// Taken from QuickTime's table of frames where that is plain; made by looking through the whole
// file once, without decoding, elsewhere. Frames are numbered at a constant rate, as a player shows
// them: where the file has none for a time the one before is held, where it has two the later one
// stands. Frame 100 of a regular movie is its hundredth, whatever else a header says.
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

  std::vector<std::int64_t> times;  // of the file's frames, ascending, in the stream's time base
  std::vector<Key> keys;            // ascending
  std::vector<int> shown;           // of the numbered frames: which of the file's, from 0
  AVRational rate{0, 1};            // frames a second
  int promised = 0;                 // frames by the file's header; more than there are: cut off
  std::string cutOff;  // what says that the file is cut off, however many frames it has
  std::string notice;  // how frames were put at a constant rate; empty: as they are

  /// Reads what it must and leaves the input at some place. Throws Error (failure) about `path`
  /// when there is no frame, or when frames have no times.
  /// asked  the rate to number frames at; {0, 1}: the file's own
  static MovieIndex of(MovieInput& input, int stream, const std::string& path,
                       AVRational asked = {0, 1});

  /// Frames, numbered from 1, and the time of one.
  int count() const { return static_cast<int>(shown.size()); }
  std::int64_t timeOf(int number) const {
    return times[static_cast<std::size_t>(shown[static_cast<std::size_t>(number - 1)])];
  }
  /// The last key frame at or before a time; the first where there is none.
  const Key& keyBefore(std::int64_t time) const;
};

}  // namespace orvanite::media
