// SPDX-License-Identifier: BSD-3-Clause
//
// Pictures for files, in the format that the path's ending says. Passes its image on. OpenEXR files
// hold the image's domain of definition as their data window; others, whose readers know no
// windows, the frame. What a file says beside its pixels (pixel aspect, time code, rate,
// compression, ...) is taken over from the picture that the first inputs lead to.
#pragma once

#include <string>

#include "media/Picture.h"
#include "platform/NRiMonadic.h"

class NRI_API NRiFileOut final : public NRiMonadic {
 public:
  NRiFileOut();
  const NRiName& getClassName() const override;
  NRiNode* create() const override { return new NRiFileOut; }

  /// The file of the present frame.
  std::string path();
  /// The same, of a frame that can be written: it has an image, and a format, and is no input of
  /// the script. Throws NRiError.
  std::string checkedPath();
  /// Renders the present frame, as media::writePicture takes it. `samples` says how values are
  /// stored: "uint8", "uint16", "half", "float", or "auto" for those of the picture that the
  /// metadata are from, where the image has their depth, and else the image's own. `alpha` says
  /// what of it is stored: "auto" for what the image has, "none", or "premultiplied" for colours
  /// multiplied by it. Throws NRiError when there is nothing to write.
  orvanite::media::Picture rendered();

 private:
  NRiPlug* path_;
  NRiPlug* samples_;
  NRiPlug* alpha_;
};
