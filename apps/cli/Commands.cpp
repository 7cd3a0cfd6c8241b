// SPDX-License-Identifier: BSD-3-Clause
//
// The list of subcommands, in the order in which help shows them.
#include "apps/cli/Commands.h"

#include <fmt/format.h>

#include <cstdio>

namespace orvanite::cli {
namespace {

constexpr Command list[] = {
    {"key", "Key a picture shot against a blue or green screen.", declareKey},
#ifdef ORVANITE_WITH_NODE
    {"run", "Render what a script describes.", declareRun},
#endif
    {"info", "Say what plates are and what the keyer takes them for.", declareInfo},
    {"compare", "Say how far two pictures are from one another.", declareCompare},
    {"view", "See the key in a browser while its parameters move.", declareView},
    {"describe", "Write the manual and the shells' completions.", declareDescribe, false},
};

}  // namespace

std::span<const Command> commands() { return list; }

void sayAddress(const std::string& address) {
  fmt::print("Open this address in a browser on this machine; Ctrl-C ends.\n{}\n", address);
  std::fflush(stdout);
}

ExitCode codeOf(Fault fault) {
  return fault == Fault::wrongUse        ? wrongUse
         : fault == Fault::missingFrames ? missingFrames
                                         : failed;
}

}  // namespace orvanite::cli
