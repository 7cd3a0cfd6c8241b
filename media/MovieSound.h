// SPDX-License-Identifier: BSD-3-Clause
//
// The sound of one movie put beside the pictures of another as it is, packet by packet, cut to the
// time that the pictures take.
#pragma once

#include <string>
#include <vector>

#include "media/MovieLibrary.h"

namespace orvanite::media {

class MovieSound {
 public:
  static constexpr double open = -1e9;  // no bound

  /// Adds the streams of sound that the output can hold to it, before its header is written.
  ///
  /// zero        seconds on the input's clock that become 0
  /// start, end  seconds on it between which sound is taken; `open` for no bound
  /// Throws Error about `path`: noSuchFile, or failure when it cannot be read or memory runs out.
  MovieSound(const std::string& path, double zero, double start, double end,
             AVFormatContext& output);

  /// Where a file's clock stands at its first picture, or at its first sound where it has no
  /// pictures: in seconds. Throws Error as the constructor does.
  static double startOf(const std::string& path);

  /// What was left out because the output cannot hold it; empty: nothing.
  const std::string& notice() const { return notice_; }
  /// The same for somebody who asked for it.
  std::string refusal() const;

  /// Writes what is heard up to a time in seconds from the start. Throws Error (failure) about
  /// `path` when it cannot be written, about the sound's own file where that is cut off before.
  void copyUpTo(double seconds, const std::string& path);

 private:
  bool next();
  void checkEnd(int problem);

  std::string from_;
  MovieInput input_;
  AVFormatContext& output_;
  double zero_, start_, end_;
  double heard_ = 0;          // seconds on the input's clock: the end of the last packet read
  std::vector<int> streams_;  // of the output by those of the input; -1: not copied
  MoviePacket packet_;
  bool held_ = false, ended_ = false;
  std::string notice_;
};

}  // namespace orvanite::media
