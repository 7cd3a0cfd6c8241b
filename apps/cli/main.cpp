// SPDX-License-Identifier: BSD-3-Clause
//
// The `orvanite` command.
#include "apps/cli/CommandLine.h"
#include "apps/cli/Signals.h"

int main(int count, char** values) {
  orvanite::cli::endCleanlyOnSignals();
  return orvanite::cli::runCommandLine({values + 1, values + count});
}
