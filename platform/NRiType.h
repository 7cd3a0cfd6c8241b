// SPDX-License-Identifier: BSD-3-Clause
//
// The types of plugs and of script values, and the value that a script call returns.
#pragma once

#include "platform/NRiExport.h"
#include "platform/NRiName.h"

class NRiIPlug;

/// Codes of plug types.
enum NRiId : int {
  nriNull = 0,
  nriInt = 6,
  nriFloat = 10,
  nriImage = 12,
  nriPointer = 13,
  nriString = 25,
};

/// A type of the script language.
class NRI_API NRiType {
 public:
  /// The type of a code.
  constexpr explicit NRiType(NRiId id) : id_(id) {}
  /// Its code.
  constexpr NRiId id() const { return id_; }
  /// The type of what has no value.
  static const NRiType null;

 private:
  NRiId id_;
};

/// What a script, or its last statement, came to: nothing, a number, a text or an image.
struct NRiValue {
  NRiId type = nriNull;       // which of the others counts
  double number = 0;          // a number's
  NRiName text;               // a text's
  NRiIPlug* image = nullptr;  // an image's; the script's nodes own it
};
