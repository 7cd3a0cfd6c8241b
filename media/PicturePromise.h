// SPDX-License-Identifier: BSD-3-Clause
//
// What a picture's header promises, read by ourselves before a library opens the file: several
// libraries fill up what a file lacks, and some take memory for whatever a header says.
// Uses the standard library only.
#pragma once

#include <cstdint>
#include <string>

namespace orvanite::media {

struct PicturePromise {
  std::int64_t width = 0, height = 0;  // 0: only the library can tell
  std::uint64_t bytes = 0;             // that the file must have at the least
  const char* fault = nullptr;         // what is wrong with the header beyond that
};

/// Of a file in a format, by OpenImageIO's name. Never throws for what the file holds: where the
/// header makes no sense nothing is promised, and the library has the word.
PicturePromise promiseOf(const std::string& path, const std::string& format);

}  // namespace orvanite::media
