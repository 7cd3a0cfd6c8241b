// SPDX-License-Identifier: BSD-3-Clause
//
// Reads the parser. Values by name are told from two of the house's habits: a type such as on|off,
// and help that has a line "name: meaning" for each.
#include "apps/cli/CommandFacts.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <sstream>

namespace orvanite::cli {
namespace {

bool isWord(const std::string& text) {
  return !text.empty() && std::islower(static_cast<unsigned char>(text[0])) &&
         std::all_of(text.begin(), text.end(),
                     [](unsigned char letter) { return std::isalnum(letter) || letter == '-'; });
}

OptionFacts factsOf(const CLI::Option& option) {
  OptionFacts facts;
  facts.positional = option.get_positional();
  facts.group = facts.positional ? "Positionals" : option.get_group();
  if (facts.positional) {
    facts.names.push_back(option.get_name(true));
  } else {
    for (const std::string& name : option.get_snames()) facts.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) facts.names.push_back("--" + name);
    if (option.get_type_size() != 0) {
      facts.type = option.get_type_name();
      facts.repeats = option.get_expected_max() > 1;
    }
  }
  std::istringstream alternatives(facts.type);
  for (std::string word; std::getline(alternatives, word, '|');)
    if (isWord(word)) facts.words.emplace_back(word, "");
  std::istringstream lines(option.get_description());
  for (std::string line; std::getline(lines, line);) {
    const std::size_t colon = line.find(": ");
    if (!facts.help.empty() && colon != std::string::npos && isWord(line.substr(0, colon)))
      facts.words.emplace_back(line.substr(0, colon), line.substr(colon + 2));
    facts.help.push_back(line);
  }
  return facts;
}

CommandFacts factsOf(const CLI::App& command, const std::string& name) {
  CommandFacts facts{name, command.get_description(), {}};
  std::vector<std::string> groups = {"Positionals"};
  std::vector<OptionFacts> all;
  for (const CLI::Option* option : command.get_options()) {
    all.push_back(factsOf(*option));
    if (std::find(groups.begin(), groups.end(), all.back().group) == groups.end())
      groups.push_back(all.back().group);
  }
  for (const std::string& group : groups)
    for (const OptionFacts& option : all)
      if (option.group == group && !group.empty()) facts.options.push_back(option);
  return facts;
}

}  // namespace

bool OptionFacts::takesFile() const { return positional || type.starts_with("FILE"); }

std::vector<CommandFacts> factsOf(const CLI::App& program) {
  std::vector<CommandFacts> all = {factsOf(program, "")};
  for (const CLI::App* command : program.get_subcommands([](const CLI::App*) { return true; }))
    if (!command->get_group().empty()) all.push_back(factsOf(*command, command->get_name()));
  return all;
}

std::string firstSentence(const std::string& text) {
  const std::size_t end = std::min(text.find(". "), text.find_last_not_of(". ") + 1);
  return text.substr(0, end);
}

}  // namespace orvanite::cli
