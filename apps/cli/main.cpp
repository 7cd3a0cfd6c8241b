// SPDX-License-Identifier: BSD-3-Clause
//
// The `orvanite` command.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "apps/cli/CommandLine.h"
#include "apps/cli/Commands.h"
#include "apps/cli/Signals.h"

namespace {

// A stream that was closed at the start leaves its number to the next file that is opened, a
// picture perhaps, and what is printed would land in there. It is taken by what fails to be used.
void holdStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(stream, F_GETFD) >= 0 || errno != EBADF) continue;
    static_cast<void>(::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY));
  }
}

bool outputWasLost() { return std::fflush(stdout) != 0 || std::ferror(stdout) != 0; }

}  // namespace

int main(int count, char** values) {
  using namespace orvanite::cli;
  holdStandardStreams();
  endCleanlyOnSignals();
  const int code = runCommandLine({values + 1, values + count});
  if (!outputWasLost() || code != success) return code;
  std::fputs("orvanite: standard output: cannot be written, not all was printed\n", stderr);
  return failed;
}
