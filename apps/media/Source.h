// SPDX-License-Identifier: BSD-3-Clause
//
// Where a shot's pictures come from: a still, a numbered sequence or a movie, read by frame.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "apps/media/PictureReader.h"

namespace orvanite::media {

/// What to read of a frame.
struct Request {
  int depth = 1;
  Window window;  // the pixels wanted, in the source's own coordinates
  float missingAlpha = 1;
  std::string channel;  // a matte's; empty: colours and alpha
};

class Source {
 public:
  virtual ~Source() = default;

  /// Opens a file, a pattern, a folder or a movie. Throws Error: missingInput when nothing is
  /// there.
  static std::unique_ptr<Source> open(const std::string& path);

  /// Of the first frame. All frames are expected to have its size.
  const PictureInfo& info() const { return info_; }
  const OIIO::ImageSpec& header() const { return *header_; }

  /// The frames, ascending; a still has none and is the same at every frame.
  const std::vector<int>& frames() const { return frames_; }
  bool isShot() const { return !frames_.empty(); }

  /// Where the pixels of a frame lie. Throws Error as `read` does.
  virtual Window windowOf(int frame);

  /// Whether frames have to be read one after the other, in ascending order, by one thread at a
  /// time.
  virtual bool sequential() const { return false; }

  /// Reads a frame. Throws Error: missingFrames when it is not there, failure when it is broken or
  /// has another size, wrongUse for a channel that it lacks.
  virtual Picture read(int frame, const Request& request) = 0;

  /// The file that holds a frame.
  virtual std::string fileOf(int frame) const = 0;

 protected:
  PictureInfo info_;
  std::shared_ptr<const OIIO::ImageSpec> header_;
  std::vector<int> frames_;
};

}  // namespace orvanite::media
