// SPDX-License-Identifier: BSD-3-Clause
//
// Words of a command line that is shown to be pasted into a shell.
#pragma once

#include <string>

namespace orvanite::cli {

/// As a shell reads it back: in single quotes where it holds anything out of the ordinary.
std::string shellWord(const std::string& text);

}  // namespace orvanite::cli
