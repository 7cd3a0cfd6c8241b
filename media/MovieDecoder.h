// SPDX-License-Identifier: BSD-3-Clause
//
// Any frame of a movie, decoded exactly: from the key frame before it, or onwards from the frame
// that was asked for last, which is how a shot is read. One thread at a time.
#pragma once

#include <string>

#include "media/MovieIndex.h"
#include "media/MovieLibrary.h"

namespace orvanite::media {

class MovieDecoder {
 public:
  /// Opens a movie, finds its video stream and all its frames. Throws Error: noSuchFile, or
  /// failure for what cannot be decoded or is interlaced.
  explicit MovieDecoder(const std::string& path);

  /// The file, the times of its frames, and what FFmpeg says of it; as long as the decoder lives.
  const std::string& path() const { return path_; }
  const MovieIndex& index() const { return index_; }
  const AVStream& stream() const { return *input_->streams[stream_]; }
  const AVFormatContext& format() const { return *input_.get(); }
  const AVCodecContext& codec() const { return *codec_; }

  /// Frame 1 is the first. Throws Error (failure) when it is broken or not there.
  MovieFrame frame(int number);

 private:
  MovieFrame next();
  void judge(AVFrame& frame);
  void seek(std::int64_t time);
  bool isAhead(int number) const;
  void check(const AVFrame& frame, int number) const;
  [[noreturn]] void failPastTheEnd(int number) const;

  std::string path_;
  MovieInput input_;
  int stream_ = -1;
  MovieIndex index_;
  std::atomic<int> errors_{0};  // that the decoder logged
  MovieCodecContext codec_;
  MoviePacket packet_;
  MovieFrame held_;  // decoded, later than what was asked for
  MovieFrame last_;  // what was asked for last, which may be shown again
  std::int64_t lastTime_ = 0;
  int position_ = 0;  // the frame asked for last; 0 at the start
  bool draining_ = false;
  bool alone_ = false;    // every frame is a key frame
  bool ahead_ = false;    // frames are decoded side by side
  int errorsBefore_ = 0;  // that were logged before what is judged next
  // What is logged before the frame of this time comes out is about none that was asked for.
  bool settled_ = true;
  std::int64_t settleTime_ = 0;
  std::int64_t hurtUntil_ = INT64_MIN;
  int problem_ = 0;  // since the last frame that came out
};

}  // namespace orvanite::media
