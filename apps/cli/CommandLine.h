// SPDX-License-Identifier: BSD-3-Clause
//
// From the words of a command line to what runs with them.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "apps/cli/Commands.h"

namespace CLI {
class App;
}

namespace orvanite::cli {

/// A command line, understood but not run.
class CommandLine {
 public:
  /// Throws Error (wrongUse) about a word that nothing takes.
  explicit CommandLine(const std::vector<std::string>& words);
  ~CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  /// Runs it, or says why it cannot be understood; help and version are runs, too. Returns the exit
  /// code. May throw Error.
  int run() const { return run_(); }

 private:
  void refuse(const std::string& message);

  std::unique_ptr<CLI::App> app_;  // the options that runs look at
  Run run_;
};

/// Turns whatever an action throws into one line on standard error and an exit code.
int reported(const std::function<int()>& action);

/// The whole command, understood, run and reported. Lets no exception through.
///
/// words  without the program's own name
int runCommandLine(const std::vector<std::string>& words);

}  // namespace orvanite::cli
