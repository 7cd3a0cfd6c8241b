// SPDX-License-Identifier: BSD-3-Clause
//
// A picture in memory: red, green, blue and alpha interleaved, 8-bit, 16-bit
// or float, with the header of the file that it came from.
#pragma once

#include <OpenImageIO/imageio.h>

#include <array>
#include <cstddef>
#include <memory>
#include <string>

#include "base/Depth.h"
#include "media/PixelMemory.h"

namespace orvanite::media {

/// How samples lie in a file.
enum class Samples { uint8, uint16, half, float32 };

/// The depth in memory, where a half is a float.
Depth depthOf(Samples samples);

/// A depth in OpenImageIO's terms.
OIIO::TypeDesc typeInMemory(Depth depth);

/// "8-bit", "16-bit", "half" or "float".
std::string nameOf(Samples samples);

/// What a file of a picture holds; in memory there are four channels always.
enum class Channels {
  colourAndAlpha,  // alpha where the format can
  colour,
  grey  // the red channel
};

/// A rectangle of pixels.
struct Window {
  int x = 0, y = 0, width = 0, height = 0;
  bool operator==(const Window&) const = default;
};

/// The smallest window that holds both.
Window united(const Window& a, const Window& b);

struct Picture {
  Window data;                       // the pixels that are here
  Depth depth = Depth::bytes;        // of the samples in memory
  Samples samples = Samples::uint8;  // how a file should hold them where it can
  bool premultiplied = false;        // likewise: whether colours are multiplied by alpha
  Channels channels = Channels::colourAndAlpha;  // likewise
  bool hasAlpha = false;  // whether the file had one; here there are four channels always
  Pixels pixels;          // rows from the top, without gaps
  std::shared_ptr<const OIIO::ImageSpec> header;

  /// A picture of a size with undefined pixels. Throws Error (failure) when memory runs out.
  static Picture make(const Window& data, Depth depth, Samples samples);

  /// Bytes of one row, and of all.
  std::size_t rowBytes() const {
    return std::size_t{4} * static_cast<std::size_t>(data.width * bytesOf(depth));
  }
  std::size_t bytes() const { return rowBytes() * static_cast<std::size_t>(data.height); }
};

/// The picture with its samples in another depth, rounded to the nearest as file formats do.
/// Whatever lies outside 0..1 is clipped where the depth cannot hold it.
Picture atDepth(const Picture& picture, Depth depth);

/// The pixels of a window, cut out of the picture or surrounded by zeros.
Picture part(const Picture& picture, const Window& window);
/// The same of a picture that is given away: as it stands where it is that window already.
Picture placed(Picture picture, const Window& window);

/// Gives the pixels outside of a window one colour, in code values divided by the depth's maximum;
/// alpha stays.
void paintOutside(Picture& picture, const Window& inside, const std::array<float, 3>& colour);

/// Makes alpha 1 everywhere.
void makeOpaque(Picture& picture);

/// Multiplies the colours by alpha, code values as they are, to the nearest.
void multiplyByAlpha(Picture& picture);

}  // namespace orvanite::media
