// SPDX-License-Identifier: BSD-3-Clause
//
// OBS's frames as RGBA bytes: each format by the frame's own matrix and range, so that what is kept
// looks as it does without the filter. Chroma is sited as OBS's own shaders have it: on the left,
// and between rows where rows are halved.
// Knows libobs's frames and no keying.
#pragma once

#include <obs.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace orvanite::obsPlugin {

/// Whether frames of a format have colours that can be converted.
bool isColoured(video_format format);

/// Whether a frame is RGBA bytes already.
bool isRgba(const obs_source_frame& frame);

class Converter {
 public:
  /// Writes a frame's pixels as opaque RGBA bytes, row by row. The frame has a size, a format that
  /// isColoured, and all its planes. Room for rows is kept from frame to frame.
  /// Throws std::bad_alloc.
  void toRgba(const obs_source_frame& frame, std::uint8_t* to, std::ptrdiff_t rowStride);

 private:
  std::vector<float> room_;
};

}  // namespace orvanite::obsPlugin
