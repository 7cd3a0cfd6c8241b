// SPDX-License-Identifier: BSD-3-Clause
//
// Pictures for files, in the format that the path's ending says, or the frames of a movie. Passes
// its image on. OpenEXR files hold the image's domain of definition as their data window; others,
// whose readers know no windows, the frame. What a file says beside its pixels (pixel aspect, time
// code, rate, compression, ...) is taken over from the picture that the first inputs lead to.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "media/MovieWriter.h"
#include "media/Picture.h"
#include "platform/NRiMonadic.h"

class NRiFileIn;

class NRI_API NRiFileOut final : public NRiMonadic {
 public:
  NRiFileOut();
  ~NRiFileOut() override;
  const NRiName& getClassName() const override;
  NRiNode* create() const override { return new NRiFileOut; }

  /// The file of the present frame.
  std::string path();
  /// Whether that is a movie, which holds all frames.
  bool isMovie();
  /// The file of the present frame, which can be written: it has an image, and a format, and is no
  /// input of the script. Throws NRiError.
  std::string checkedPath();
  /// Renders the present frame, as media::writePicture takes it. `samples` says how values are
  /// stored: "uint8", "uint16", "half", "float", or "auto" for those of the picture that the
  /// metadata are from, where the image has their depth, and else the image's own. `alpha` says
  /// what of it is stored: "auto" for what the image has, "none", or "premultiplied" for colours
  /// multiplied by it. Throws NRiError when there is nothing to write.
  orvanite::media::Picture rendered();

  /// Writes a picture of the present frame: a file of its own, or the next frame of the movie,
  /// which the first one begins. All throw NRiError or Error.
  ///
  /// times    the frames that will be written, this one the first of them that was not yet
  /// notices  gets what was decided about a movie, a line each
  void write(const orvanite::media::Picture& picture, const std::vector<int>& times,
             std::vector<std::string>& notices);
  /// After the last frame: puts the movie in place, where there is one. Without it none appears.
  void finish();

 private:
  void begin(const orvanite::media::Picture& picture, const std::vector<int>& times,
             std::vector<std::string>& notices);
  orvanite::media::MovieOptions movieOptions(const std::vector<int>& times,
                                             std::vector<std::string>& notices);

  NRiPlug* path_;
  NRiPlug* samples_;
  NRiPlug* alpha_;
  NRiPlug* codec_;
  NRiPlug* frameRate_;
  NRiPlug* quality_;
  NRiPlug* bitRate_;
  NRiPlug* sound_;
  std::unique_ptr<orvanite::media::MovieWriter> movie_;
};
