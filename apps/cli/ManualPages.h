// SPDX-License-Identifier: BSD-3-Clause
//
// The manual: orvanite(1) and a page for every subcommand, as troff with the man macros.
#pragma once

#include <string>
#include <vector>

#include "apps/cli/CommandFacts.h"

namespace orvanite::cli {

struct ManualPage {
  std::string fileName;  // "orvanite-key.1"
  std::string text;
};

/// One page a command, in the order of `commands`, whose first is the program itself.
std::vector<ManualPage> manualPages(const std::vector<CommandFacts>& commands);

}  // namespace orvanite::cli
