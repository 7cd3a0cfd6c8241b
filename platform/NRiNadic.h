// SPDX-License-Identifier: BSD-3-Clause
//
// Image nodes with up to four inputs, which the class adds one by one.
#pragma once

#include "platform/NRiMonadic.h"

/// The base of nodes with several inputs.
class NRI_API NRiNadic : public NRiMonadic {
 public:
  NRiNadic();
  ~NRiNadic() override;

 protected:
  using NRiMonadic::addInput;
};
