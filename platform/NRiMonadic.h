// SPDX-License-Identifier: BSD-3-Clause
//
// Image nodes with inputs. The first input's buffer is also the output buffer: what a class's
// fillOutputBuffer() leaves in it is the picture.
//
// Default wiring: width, height and background pixel of the output are connected to those of the
// first input, until a class releases them with connect(0). The other parts are worked out by
// eval(): depth the deepest and channels those of all inputs, domain of definition their union;
// of each input its own channels are requested as far as they are requested of the output.
#pragma once

#include "platform/NRiFx.h"

/// A node that makes its picture from others.
class NRI_API NRiMonadic : public NRiFx {
 public:
  /// A node with one input.
  explicit NRiMonadic(const NRiName& input);
  ~NRiMonadic() override;

  /// How many inputs a node may have.
  static constexpr int mostInputs = 4;

  /// The input at an index, or null.
  NRiIPlug* getInput(int i) const override { return i < count_ ? inputs_[i] : nullptr; }
  /// How many were added.
  int getNbInputs() const override { return count_; }
  int eval(NRiPlug* plug) override;

 protected:
  NRiMonadic();
  /// Adds an input, at most four in all; its index is the number of those before.
  NRiIPlug* addInput(const NRiName& name);

  void fillOutputBuffer() override {}  // passes the first input on
  /// Fills buffers_ for the region, at the depth of inputDepth_: the first with four channels and
  /// covering all of it, the others as their nodes deliver them. A buffer holds nothing when
  /// its input is not connected or nothing is requested of it.
  void prepare(const NRiRect& region) override;
  /// The first input's pixels, keyed in place.
  NRiIBuf& outputBuffer() override { return *buffers_[0]; }

  NRiIPlug* inputs_[mostInputs] = {};  // in the order in which they were added; the node owns them
  NRiIBuf* buffers_[mostInputs];       // one for each input, in input order
  NRiPlug* outputDepth_;               // bytes of the output's channels: 1, 2 or 4
  NRiPlug* inputDepth_;                // bytes of the channels that the buffers are brought to

 private:
  NRiIBuf storage_[mostInputs];
  int count_ = 0;
};
