// SPDX-License-Identifier: BSD-3-Clause
//
// FFmpeg's objects as owners that clean up, and its complaints as text.
#pragma once

#include <atomic>
#include <memory>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

namespace orvanite::media {

struct MovieDelete {
  void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
  void operator()(AVIOContext* file) const;
  void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};
using MovieCodecContext = std::unique_ptr<AVCodecContext, MovieDelete>;
using MoviePacket = std::unique_ptr<AVPacket, MovieDelete>;
using MovieFrame = std::shared_ptr<AVFrame>;
using MovieBytes = std::unique_ptr<AVIOContext, MovieDelete>;

/// Sends what FFmpeg logs to movieProblem; whoever opens a file calls it first.
void quietMovies();

/// Counts what a decoder logs as errors, from now on and for as long as the counter lives. Some say
/// in no other way that they made up part of a picture.
void countErrors(AVCodecContext& decoder, std::atomic<int>& counter);

/// A frame without pixels. Throws Error (failure) when memory runs out.
MovieFrame newMovieFrame();
/// A packet without data. Throws Error (failure) when memory runs out.
MoviePacket newMoviePacket();

/// Where a container is written: this open file, which stays the caller's. FFmpeg's own way opens
/// by name, and would make a file anew that a signal has just removed. Throws Error (failure) when
/// memory runs out.
MovieBytes bytesTo(int descriptor);

/// A movie file opened for reading, its streams known. Containers on a list only, from the file
/// alone: nothing in it leads to another.
class MovieInput {
 public:
  enum class Kind { movie, sound };  // the latter: files of sound alone, too
  /// Throws Error: noSuchFile when there is no such file, failure when FFmpeg cannot read it.
  explicit MovieInput(const std::string& path, Kind kind = Kind::movie);
  ~MovieInput() { avformat_close_input(&context_); }
  MovieInput(const MovieInput&) = delete;
  MovieInput& operator=(const MovieInput&) = delete;
  AVFormatContext* operator->() const { return context_; }
  AVFormatContext* get() const { return context_; }

 private:
  AVFormatContext* context_ = nullptr;
};

/// "QuickTime, MP4, ...", for a person to read.
std::string movieFormatNames();

/// What an error number means, with FFmpeg's last words on it where there are any: one line.
std::string movieProblem(int number);

}  // namespace orvanite::media
