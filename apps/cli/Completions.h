// SPDX-License-Identifier: BSD-3-Clause
//
// Completion of the command line in bash, zsh and fish: commands, options, values by name, files.
#pragma once

#include <string>
#include <vector>

#include "apps/cli/CommandFacts.h"

namespace orvanite::cli {

/// Each returns a whole file, to be sourced by its shell. `commands` is what factsOf returns.
std::string bashCompletion(const std::vector<CommandFacts>& commands);
std::string zshCompletion(const std::vector<CommandFacts>& commands);
std::string fishCompletion(const std::vector<CommandFacts>& commands);

}  // namespace orvanite::cli
