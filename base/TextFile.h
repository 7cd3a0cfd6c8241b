// SPDX-License-Identifier: BSD-3-Clause
//
// The small text files that people write: presets and scripts.
// Uses the standard library only.
#pragma once

#include <cstddef>
#include <string>

namespace orvanite {

/// More bytes than any preset or script may have: their readers refuse the rest of a longer one.
inline constexpr std::size_t textFileLimit = (std::size_t{1} << 20) + 1;

/// The first textFileLimit bytes of a file, or all of it. A pipe will do, and one without an end.
/// Throws Error (noSuchFile) "PATH: MISSING" when it cannot be opened, or is a folder.
std::string readTextFile(const std::string& path, const std::string& missing);

}  // namespace orvanite
