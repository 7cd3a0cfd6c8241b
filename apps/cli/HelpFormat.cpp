// SPDX-License-Identifier: BSD-3-Clause
//
// Help is laid out for a terminal of 100 columns, or of $COLUMNS where that is less.
#include "apps/cli/HelpFormat.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "apps/cli/Examples.h"

namespace orvanite::cli {
namespace {

constexpr std::size_t leftColumn = 30;

std::size_t lineWidth() {
  const char* columns = std::getenv("COLUMNS");
  const int width = columns == nullptr ? 100 : std::atoi(columns);
  return static_cast<std::size_t>(std::clamp(width, 60, 100));
}

}  // namespace

HelpFormat::HelpFormat() { column_width(leftColumn); }

std::string HelpFormat::make_option(const CLI::Option* option, bool isPositional) const {
  std::string out = "  " + make_option_name(option, isPositional) + make_option_opts(option);
  // The description starts on a line of its own where the names leave no room beside them.
  std::size_t column = out.size();
  if (column + 2 > leftColumn) {
    out += '\n';
    column = 0;
  }
  out.append(leftColumn - column, ' ');
  column = leftColumn;
  std::istringstream lines(make_option_desc(option));
  bool firstLine = true;
  for (std::string line; std::getline(lines, line); firstLine = false) {
    if (!firstLine) {
      out += '\n' + std::string(leftColumn, ' ');
      column = leftColumn;
    }
    std::istringstream words(line);
    for (std::string word; words >> word;) {
      if (column > leftColumn && column + 1 + word.size() > lineWidth()) {
        out += '\n' + std::string(leftColumn, ' ');
        column = leftColumn;
      } else if (column > leftColumn) {
        out += ' ';
        ++column;
      }
      out += word;
      column += word.size();
    }
  }
  return out + '\n';
}

std::string HelpFormat::make_option_opts(const CLI::Option* option) const {
  const std::string type = option->get_type_name();
  return option->get_type_size() == 0 || option->get_positional() || type.empty() ? "" : " " + type;
}

std::string HelpFormat::make_usage(const CLI::App* app, std::string name) const {
  if (app->get_parent() == nullptr) return "\nUsage: " + name + " COMMAND [options]\n";
  std::string usage = "\nUsage: " + name;
  for (const CLI::Option* option : app->get_options()) {
    if (option->get_positional()) usage += ' ' + option->get_name(true);
  }
  usage += " [options]";
  if (app->get_option_no_throw("--out") != nullptr) usage += " -o OUT";
  usage += '\n';
  if (app->get_name() == "key") {
    usage += "\nExamples:\n";
    for (const Example& one : keyExamples()) {
      usage += std::string("  ") + one.what + ":\n      " + one.command + '\n';
    }
  }
  return usage;
}

std::string HelpFormat::make_help(const CLI::App* app, std::string name,
                                  CLI::AppFormatMode mode) const {
  std::string help = CLI::Formatter::make_help(app, std::move(name), mode);
  for (std::size_t gap; (gap = help.find("\n\n\n")) != std::string::npos;) help.erase(gap, 1);
  return help;
}

}  // namespace orvanite::cli
