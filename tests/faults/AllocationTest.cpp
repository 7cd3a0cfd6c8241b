// SPDX-License-Identifier: BSD-3-Clause
//
// Memory that runs out at every allocation of ours in turn, through whole commands. Each runs in a
// process of its own that is forked off when its command line is understood: it ends well with the
// right output, or with one line, a code and no output; it never crashes.
//
// Not while the command line is understood: CLI11 copies texts in functions that may not throw, and
// ends the program there, before anything is opened. Nor while a plug-in is loaded: the language
// lets no exception out of the static objects that register it.
//
// ORVANITE_FAULT_STEP tries every so many-th allocation: 1 for all of them.
#include <execinfo.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iterator>

#include "apps/cli/CommandLine.h"
#include "platform/NRiPlugins.h"
#include "tests/apps/Images.h"
#include "tests/apps/Program.h"
#include "tests/faults/FailingNew.h"

namespace orvanite::test {
namespace {

using Words = std::vector<std::string>;

// Of the child, when nothing failed.
constexpr int nothingFailed = 99;

int step() {
  const char* text = std::getenv("ORVANITE_FAULT_STEP");
  return text != nullptr ? std::max(1, std::atoi(text)) : 29;
}

// Pictures are written by a process of their own: OpenImageIO's threads start with the first, and
// one that is lost in a fork may hold a lock for ever.
void writeApart(const Image& image, const std::string& path) {
  const pid_t child = ::fork();
  if (child == 0) {
    write(image, path);
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  ASSERT_EQ(status, 0) << path;
}

// Where an exception was let go.
[[noreturn]] void sayWhere() {
  std::array<void*, 32> stack;
  ::backtrace_symbols_fd(stack.data(), ::backtrace(stack.data(), 32), 2);
  std::abort();
}

Outcome starved(const Words& words, long number, Failing failing, const std::string& messages) {
  const pid_t child = ::fork();
  if (child == 0) {
    const int file = ::open(messages.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
    ::dup2(file, 1);
    ::dup2(file, 2);
    ::alarm(120);
    std::set_terminate(sayWhere);
    const cli::CommandLine line(words);
    NRiPlugins::loadAll();
    const int code = cli::reported([&] {
      failAllocation(number, failing);
      return line.run();
    });
    std::fflush(stdout);
    ::_exit(code == 0 && !allocationFailed() ? nothingFailed : code);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  Outcome outcome;
  outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  outcome.err = contents(messages);
  return outcome;
}

// Until nothing failed any more.
void starveEach(const Words& words, const Folder& out, const std::string& output) {
  const Folder said;
  const Outcome fed = starved(words, -1, Failing::once, said / "said");
  ASSERT_EQ(fed.code, nothingFailed) << fed.err;
  const std::string whole = contents(output);
  ASSERT_FALSE(whole.empty());
  long tried = 0;
  for (const Failing failing : {Failing::once, Failing::fromThenOn}) {
    for (long number = failing == Failing::once ? 0 : step() / 2;; number += step()) {
      std::filesystem::remove(output);
      const Outcome outcome = starved(words, number, failing, said / "said");
      SCOPED_TRACE("allocation " + std::to_string(number) +
                   (failing == Failing::once ? "" : " and later") + ": " + outcome.err);
      if (outcome.code == nothingFailed) break;
      ++tried;
      if (outcome.code == 0) {
        EXPECT_EQ(contents(output), whole);
        std::filesystem::remove(output);
      } else {
        EXPECT_EQ(outcome.code, cli::failed);
        EXPECT_EQ(outcome.err.rfind("orvanite: ", 0), 0U);
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1);
        // Telling of a frame may fail as well, when it is there already.
        if (contents(output) == whole) std::filesystem::remove(output);
      }
      EXPECT_TRUE(out.names().empty()) << out.names().front();
      if (::testing::Test::HasFailure()) return;
    }
  }
  EXPECT_GT(tried, 0);
  std::printf("%ld allocations failed\n", tried);
}

TEST(Starved, AKeyEndsCleanly) {
  const Folder in;
  const Folder out;
  writeApart(randomImage(40, 30, 3, OIIO::TypeDesc::UINT8, 1), in / "fg.png");
  writeApart(randomImage(40, 30, 4, OIIO::TypeDesc::UINT16, 2), in / "bg.tif");
  starveEach({"key", "-q", "--threads", "2", in / "fg.png", "--bg", in / "bg.tif", "--hold-out",
              in / "bg.tif", "--screen", "0.1,0.7,0.2", "-o", out / "out.png"},
             out, out / "out.png");
}

TEST(Starved, ARunEndsCleanly) {
  const Folder in;
  const Folder out;
  writeApart(randomImage(40, 30, 3, OIIO::TypeDesc::UINT8, 1), in / "fg.png");
  std::ofstream(in / "key.orv") << "fg = FileIn(\"" + (in / "fg.png") + "\");\n"
                                << "k = Orvanite(fg, fg);\no = FileOut(k, \"" + (out / "out.png") +
                                       "\");\n";
  starveEach({"run", "-q", "--threads", "2", in / "key.orv"}, out, out / "out.png");
}

}  // namespace
}  // namespace orvanite::test
