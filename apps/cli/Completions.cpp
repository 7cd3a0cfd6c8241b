// SPDX-License-Identifier: BSD-3-Clause
//
// Each shell's file is the same facts in that shell's words. Texts come from the parser's help, so
// all are quoted for the shell that reads them.
#include "apps/cli/Completions.h"

#include <fmt/format.h>

#include <algorithm>

namespace orvanite::cli {
namespace {

std::string summaryOf(const OptionFacts& option) {
  return option.help.empty() ? "" : firstSentence(option.help.front());
}

// A word in single quotes, as all three shells read it.
std::string quoted(const std::string& text) {
  std::string out = "'";
  for (const char letter : text) out += letter == '\'' ? "'\\''" : std::string(1, letter);
  return out + "'";
}

std::string wordsOf(const OptionFacts& option) {
  std::string out;
  for (const auto& [word, meaning] : option.words) out += (out.empty() ? "" : " ") + word;
  return out;
}

// Backslashes before what would end a part of a zsh specification.
std::string zshPart(const std::string& text) {
  std::string out;
  for (const char letter : text) {
    if (letter == ':' || letter == '[' || letter == ']' || letter == '\\') out += '\\';
    out += letter;
  }
  return out;
}

// What zsh offers as a value; a blank says that there is nothing to offer.
std::string zshValues(const OptionFacts& option) {
  if (option.words.empty()) return option.takesFile() ? "_files" : " ";
  return "(" + wordsOf(option) + ")";
}

}  // namespace

std::string bashCompletion(const std::vector<CommandFacts>& commands) {
  std::string names, options, values;
  for (const CommandFacts& command : commands) {
    if (!command.name.empty()) names += (names.empty() ? "" : " ") + command.name;
    std::string all;
    for (const OptionFacts& option : command.options) {
      if (option.positional) continue;
      std::string cases;
      for (const std::string& name : option.names) {
        all += (all.empty() ? "" : " ") + name;
        cases += (cases.empty() ? "" : "|") + command.name + ':' + name;
      }
      if (!option.words.empty()) {
        values += fmt::format("    {}) words='{}' ;;\n", cases, wordsOf(option));
      } else if (option.takesFile()) {
        values += fmt::format("    {}) files=yes ;;\n", cases);
      } else if (!option.type.empty()) {
        values += fmt::format("    {}) return ;;\n", cases);
      }
    }
    options += fmt::format("      {}) words='{}' ;;\n", quoted(command.name), all);
  }
  return fmt::format(R"(# bash completion for orvanite; made from its own options
_orvanite() {{
  local current=${{COMP_WORDS[COMP_CWORD]}} previous=${{COMP_WORDS[COMP_CWORD-1]}} command= words= files=
  COMPREPLY=()
  # bash makes "=" a word of its own.
  if [[ $current == = ]]; then
    current=
  elif [[ $previous == = ]] && ((COMP_CWORD > 1)); then
    previous=${{COMP_WORDS[COMP_CWORD-2]}}
  fi
  ((COMP_CWORD > 1)) && command=${{COMP_WORDS[1]}}
  case $command:$previous in
{}    *) files=maybe ;;
  esac
  if [[ $files == maybe && $current == -* ]]; then
    case $command in
{}    esac
    files=
  elif [[ $files == maybe && -z $command ]]; then
    words='{}' files=
  fi
  if [[ -n $files ]]; then
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  else
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
  fi
}}
complete -F _orvanite orvanite
)",
                     values, options, names);
}

std::string zshCompletion(const std::vector<CommandFacts>& commands) {
  std::string names, cases;
  for (const CommandFacts& command : commands) {
    if (!command.name.empty())
      names += "    " + quoted(zshPart(command.name) + ':' + firstSentence(command.summary)) + '\n';
    std::string arguments;
    for (const OptionFacts& option : command.options) {
      if (option.positional) continue;
      std::string others;
      for (const std::string& name : option.names) others += (others.empty() ? "" : " ") + name;
      const std::string tail =
          '[' + zshPart(summaryOf(option)) + ']' +
          (option.type.empty() ? "" : ':' + zshPart(option.type) + ':' + zshValues(option));
      for (const std::string& name : option.names)
        arguments +=
            " \\\n        " + quoted((option.repeats ? "*" : '(' + others + ')') + name + tail);
    }
    if (command.name.empty()) {
      cases = fmt::format(
                  "  _arguments -C{} \\\n        '1:command:->command' '*::argument:->argument'\n",
                  arguments) +
              "  case $state in\n    command) _describe command commands; return ;;\n"
              "    argument) ;;\n    *) return ;;\n  esac\n  case $words[1] in\n";
    } else {
      cases += fmt::format("    {})\n      _arguments{} \\\n        '*:file:_files'\n      ;;\n",
                           command.name, arguments);
    }
  }
  return fmt::format(R"(#compdef orvanite
# zsh completion for orvanite; made from its own options
_orvanite() {{
  local curcontext=$curcontext state line
  local -a commands
  commands=(
{}  )
{}  esac
}}
_orvanite "$@"
)",
                     names, cases);
}

std::string fishCompletion(const std::vector<CommandFacts>& commands) {
  std::string out = "# fish completion for orvanite; made from its own options\n";
  for (const CommandFacts& command : commands) {
    const std::string when = command.name.empty() ? "__fish_use_subcommand"
                                                  : "__fish_seen_subcommand_from " + command.name;
    if (!command.name.empty())
      out += fmt::format("complete -c orvanite -f -n __fish_use_subcommand -a {} -d {}\n",
                         command.name, quoted(firstSentence(command.summary)));
    for (const OptionFacts& option : command.options) {
      if (option.positional) continue;
      out += "complete -c orvanite -n " + quoted(when);
      for (const std::string& name : option.names)
        out += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
      if (!option.type.empty()) out += option.takesFile() ? " -r -F" : " -x";
      if (!option.words.empty()) out += " -a " + quoted(wordsOf(option));
      out += " -d " + quoted(summaryOf(option)) + '\n';
    }
  }
  return out;
}

}  // namespace orvanite::cli
