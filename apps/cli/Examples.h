// SPDX-License-Identifier: BSD-3-Clause
//
// What people type first: the head of `orvanite key --help`, and the examples of its manual page.
#pragma once

#include <span>

namespace orvanite::cli {

struct Example {
  const char* what;     // it is for, as a heading
  const char* command;  // that can be pasted into a shell
};

std::span<const Example> keyExamples();

}  // namespace orvanite::cli
