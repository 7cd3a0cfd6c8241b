// SPDX-License-Identifier: BSD-3-Clause
//
// An image of one colour. Its domain of definition is the whole frame; its background pixel is the
// colour too.
#pragma once

#include "platform/NRiFx.h"

class NRI_API NRiConstant final : public NRiFx {
 public:
  NRiConstant();
  const NRiName& getClassName() const override;
  NRiNode* create() const override { return new NRiConstant; }
  int eval(NRiPlug* plug) override;

 protected:
  void fillOutputBuffer() override;

 private:
  NRiPlug *width_, *height_, *bytes_, *red_, *green_, *blue_, *alpha_;
};
