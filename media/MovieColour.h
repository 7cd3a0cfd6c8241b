// SPDX-License-Identifier: BSD-3-Clause
//
// What a movie's codes mean as colours, and the way between its pixel formats and pictures of red,
// green, blue and alpha.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "media/MovieLibrary.h"
#include "media/Picture.h"

namespace orvanite::media {

struct MovieColour {
  AVColorSpace matrix = AVCOL_SPC_UNSPECIFIED;
  AVColorRange range = AVCOL_RANGE_UNSPECIFIED;
  AVColorPrimaries primaries = AVCOL_PRI_UNSPECIFIED;
  AVColorTransferCharacteristic transfer = AVCOL_TRC_UNSPECIFIED;
  AVChromaLocation siting = AVCHROMA_LOC_UNSPECIFIED;

  /// What a movie's tags say: its first frame's, and for what that leaves open its container's.
  /// Numbers that stand for nothing count as no tag.
  static MovieColour of(const AVFrame& first, const AVCodecParameters& stated);

  /// Fills in what the tags leave open: 601 below 720 lines, 709 from there; video range; siting as
  /// MPEG-2 has it. Returns what was assumed about the matrix and the range, empty for nothing.
  std::string complete(AVPixelFormat format, int height);
};

/// The matrix of a name as people write it: 601, 709, 2020, 240M or fcc, with or without "bt" or
/// "rec" before it. Throws Error (wrongUse) about `subject` for any other.
AVColorSpace matrixOf(const std::string& name, const std::string& subject);

/// Whether a format holds red, green and blue rather than luma and differences.
bool isRgb(AVPixelFormat format);
/// Whether a format holds alpha.
bool hasAlpha(AVPixelFormat format);
/// Of a picture that holds the format's samples: 8 bits and less, or 16.
Samples samplesOf(AVPixelFormat format);

/// Converts frames of one size between a movie's format and pictures. Chroma is interpolated in
/// full at its siting; colours are rounded once; formats of red, green and blue keep their bits.
/// Any number of threads may convert at once.
class MovieConverter {
 public:
  enum class Direction { toPicture, fromPicture };
  /// Frames of width x height pixels in `format`; `colour` complete. Throws Error (failure) for
  /// a format that FFmpeg does not name.
  MovieConverter(Direction direction, AVPixelFormat format, const MovieColour& colour, int width,
                 int height);

  /// In the depth of samplesOf(format). Throws Error (failure) when memory runs out.
  Picture toPicture(const AVFrame& frame);
  /// From any depth. Throws Error (failure) when memory runs out.
  MovieFrame fromPicture(const Picture& picture);

 private:
  using Scaler = std::unique_ptr<SwsContext, MovieDelete>;
  Scaler take();
  void scale(const std::uint8_t* const* from, const int* fromSteps, std::uint8_t* const* to,
             const int* toSteps);
  MovieFrame emptyFrame(AVPixelFormat format) const;

  Direction direction_;
  AVPixelFormat format_;
  AVPixelFormat between_;  // what the scaler has on the pictures' side; none: no scaler is needed
  bool rgb_;               // between_ is what pictures hold, not planes of luma
  MovieColour colour_;
  int width_, height_;
  std::mutex mutex_;
  std::vector<Scaler> idle_;
};

}  // namespace orvanite::media
