// SPDX-License-Identifier: BSD-3-Clause
//
// Numbered files.
#include "platform/nodes/NRiFrames.h"

#include <cstdlib>

namespace {

// Length of the number's mark at the start of a text, 0 when there is none; `digits` its width.
std::size_t markLength(std::string_view text, std::size_t& digits) {
  if (text.starts_with("#")) {
    const std::size_t end = text.find_first_not_of('#');
    digits = end == std::string_view::npos ? text.size() : end;
    return digits;
  }
  if (!text.starts_with("%")) return 0;
  std::size_t i = 1;
  if (i < text.size() && text[i] == '0') ++i;
  digits = 0;
  if (i < text.size() && text[i] >= '1' && text[i] <= '9') {
    digits = static_cast<std::size_t>(text[i++] - '0');
  }
  return i < text.size() && text[i] == 'd' ? i + 1 : 0;
}

}  // namespace

std::string NRiFramePath(std::string_view path, int frame) {
  std::string result;
  while (!path.empty()) {
    std::size_t digits = 0;
    const std::size_t length = markLength(path, digits);
    if (length == 0) {
      result += path.front();
      path.remove_prefix(1);
      continue;
    }
    const std::string number = std::to_string(std::abs(static_cast<long>(frame)));
    if (frame < 0) result += '-';
    if (number.size() < digits) result.append(digits - number.size(), '0');
    result += number;
    path.remove_prefix(length);
  }
  return result;
}

bool NRiIsSequence(std::string_view path) { return NRiFramePath(path, 1) != NRiFramePath(path, 2); }
