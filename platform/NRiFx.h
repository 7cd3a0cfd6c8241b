// SPDX-License-Identifier: BSD-3-Clause
//
// Image nodes. A node first says what its picture is like, through the parts of its output plug;
// render() then has it make pixels for a region.
#pragma once

#include "platform/NRiBPixel.h"
#include "platform/NRiExport.h"
#include "platform/NRiIBuf.h"
#include "platform/NRiNode.h"

/// A node that makes a picture.
class NRI_API NRiFx : public NRiNode {
 public:
  NRiFx();
  ~NRiFx() override;

  /// The picture.
  NRiIPlug* getOutput() const override { return out_; }

  /// What the parts of the output are when the class says nothing else: the identity is the class
  /// name with the identities of the inputs and the values of the parameters; the channels
  /// requested are those that all readers ask for together.
  int eval(NRiPlug* plug) override;

  /// Makes the pixels of `region` with the output's depth. The buffer holds at least the channels
  /// that are requested of the output and that it has; it may be smaller than the region where the
  /// rest is background. Throws NRiError when a plug or a file cannot be had.
  void render(const NRiRect& region, NRiIBuf& buffer);
  /// render(), widened to all of the region with four channels a pixel.
  NRiIBuf renderWhole(const NRiRect& region);
  /// 0, 0, width, height of the output.
  NRiRect format();

 protected:
  /// Makes the pixels of the region in the output buffer; called by render() alone.
  virtual void fillOutputBuffer() = 0;
  /// Brings the inputs' pixels in.
  virtual void prepare(const NRiRect&) {}
  /// Where fillOutputBuffer() leaves the pixels.
  virtual NRiIBuf& outputBuffer() { return output_; }

  NRiIPlug* out_;            // the output; the node owns it
  NRiBPixel background_;     // what the output's bPixel may point at
  NRiRect domain_;           // what the output's dod may point at
  bool keepsOutput_ = true;  // whether a picture with several readers is worth keeping

 private:
  struct Kept {
    NRiName identity;
    NRiRect region;
    int requested = 0;
    NRiIBuf buffer;
  };
  NRiIBuf output_;
  Kept kept_;
};
