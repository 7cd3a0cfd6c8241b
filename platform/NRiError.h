// SPDX-License-Identifier: BSD-3-Clause
//
// The one exception of the platform: what went wrong, and where in a script when that is known.
#pragma once

#include <stdexcept>
#include <string>

#include "platform/NRiExport.h"

/// A place in a script; line 0 means that there is none. Lines and columns count from 1, columns
/// in bytes.
struct NRiPosition {
  std::string file;  // as it was opened; empty for a text without a file
  int line = 0;      // from 1; 0 where there is no place
  int column = 0;    // from 1, in bytes

  /// "shot.orv:12:8: ", or nothing when there is no place.
  std::string prefix() const {
    if (line <= 0) return {};
    return file + ":" + std::to_string(line) + ":" + std::to_string(column) + ": ";
  }
};

/// Thrown where a value cannot be had: a cycle, a dangling reference, a file that cannot be read.
class NRI_API NRiError : public std::runtime_error {
 public:
  /// A message that points nowhere.
  explicit NRiError(const std::string& message) : std::runtime_error(message) {}
  /// "file:line:column: message"
  NRiError(const NRiPosition& where, const std::string& message)
      : std::runtime_error(where.prefix() + message) {}
};
