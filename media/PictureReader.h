// SPDX-License-Identifier: BSD-3-Clause
//
// Reads pictures from files, in whatever format OpenImageIO knows, into the form and the depth that
// the engine takes. The header is looked at first, so that sizes and depths can be compared before
// any pixel is read.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "media/Picture.h"

namespace orvanite::media {

/// What a file's header says.
struct PictureInfo {
  std::string path;
  std::string format;  // "png", "openexr", ...
  Window data;         // the pixels that the file holds
  Window display;      // the frame that they are part of
  Samples samples = Samples::uint8;
  int bits = 8;  // of a sample, such as 10 in a DPX file
  std::vector<std::string> channels;
  bool hasAlpha = false;
};

class PictureReader {
 public:
  /// Opens a file and reads its header. Throws Error: noSuchFile when there is no such file,
  /// failure when it is no picture or none that can be keyed (no pixels, too many, deep samples).
  explicit PictureReader(const std::string& path);

  /// What the header says, checked; and the header itself.
  const PictureInfo& info() const { return info_; }
  const OIIO::ImageSpec& header() const { return *spec_; }

  /// Reads colour and alpha, with one grey channel standing for all three colours.
  ///
  /// depth         of the result: 1, 2 or 4
  /// window        the pixels wanted; what lies outside the file's is 0
  /// missingAlpha  0..1, what alpha becomes where the file has none
  Picture read(int depth, const Window& window, float missingAlpha);

  /// Reads one channel into the result's alpha; its colours are undefined.
  /// The channel is named in full ("mask.A"), or by one of the letters R, G, B, A in either case.
  /// A picture with one channel serves as its own alpha.
  /// Throws Error (wrongUse) that lists the file's channels when it is not there.
  Picture readChannel(std::string_view channel, int depth, const Window& window);

 private:
  void readInto(Picture& picture, int firstChannel, int channels, int firstSlot);
  [[noreturn]] void fail(const std::string& reason) const;

  std::unique_ptr<OIIO::ImageInput> input_;
  std::shared_ptr<const OIIO::ImageSpec> spec_;
  PictureInfo info_;
  int red_ = 0, green_ = 0, blue_ = 0, alpha_ = -1;
};

/// The encoding that a file's samples most likely have ("linear", "log" or "video"), and why.
struct Encoding {
  std::string colourspace;
  std::string reason;
};
/// Of the file that a reader has open, or of a header, its format's name and its samples.
Encoding encodingOf(const PictureReader& reader);
Encoding encodingOf(const OIIO::ImageSpec& spec, const std::string& format, Samples samples);

/// One line from a library's message: control characters and line ends become blanks.
std::string oneLine(std::string text);

}  // namespace orvanite::media
