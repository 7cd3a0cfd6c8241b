// SPDX-License-Identifier: BSD-3-Clause
//
// Whole frames from the fields of interlaced ones, by libavfilter's bwdif, one for one: rate, frame
// numbers and sound stay as they are. The library is loaded when it is needed: it brings dozens of
// others along.
#pragma once

#include <functional>
#include <string>

#include "media/MovieLibrary.h"

struct AVFilterContext;
struct AVFilterGraph;

namespace orvanite::media {

class Deinterlacer {
 public:
  /// Throws Error (failure) about `path`, the movie, when the library is not there.
  Deinterlacer(const std::string& path, int threads);
  ~Deinterlacer();
  Deinterlacer(const Deinterlacer&) = delete;
  Deinterlacer& operator=(const Deinterlacer&) = delete;

  /// A frame of `count`, counted from 0: the same pixels in whatever order frames are asked for.
  ///
  /// decoded  gives a frame as it is in the file; asked for this one and for both beside it
  /// Throws Error (failure) for pixels that cannot be deinterlaced, and what `decoded` throws.
  MovieFrame frame(int place, int count, const std::function<MovieFrame(int)>& decoded);

 private:
  void begin(const AVFrame& first);
  void end();
  void push(AVFrame* frame, int place);
  void check(int result) const;

  std::string path_;
  int threads_;
  AVFilterGraph* graph_ = nullptr;
  AVFilterContext* source_ = nullptr;
  AVFilterContext* sink_ = nullptr;
  int format_ = -1;
  int in_ = 0, out_ = 0;  // the next frame that goes in, and that comes out
  MovieFrame last_;       // came out last
};

}  // namespace orvanite::media
