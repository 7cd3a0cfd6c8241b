// SPDX-License-Identifier: BSD-3-Clause
//
// Image plugs: a plug whose parts say what a picture is like before a pixel exists. Connecting an
// input connects its parts; only the requested channels run the other way, from reader to source.
#pragma once

#include <memory>
#include <vector>

#include "platform/NRiBPixel.h"
#include "platform/NRiPlug.h"
#include "platform/NRiRect.h"

/// A plug that carries a picture, by plugs of its own for each thing known about it.
class NRI_API NRiIPlug : public NRiPlug {
 public:
  /// The owner outlives the plug.
  NRiIPlug(NRiNode* owner, const NRiName& name, IO io);
  ~NRiIPlug() override;

  NRiPlug* width() const { return width_.get(); }          // pixels
  NRiPlug* height() const { return height_.get(); }        // lines
  NRiPlug* bytes() const { return bytes_.get(); }          // of a channel: 1, 2 or 4 (float)
  NRiPlug* channels() const { return channels_.get(); }    // 1 alpha, 2 blue, 4 green, 8 red
  NRiPlug* requested() const { return requested_.get(); }  // channels that readers ask for
  NRiPlug* bPixel() const { return bPixel_.get(); }        // points at an NRiBPixel
  NRiPlug* dod() const { return dod_.get(); }              // points at an NRiRect
  NRiPlug* image() const { return image_.get(); }          // identity: equal texts, equal pictures

  /// `source` must be an image plug or null; anything else throws NRiError.
  void connect(NRiPlug* source) override;
  /// The plug that it is connected to, or null.
  NRiIPlug* imageSource() const { return static_cast<NRiIPlug*>(source()); }
  /// Input plugs connected to this one.
  std::vector<NRiIPlug*> consumers() const;

  /// Channels that somebody outside the graph asks of this output, beside its consumers.
  void setRequest(int mask);
  /// What setRequest was told.
  int request() const { return request_; }

  /// Domain of definition: where the image has pixels of its own; beyond is background.
  NRiRect getDod();
  /// Region of interest: what is being rendered.
  NRiRect getRoi() const { return roi_; }
  /// Sets what is being rendered, for the time of a render.
  void setRoi(const NRiRect& roi) { roi_ = roi; }
  /// Fills `pixel` with the background pixel; zero where there is none.
  void getBPixel(NRiBPixel& pixel);

 private:
  std::unique_ptr<NRiPlug> part(const char* name, NRiId type);

  std::unique_ptr<NRiPlug> width_, height_, bytes_, channels_, requested_, bPixel_, dod_, image_;
  NRiRect roi_;
  int request_ = 0;
};
