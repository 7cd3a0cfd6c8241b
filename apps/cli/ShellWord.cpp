// SPDX-License-Identifier: BSD-3-Clause
#include "apps/cli/ShellWord.h"

namespace orvanite::cli {

std::string shellWord(const std::string& text) {
  const char* plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./,:+@%=";
  if (!text.empty() && text.find_first_not_of(plain) == std::string::npos) return text;
  std::string word = "'";
  for (const char letter : text) {
    if (letter == '\'') word += "'\\'";
    word += letter;
  }
  word += '\'';
  return word;
}

}  // namespace orvanite::cli
