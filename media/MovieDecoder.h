// SPDX-License-Identifier: BSD-3-Clause
//
// Any frame of a movie, decoded exactly: from the key frame before it, or onwards from the frame
// that was asked for last, which is how a shot is read. One thread at a time.
#pragma once

#include <memory>
#include <string>

#include "media/Deinterlacer.h"
#include "media/MovieIndex.h"
#include "media/MovieLibrary.h"
#include "media/Source.h"

namespace orvanite::media {

class MovieDecoder {
 public:
  /// Opens a movie, finds its video stream and all its frames. Throws Error: noSuchFile, or
  /// failure for what cannot be decoded or is interlaced and not to be deinterlaced.
  MovieDecoder(const std::string& path, const OpenOptions& how);

  /// The file, the times of its frames, and what FFmpeg says of it; as long as the decoder lives.
  const std::string& path() const { return path_; }
  const MovieIndex& index() const { return index_; }
  const AVStream& stream() const { return *input_->streams[stream_]; }
  const AVFormatContext& format() const { return *input_.get(); }
  const AVCodecContext& codec() const { return *codec_; }

  /// Frame 1 is the first. Throws Error (failure) when it is broken or not there.
  MovieFrame frame(int number);

  /// Whether frames are made from fields; known once a frame was read.
  bool deinterlaces() const { return deinterlacer_ != nullptr; }

 private:
  MovieFrame decoded(int place);
  MovieFrame next();
  void judge(AVFrame& frame);
  void seek(std::int64_t time);
  bool isAhead(int place) const;
  int numberOf(int place) const;
  void check(AVFrame& frame, int place) const;
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
  int position_ = -1;         // of the file's frames: the one asked for last; -1 at the start
  bool wholeFrames_ = false;  // are wanted of an interlaced movie
  AVFieldOrder fields_ = AV_FIELD_UNKNOWN;  // by the container
  std::unique_ptr<Deinterlacer> deinterlacer_;
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
