// SPDX-License-Identifier: BSD-3-Clause
//
// The subcommands of `orvanite`. A new one is a file that defines its declare function, and its
// lines here and in Commands.cpp.
#pragma once

#include <functional>
#include <span>
#include <string>

#include "base/Error.h"

namespace CLI {
class App;
}

namespace orvanite::cli {

/// Exit codes, the same for every subcommand.
enum ExitCode : int {
  success = 0,
  failed = 1,         // something could not be read, keyed or written; nothing is left half done
  wrongUse = 2,       // the command line asks for what cannot be
  missingFrames = 3,  // a shot has frames missing, or none at all
  framesFailed = 4,   // some frames of a shot failed, the others are whole
  cancelled = 130     // stopped by a signal; finished frames are whole
};

/// The code of an error that ends a command.
ExitCode codeOf(Fault fault);

/// Runs a subcommand whose options were parsed, and returns the exit code. May throw Error.
using Run = std::function<int()>;

/// Tells a person where a page is.
void sayAddress(const std::string& address);

struct Command {
  const char* name;
  const char* summary;
  Run (*declare)(CLI::App& command);  // adds options, and returns what runs with them
  bool listed = true;                 // in --help and what is made from it
};

std::span<const Command> commands();

Run declareCompare(CLI::App& command);
Run declareDescribe(CLI::App& command);
Run declareInfo(CLI::App& command);
Run declareKey(CLI::App& command);
Run declareRun(CLI::App& command);
Run declareView(CLI::App& command);

}  // namespace orvanite::cli
