// SPDX-License-Identifier: BSD-3-Clause
//
// What the command line consists of, read back from the parser: the manual pages and the shells'
// completions are made from this, as --help is made from the parser, so none of them goes stale.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
}

namespace orvanite::cli {

struct OptionFacts {
  std::vector<std::string>
      names;                      // with their dashes, short ones first; a positional: its one name
  std::string group;              // the heading that --help puts it under
  std::string type;               // what --help prints behind the names; empty for a flag
  std::vector<std::string> help;  // lines of --help, not wrapped
  std::vector<std::pair<std::string, std::string>> words;  // values by name, and what each means
  bool positional = false;
  bool repeats = false;  // an option that may be given again and again

  bool takesFile() const;
};

struct CommandFacts {
  std::string name;  // "key"; empty for the program itself
  std::string summary;
  std::vector<OptionFacts> options;  // positionals first, then by group, as --help has them
};

/// The program itself and then every subcommand that --help lists.
std::vector<CommandFacts> factsOf(const CLI::App& program);

/// The first sentence, without its full stop.
std::string firstSentence(const std::string& text);

}  // namespace orvanite::cli
