// SPDX-License-Identifier: BSD-3-Clause
//
// Everything about options comes from the parser; what no parser knows (exit codes, environment,
// examples) stands here, once.
#include "apps/cli/ManualPages.h"

#include <fmt/format.h>

#include "apps/cli/Examples.h"

namespace orvanite::cli {
namespace {

// Text as troff prints it: hyphens that can be copied, nothing taken for a request.
std::string plain(const std::string& text) {
  std::string out;
  for (const char letter : text) {
    if (letter == '\\') {
      out += "\\e";
    } else if (letter == '-') {
      out += "\\-";
    } else {
      out += letter;
    }
  }
  return out.starts_with('.') || out.starts_with('\'') ? "\\&" + out : out;
}

std::string entry(const OptionFacts& option) {
  std::string out = ".TP\n";
  std::string names;
  for (const std::string& name : option.names) {
    if (!names.empty()) names += ", ";
    names += option.positional ? plain(name) : "\\fB" + plain(name) + "\\fR";
  }
  out += names + (option.type.empty() ? "" : " \\fI" + plain(option.type) + "\\fR") + '\n';
  for (std::size_t i = 0; i < option.help.size(); ++i)
    out += (i == 0 ? "" : ".br\n") + plain(option.help[i]) + '\n';
  return out;
}

std::string optionSections(const CommandFacts& command) {
  std::string out, group;
  for (const OptionFacts& option : command.options) {
    if (option.group != group) {
      group = option.group;
      out += option.positional    ? ".SH ARGUMENTS\n"
             : group == "Options" ? ".SH OPTIONS\n"
                                  : ".SS \"" + plain(group) + "\"\n";
    }
    out += entry(option);
  }
  return out;
}

constexpr const char* exitStatus = R"(.SH "EXIT STATUS"
.TP
0
Done.
.TP
1
Something could not be read, keyed or written; nothing is left half done.
.TP
2
Wrong use: the command line asks for what cannot be.
.TP
3
Frames of a shot are missing.
.TP
4
Some frames of a shot failed; the others are whole.
.TP
130
Stopped by a signal; finished frames are whole.
)";

constexpr const char* environment = R"(.SH ENVIRONMENT
.TP
.B ORVANITE_TARGET
Forces the kernels: sse4, avx2, avx512 or avx512vbmi on x86\-64, neon on AArch64, definition (plain code) everywhere.
All give the same bits. A name that is unknown, or that the processor lacks, is an error.
.TP
.B ORVANITE_PLUGIN_PATH
Folders, separated by colons, in which \fBorvanite run\fR looks for plug\-ins first.
.TP
.B SLURM_CPUS_ON_NODE\fR, \fBCUE_THREADS
A farm task's share of the processors, where \fB\-\-threads\fR is not given.
.TP
.B COLUMNS
Width of help on the terminal, 60 to 100.
)";

std::string examples() {
  std::string text = ".SH EXAMPLES\n";
  for (const Example& one : keyExamples()) {
    text += fmt::format("{}:\n.PP\n.RS\n{}\n.RE\n.PP\n", plain(one.what), plain(one.command));
  }
  return text;
}

ManualPage page(const CommandFacts& command, const std::vector<CommandFacts>& all) {
  const bool program = command.name.empty();
  const std::string name = program ? "orvanite" : "orvanite-" + command.name;
  std::string upper = name;
  for (char& letter : upper)
    if (letter >= 'a' && letter <= 'z') letter = static_cast<char>(letter - 'a' + 'A');
  std::string out = fmt::format(".TH {} 1 \"\" \"Orvanite {}\" \"User Commands\"\n", plain(upper),
                                ORVANITE_VERSION);
  std::string summary = firstSentence(command.summary);
  if (!summary.empty() && summary[0] >= 'A' && summary[0] <= 'Z')
    summary[0] = static_cast<char>(summary[0] - 'A' + 'a');
  out += fmt::format(".SH NAME\n{} \\- {}\n.SH SYNOPSIS\n", plain(name), plain(summary));
  if (program) {
    out += ".B orvanite\n\\fICOMMAND\\fR [\\fIoptions\\fR]\n";
  } else {
    out += ".B orvanite " + command.name + "\n";
    for (const OptionFacts& option : command.options)
      if (option.positional) out += plain(option.names.front()) + ' ';
    out += "[\\fIoptions\\fR]\n";
  }
  out += ".SH DESCRIPTION\n" + plain(command.summary) + '\n';
  if (program) {
    out += ".SH COMMANDS\n";
    for (const CommandFacts& one : all)
      if (!one.name.empty())
        out += fmt::format(".TP\n.BR orvanite\\-{} (1)\n{}\n", one.name, plain(one.summary));
  }
  out += optionSections(command);
  if (program) out += std::string(exitStatus) + environment;
  if (program || command.name == "key") out += examples();
  out += ".SH \"SEE ALSO\"\n";
  std::string others;
  for (const CommandFacts& one : all) {
    if (&one == &command) continue;
    if (!others.empty()) others += ",\n";
    others += ".BR orvanite" + (one.name.empty() ? "" : "\\-" + one.name) + " (1)";
  }
  return {name + ".1", out + others + '\n'};
}

}  // namespace

std::vector<ManualPage> manualPages(const std::vector<CommandFacts>& commands) {
  std::vector<ManualPage> pages;
  pages.reserve(commands.size());
  for (const CommandFacts& command : commands) pages.push_back(page(command, commands));
  return pages;
}

}  // namespace orvanite::cli
