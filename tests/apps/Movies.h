// SPDX-License-Identifier: BSD-3-Clause
//
// Movies for tests, made and looked at with the ffmpeg programs: independent of media.
#pragma once

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/apps/Images.h"
#include "tests/apps/Program.h"

namespace orvanite::test {

using Arguments = std::vector<std::string>;

inline void ffmpeg(const Arguments& arguments) {
  Arguments all{"-y", "-v", "error"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  const Outcome outcome = run(FFMPEG_PROGRAM, all);
  ASSERT_EQ(outcome.code, 0) << outcome.err;
}

/// What ffprobe says of a file's streams.
inline nlohmann::json streamsOf(const std::string& movie) {
  const Outcome outcome =
      run(FFPROBE_PROGRAM, {"-v", "error", "-show_streams", "-of", "json", movie});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  return nlohmann::json::parse(outcome.out)["streams"];
}

inline void expectSame(const std::string& a, const std::string& b) {
  EXPECT_EQ(read(a).samples, read(b).samples) << a << " and " << b;
}

}  // namespace orvanite::test
