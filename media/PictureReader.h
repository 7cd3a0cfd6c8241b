// SPDX-License-Identifier: BSD-3-Clause
//
// Reads pictures from files, in the formats of PictureFormats.h, into the form and the depth that
// the engine takes. The header is looked at first, so that sizes and depths can be compared before
// any pixel is read.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/Depth.h"
#include "media/Picture.h"

namespace orvanite::media {

struct PicturePromise;

/// What is read of an OpenEXR file that holds more than one picture.
struct LayerChoice {
  std::string part;   // by name, or counted from 0; empty: any
  std::string layer;  // "beauty" for beauty.R, or a part of that name; empty: the plain one
};

/// A part of a file.
struct PartInfo {
  std::string name;
  std::vector<std::string> channels;
};

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
  std::vector<PartInfo> parts;  // of an OpenEXR file
  std::string part;             // of a file of several parts: the one that is read
  std::string layer;            // of a file of several layers: the one whose R, G, B and A are read
  int orientation =
      1;  // that the file asked for, by Exif's numbers; sizes here are the upright ones
};

class PictureReader {
 public:
  /// Opens a file and reads its header. Throws Error: noSuchFile when there is no such file,
  /// failure when it is no picture of a format on the list, ends before its header's promises, asks
  /// for more memory than it may, or cannot be keyed (no pixels, too many, deep samples).
  /// Throws Error (wrongUse) when a part or layer that was chosen is not there.
  explicit PictureReader(const std::string& path, LayerChoice choice = {});

  /// What the header says, checked; and the header itself.
  const PictureInfo& info() const { return info_; }
  const OIIO::ImageSpec& header() const { return upright_ ? *upright_ : *spec_; }

  /// Reads colour and alpha, with one grey channel standing for all three colours.
  ///
  /// bytesOf(depth)         of the result
  /// window        the pixels wanted; what lies outside the file's is 0
  /// missingAlpha  0..1, what alpha becomes where the file has none
  Picture read(Depth depth, const Window& window, float missingAlpha);

  /// Reads one channel into the result's alpha; its colours are undefined.
  /// The channel is named in full ("mask.A"), or by one of the letters R, G, B, A in either case.
  /// A picture with one channel serves as its own alpha.
  /// Throws Error (wrongUse) that lists the file's channels when it is not there.
  Picture readChannel(std::string_view channel, Depth depth, const Window& window);

 private:
  void readInto(Picture& picture, int firstChannel, int channels, int firstSlot);
  bool readHalves(Picture& picture, bool alphaFollows, float missingAlpha);
  void checkRead(int row, bool read) const;
  void checkPromise(const PicturePromise& promise) const;
  void choosePart();
  bool isChosen(const PartInfo& part, int number) const;
  std::string layerIn(const PartInfo& part) const;
  void chooseLayer();
  void chooseOrientation();
  Picture shown(Picture picture, const Window& window) const;
  [[noreturn]] void failForSize(std::int64_t width, std::int64_t height) const;
  [[noreturn]] void fail(const std::string& reason) const;

  std::unique_ptr<OIIO::ImageInput> input_;
  std::shared_ptr<const OIIO::ImageSpec> spec_,
      upright_;  // of what lies on its side, the latter too
  PictureInfo info_;
  LayerChoice choice_;
  Window stored_;  // of the pixels as they lie in the file
  int part_ = 0;
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
