// SPDX-License-Identifier: BSD-3-Clause
//
// The one exception of the platform: what went wrong, and where in a script when that is known.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/NRiExport.h"

/// A place in a script; line 0 means that there is none. Lines and columns count from 1, columns
/// in bytes.
struct NRiPosition {
  std::string file;  // as it was opened; empty for a text without a file
  int line = 0;      // from 1; 0 where there is no place
  int column = 0;    // from 1, in bytes
  // Of the text in quotes that begins here, as it stands in the script; empty where it holds no
  // backslash, so that its bytes are the script's.
  std::string written = {};

  /// "shot.orv:12:8: ", or nothing when there is no place.
  std::string prefix() const {
    if (line <= 0) return {};
    return file + ":" + std::to_string(line) + ":" + std::to_string(column) + ": ";
  }

  /// The place of byte `offset` of a text that begins here.
  NRiPosition after(std::string_view text, std::size_t offset) const {
    NRiPosition place{file, line, column};
    if (line <= 0) return place;
    const std::string_view source = written.empty() ? text : written;
    for (std::size_t i = 0, at = 0; i < offset && at < source.size(); ++i) {
      const int bytes = !written.empty() && source[at] == '\\' ? 2 : 1;
      const bool breaks = source[at] == '\n';
      place.line += breaks ? 1 : 0;
      place.column = breaks ? 1 : place.column + bytes;
      at += static_cast<std::size_t>(bytes);
    }
    return place;
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
