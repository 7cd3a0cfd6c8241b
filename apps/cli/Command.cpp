// SPDX-License-Identifier: BSD-3-Clause
#include "apps/cli/Command.h"

#include <cstdio>

#include "apps/cli/CommandLine.h"
#include "apps/cli/Commands.h"
#include "apps/cli/Signals.h"

namespace {

bool outputWasLost() { return std::fflush(stdout) != 0 || std::ferror(stdout) != 0; }

}  // namespace

int orvaniteCommand(int count, char** values) {
  using namespace orvanite::cli;
  endCleanlyOnSignals();
  const int code = runCommandLine({values + 1, values + count});
  if (!outputWasLost() || code != success) return code;
  std::fputs("orvanite: standard output: cannot be written, not all was printed\n", stderr);
  return failed;
}
