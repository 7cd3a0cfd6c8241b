// SPDX-License-Identifier: BSD-3-Clause
//
// Where a shot's pictures come from: a still, a numbered sequence or a movie, read by frame.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/Depth.h"
#include "media/PictureReader.h"

struct AVContentLightMetadata;
struct AVMasteringDisplayMetadata;

namespace orvanite::media {

/// What to read of a frame.
struct Request {
  Depth depth = Depth::bytes;
  Window window;  // the pixels wanted, in the source's own coordinates
  float missingAlpha = 1;
  std::string channel;  // a matte's; empty: colours and alpha
};

/// A positive fraction, such as 24000/1001 frames a second; {0, 1} is unknown.
struct Ratio {
  int numerator = 0, denominator = 1;
};

/// How a file is opened where it leaves something open, or should be taken otherwise.
struct OpenOptions {
  Ratio frameRate;     // of a movie: frames are held and dropped to it; {0, 1}: as the file says
  std::string matrix;  // of a movie: a name that matrixOf() knows; empty: as its tags say
  bool deinterlace = false;  // of an interlaced movie: whole frames are made from its fields
  LayerChoice picture;       // of an OpenEXR file
};

/// A part of a movie with a title; in seconds from its first frame.
struct Chapter {
  double start = 0, end = 0;
  std::string title;
};

/// What a movie made from a shot takes over from it. The numbers of primaries, transfer and matrix
/// are those of ISO/IEC 23091-2, where 2 means unspecified.
struct ShotFacts {
  Ratio frameRate, pixelAspect;
  std::string timeCode;  // of the first frame, such as 01:00:00:00; empty: none
  int primaries = 2, transfer = 2, matrix = 2;
  std::string sound;  // the file whose sound goes with it; empty: none
  double start = 0;   // seconds on that file's clock where the first frame stands
  std::vector<std::pair<std::string, std::string>> titles;  // "title", "copyright" and the like
  std::vector<Chapter> chapters;
  // Of a high dynamic range, as FFmpeg describes them; null: not said.
  std::shared_ptr<const AVMasteringDisplayMetadata> mastering;
  std::shared_ptr<const AVContentLightMetadata> light;
};

class Source {
 public:
  virtual ~Source() = default;

  /// Opens a file, a pattern, a folder or a movie. Throws Error: noSuchFile when nothing is
  /// there, wrongUse for a way of opening that does not go with the file.
  static std::unique_ptr<Source> open(const std::string& path, const OpenOptions& how = {});

  /// Of the first frame: what it is, and its header. All frames are expected to have its size.
  const PictureInfo& info() const { return info_; }
  const OIIO::ImageSpec& header() const { return *header_; }

  /// The frames, ascending; a still has none and is the same at every frame.
  const std::vector<int>& frames() const { return frames_; }
  /// Whether there are frames, rather than a still.
  bool isShot() const { return !frames_.empty(); }

  /// Where the pixels of a frame lie. Throws Error as `read` does.
  virtual Window windowOf(int frame);

  /// Rate, time code and the like, as far as the file says.
  const ShotFacts& facts() const { return facts_; }
  /// What had to be assumed about the file, for a person to see; empty: nothing.
  const std::string& notice() const { return notice_; }
  /// What says that a movie ends before its file says; empty: nothing.
  const std::string& cutOff() const { return cutOff_; }

  /// Whether one thread at a time must read, which goes fastest in ascending order. Otherwise any
  /// number may.
  virtual bool sequential() const { return false; }

  /// Reads a frame. Throws Error: missingFrames when it is not there, failure when it is broken or
  /// has another size, wrongUse for a channel that it lacks.
  Picture read(int frame, const Request& request) { return begin(frame, request)(); }

  /// The same in two steps: what one thread at a time must do is done at once, the rest when the
  /// result is called, by any thread. Either may throw. The source must outlive the result.
  virtual std::function<Picture()> begin(int frame, const Request& request) = 0;

  /// The file that holds a frame.
  virtual std::string fileOf(int frame) const = 0;

 protected:
  PictureInfo info_;
  std::shared_ptr<const OIIO::ImageSpec> header_;
  std::vector<int> frames_;
  ShotFacts facts_;
  std::string notice_, cutOff_;
};

}  // namespace orvanite::media
