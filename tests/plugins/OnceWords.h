// SPDX-License-Identifier: BSD-3-Clause
//
// What follows WIDTH HEIGHT IN.raw OUT.raw for the programs that key one frame in a host.
#pragma once

#include <string>
#include <utility>
#include <vector>

/// Their options.
struct OnceWords {
  bool automatic = false;                                     ///< --auto
  std::vector<std::pair<std::string, std::string>> settings;  ///< NAME=VALUE

  OnceWords(int count, char** words) {
    for (int i = 5; i < count; ++i) {
      const std::string word = words[i];
      automatic = automatic || word == "--auto";
      const auto is = word.find('=');
      if (is != std::string::npos) settings.emplace_back(word.substr(0, is), word.substr(is + 1));
    }
  }
};
