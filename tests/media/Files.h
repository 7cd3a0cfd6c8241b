// SPDX-License-Identifier: BSD-3-Clause
//
// Files for tests of media/, made by other people's programs, cut and changed by bytes.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "base/Error.h"
#include "media/Source.h"
#include "tests/apps/Program.h"

namespace orvanite::test {

/// Runs a program with the words of a line, in which @ stands for the folder; must succeed.
inline void make(const Folder& folder, const std::string& program, const std::string& line) {
  const Outcome outcome = run(program, words(folder, line));
  ASSERT_EQ(outcome.code, 0) << line << '\n' << outcome.err;
}
inline void ffmpeg(const Folder& folder, const std::string& line) {
  make(folder, FFMPEG_PROGRAM, "-y -v error " + line);
}
inline void oiiotool(const Folder& folder, const std::string& line) {
  make(folder, OIIOTOOL_PROGRAM, line);
}

inline std::string bytesOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}
inline void writeBytes(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

/// Opens a file and reads all its frames: what the first error says, "" when there is none; and how
/// many frames came before it.
struct ReadThrough {
  std::string error;
  int frames = 0;
};
inline ReadThrough readThrough(const std::string& path) {
  ReadThrough result;
  try {
    const auto source = media::Source::open(path);
    const media::Request request{media::depthOf(source->info().samples), source->info().display, 1,
                                 ""};
    if (!source->isShot()) {
      source->read(1, request);
      ++result.frames;
    }
    for (const int frame : source->frames()) {
      source->read(frame, request);
      ++result.frames;
    }
  } catch (const Error& error) {
    result.error = error.what();
    if (result.error.find('\n') != std::string::npos) ADD_FAILURE() << result.error;
  }
  return result;
}

}  // namespace orvanite::test
