// SPDX-License-Identifier: BSD-3-Clause
//
// What the command loads before it does anything, and when it loads the rest.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/apps/Images.h"
#include "tests/apps/Program.h"

namespace orvanite::test {
namespace {

// The libraries that a command loaded, by the dynamic linker's own account; not what stands in for
// others, which has a folder of its own.
std::string loadedBy(const Folder& folder, const std::string& line, bool refused) {
  const Outcome outcome = orvanite(words(folder, line), {"LD_DEBUG=files"});
  EXPECT_EQ(outcome.code, refused ? 2 : 0);
  std::istringstream said(outcome.err);
  std::string loaded;
  for (std::string one; std::getline(said, one);) {
    if (one.find("calling init: ") == std::string::npos) continue;
    if (one.find("/stand-ins/") == std::string::npos) loaded += one + "\n";
  }
  return loaded;
}

TEST(Start, LoadsFFmpegWhereThereIsAMovie) {
  const Folder folder;
  write(randomImage(16, 16, 3, OIIO::TypeDesc::UINT8, 1), folder / "p.png");
  write(randomImage(16, 16, 3, OIIO::TypeDesc::HALF, 1), folder / "p.exr");
  struct Case {
    std::string line;
    bool movie, refused = false;
  };
  const std::vector<Case> cases{
      {"--version", false},
      {"--help", false},
      {"key --help", false},
      {"key --nonsense", false, true},
      {"key @p.png --screen nonsense -o @o.png", false, true},
      {"info @p.png", false},
      {blueKeyWords + "@p.png -o @o.png", false},
      {blueKeyWords + "@p.exr --bg @p.png -o @o.exr", false},
      {"compare @p.png @p.png", false},
      {blueKeyWords + "@p.png -o @m.mkv", true},
      {"info @m.mkv", true},
      {blueKeyWords + "@m.mkv --bg @p.png -o @o.png", true},
  };
  for (const auto& [line, movie, refused] : cases) {
    SCOPED_TRACE(line);
    const std::string loaded = loadedBy(folder, line, refused);
    EXPECT_NE(loaded.find("/libc.so"), std::string::npos) << "says nothing";
    EXPECT_NE(loaded.find("/liborvanite-command.so"), std::string::npos);
    for (const char* library : {"/libavcodec.so", "/libavformat.so", "/libavutil.so"}) {
      EXPECT_EQ(loaded.find(library) != std::string::npos, movie) << library;
    }
  }
}

}  // namespace
}  // namespace orvanite::test
