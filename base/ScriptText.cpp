// SPDX-License-Identifier: BSD-3-Clause
#include "base/ScriptText.h"

namespace orvanite {

std::string inQuotes(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      quoted += '\\';
      quoted += c;
    } else if (c == '\n') {
      quoted += "\\n";
    } else if (c == '\t') {
      quoted += "\\t";
    } else {
      quoted += c;
    }
  }
  return quoted + '"';
}

}  // namespace orvanite
