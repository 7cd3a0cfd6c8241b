// SPDX-License-Identifier: BSD-3-Clause
//
// Where the argument texts of the script call that is running stand in the script. The compiler
// installs them; a plug that is handed one of these texts, by address, remembers its place.
#pragma once

#include <utility>
#include <vector>

#include "platform/NRiError.h"
#include "platform/NRiExport.h"

class NRI_API NRiOrigin {
 public:
  using Places = std::vector<std::pair<const char*, NRiPosition>>;
  explicit NRiOrigin(const Places* places);
  ~NRiOrigin();
  NRiOrigin(const NRiOrigin&) = delete;
  NRiOrigin& operator=(const NRiOrigin&) = delete;

  /// The place of a text; line 0 when it is no argument of the call that is running.
  static NRiPosition of(const char* text);

 private:
  const Places* outer_;
};
