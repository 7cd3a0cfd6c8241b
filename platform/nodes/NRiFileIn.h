// SPDX-License-Identifier: BSD-3-Clause
//
// Reads pictures, in any format that OpenImageIO knows. The data window of a file is the domain of
// definition, relative to its display window, which is the frame. One grey channel stands for all
// three colours. Alone it stands for alpha, too, where some reader asks for nothing but alpha, as a
// matte; a picture with colour is opaque. Alpha is not multiplied in or divided out.
#pragma once

#include <string>

#include "platform/NRiFx.h"

class NRI_API NRiFileIn final : public NRiFx {
 public:
  NRiFileIn();
  const NRiName& getClassName() const override;
  NRiNode* create() const override { return new NRiFileIn; }
  int eval(NRiPlug* plug) override;

  /// The file of the present frame.
  std::string path();

 protected:
  void fillOutputBuffer() override;

 private:
  struct Header {
    std::string path;
    std::string stamp;  // changes with the file
    NRiRect data;
    int width = 0;
    int height = 0;
    int bytes = 1;
    int channels = 0;
    bool grey = false;  // one channel, which is no alpha by name
    int red = 0, green = 0, blue = 0, alpha = -1;  // indices in the file
  };
  const Header& header();
  NRiIBuf read(const Header& header) const;

  NRiPlug* path_;
  NRiPlug* frame_;
  Header header_;
  NRiIBuf pixels_;  // of the file `pixelsOf_`
  std::string pixelsOf_;
};
