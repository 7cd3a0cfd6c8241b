// SPDX-License-Identifier: BSD-3-Clause
//
// Where the argument texts of the script call that is running stand in the script, and the variable
// that its image is for. The compiler installs them; a plug that is handed one of these texts, by
// address, remembers its place, and the node that the call makes takes the variable's name.
#pragma once

#include <utility>
#include <vector>

#include "platform/NRiError.h"
#include "platform/NRiExport.h"
#include "platform/NRiName.h"

class NRI_API NRiOrigin {
 public:
  using Places = std::vector<std::pair<const char*, NRiPosition>>;
  explicit NRiOrigin(const Places* places, NRiName variable = {});
  ~NRiOrigin();
  NRiOrigin(const NRiOrigin&) = delete;
  NRiOrigin& operator=(const NRiOrigin&) = delete;

  /// The place of a text; line 0 when it is no argument of the call that is running.
  static NRiPosition of(const char* text);
  /// The variable, once; empty when there is none or it has been taken.
  static NRiName takeVariable();

 private:
  const Places* places_;
  NRiName variable_;
  NRiOrigin* outer_;
};
