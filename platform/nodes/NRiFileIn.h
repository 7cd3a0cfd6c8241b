// SPDX-License-Identifier: BSD-3-Clause
//
// Reads pictures and movies, in any format that media/ takes. The data window of a file is the
// domain of definition, relative to its display window, which is the frame. One grey channel stands
// for all three colours. Alone it stands for alpha, too, where some reader asks for nothing but
// alpha, as a matte; a picture with colour is opaque. Alpha is not multiplied in or divided out.
#pragma once

#include <OpenImageIO/imageio.h>

#include <memory>
#include <string>

#include "media/Source.h"
#include "platform/NRiFx.h"

class NRI_API NRiFileIn final : public NRiFx {
 public:
  NRiFileIn();
  const NRiName& getClassName() const override;
  NRiNode* create() const override { return new NRiFileIn; }
  int eval(NRiPlug* plug) override;

  /// The file of the present frame.
  std::string path();
  /// The header of the present frame's file: what a file made of it takes over. Throws NRiError.
  std::shared_ptr<const OIIO::ImageSpec> metadata();
  /// The present frame's file, opened, and which frame of it that is. Throws NRiError.
  const orvanite::media::Source& source();
  int frameNumber();

 protected:
  void fillOutputBuffer() override;

 private:
  /// What the present frame is, known from its file's header.
  struct Header {
    std::string key;    // the file, its stamp, and the frame of a movie
    std::string file;   // with the frame of a movie
    std::string stamp;  // changes with the file
    int frame = 1;      // of a movie
    NRiRect data;
    int width = 0;
    int height = 0;
    int bytes = 1;
    int channels = 0;
    bool grey = false;  // one channel, which is no alpha by name
  };
  const Header& header();
  orvanite::media::OpenOptions how() const;
  void checkFrame(int frame) const;
  const orvanite::media::Picture& picture();

  NRiPlug* path_;
  NRiPlug* frame_;
  NRiPlug* frameRate_;
  NRiPlug* matrix_;
  NRiPlug* deinterlace_;
  NRiPlug* part_;
  NRiPlug* layer_;
  std::unique_ptr<orvanite::media::Source> source_;  // of the file and options `sourceOf_`
  std::string sourceOf_;
  Header header_;
  orvanite::media::Picture picture_;  // of the frame `pictureOf_`
  std::string pictureOf_;
};
