// SPDX-License-Identifier: BSD-3-Clause
//
// Hands pictures to writers of files, in the format that the path's ending says. Passes its image on.
// OpenEXR files hold the image's domain of definition as their data window; others, whose readers
// know no windows, the frame.
#pragma once

#include <OpenImageIO/imageio.h>

#include <string>

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
  /// Renders the present frame, and writes it under the name `to` by `output`, which is of the
  /// path's format and not open yet. `samples` says how values are stored: "uint8", "uint16",
  /// "half", "float", or "auto" for the image's own depth. False when the writer failed: it says
  /// why. Throws NRiError when there is nothing to write; then nothing was opened.
  bool write(OIIO::ImageOutput& output, const std::string& to);

 private:
  NRiPlug* path_;
  NRiPlug* samples_;
};
