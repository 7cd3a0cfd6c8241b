// SPDX-License-Identifier: BSD-3-Clause
//
// Writes pictures, in the format that the path's ending says, whole or not at all: under another
// name in the same folder first. Passes its image on. OpenEXR files hold the image's domain of
// definition as their data window; others, whose readers know no windows, the frame.
#pragma once

#include <string>

#include "platform/NRiMonadic.h"

class NRI_API NRiFileOut final : public NRiMonadic {
 public:
  NRiFileOut();
  const NRiName& getClassName() const override;
  NRiNode* create() const override { return new NRiFileOut; }

  /// The file of the present frame.
  std::string path();
  /// Renders the present frame and writes it; returns the path. `samples` says how values are
  /// stored: "uint8", "uint16", "half", "float", or "auto" for the image's own depth. Throws
  /// NRiError; then no file is left behind and what was there before stays.
  std::string write();

  /// Removes the unfinished file, if there is one. May be called from a signal handler.
  static void removeUnfinished();

 private:
  NRiPlug* path_;
  NRiPlug* samples_;
};
