// SPDX-License-Identifier: BSD-3-Clause
//
// The command line's words, sorted to subcommands and their options by CLI11.
#include "apps/cli/CommandLine.h"

#include <OpenImageIO/oiioversion.h>
#include <fmt/format.h>
#include <tbb/version.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <exception>
#include <memory>
#include <new>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "apps/cli/Commands.h"
#include "apps/cli/HelpFormat.h"
#include "apps/cli/ParameterOptions.h"
#include "base/Error.h"
#include "engine/targets/Target.h"

namespace orvanite::cli {
namespace {

std::string versionText() {
#if defined(__clang__)
  const std::string compiler = "clang " __clang_version__;
#else
  const std::string compiler = "g++ " __VERSION__;
#endif
#if defined(NDEBUG)
  const char* kind = "release";
#else
  const char* kind = "with assertions";
#endif
  const Target* target = activeTarget();
  return fmt::format(
      "orvanite {}\nkernels: {}\nbuilt {} by {}\nwith OpenImageIO {} and oneTBB {}.{}",
      ORVANITE_VERSION, target != nullptr ? target->name : "none", kind, compiler,
      OIIO_VERSION_STRING, TBB_VERSION_MAJOR, TBB_VERSION_MINOR);
}

// Parameters may be named as presets and scripts name them: --screenRange is --screen-range.
std::string normalised(std::string argument) {
  if (!argument.starts_with("--")) return argument;
  const std::size_t end = std::min(argument.find('='), argument.size());
  return "--" + kebab(std::string_view(argument).substr(2, end - 2)) + argument.substr(end);
}

// An argument that no option and no positional took.
Error unexpected(const CLI::App& command, const std::vector<std::string>& arguments) {
  const auto option = std::find_if(arguments.begin(), arguments.end(), [](const std::string& one) {
    return one.size() > 1 && one[0] == '-';
  });
  if (option == arguments.end()) {
    return Error(Fault::wrongUse, command.get_name(),
                 "one argument too many: '" + arguments.front() + "'");
  }
  const std::string name = option->substr(0, option->find('='));
  std::vector<std::string> known;
  for (const CLI::Option* one : command.get_options()) {
    for (const std::string& longName : one->get_lnames()) known.push_back("--" + longName);
  }
  const std::vector<std::string_view> candidates(known.begin(), known.end());
  std::string message = "there is no such option";
  if (const auto meant = nearest(name, candidates); !meant.empty()) {
    message += fmt::format("; did you mean {}?", meant);
  }
  return Error(Fault::wrongUse, name, message);
}

bool tellInJson = false;

int report(const std::string& message, int code) {
  if (tellInJson) {
    const nlohmann::ordered_json object{{"status", "failed"}, {"code", code}, {"message", message}};
    fmt::print("{}\n", object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
  }
  std::fflush(stdout);
  fmt::print(stderr, "orvanite: {}\n", message);
  return code;
}

}  // namespace

CommandLine::CommandLine(const std::vector<std::string>& words)
    : app_(std::make_unique<CLI::App>(
          "A colour-difference keyer: takes the blue or green screen out of pictures.",
          "orvanite")) {
  CLI::App& app = *app_;
  app.formatter(std::make_shared<HelpFormat>());
  app.set_version_flag("--version", versionText, "Print what was built and exit.");
  app.set_help_flag("-h,--help", "Print this and exit.");

  std::vector<std::pair<CLI::App*, Run>> runs;
  for (const Command& command : commands()) {
    CLI::App* sub = app.add_subcommand(command.name, command.summary);
    if (!command.listed) sub->group("");
    sub->allow_extras();
    sub->fallthrough(false);
    runs.emplace_back(sub, command.declare(*sub));
  }

  // CLI11 takes them from the last to the first.
  std::vector<std::string> arguments(words.rbegin(), words.rend());
  for (std::string& argument : arguments) argument = normalised(argument);
  app.allow_extras();
  try {
    app.parse(arguments);
  } catch (const CLI::Success& done) {
    run_ = [this, done] { return app_->exit(done) == 0 ? success : failed; };
    return;
  } catch (const CLI::ParseError& error) {
    refuse(error.what());
    return;
  }
  for (const auto& [sub, action] : runs) {
    if (!sub->parsed()) continue;
    if (const auto rest = sub->remaining(); !rest.empty()) throw unexpected(*sub, rest);
    run_ = action;
    return;
  }
  if (const auto rest = app.remaining(); !rest.empty()) {
    std::vector<std::string_view> names;
    for (const Command& command : commands()) names.emplace_back(command.name);
    const auto meant = nearest(rest.front(), names);
    refuse(fmt::format(
        "there is no command '{}'{}", rest.front(),
        meant.empty() ? "; orvanite --help lists them" : fmt::format("; did you mean {}?", meant)));
    return;
  }
  run_ = [this] {
    fmt::print("{}", app_->help());
    return wrongUse;
  };
}

CommandLine::~CommandLine() = default;

void CommandLine::refuse(const std::string& message) {
  run_ = [message] { return report(message, wrongUse); };
}

int reported(const std::function<int()>& action) {
  try {
    return action();
  } catch (const Error& error) {
    return report(error.what(), codeOf(error.fault()));
  } catch (const std::bad_alloc&) {
    return report("out of memory", failed);
  } catch (const std::exception& error) {
    return report(error.what(), failed);
  }
}

int runCommandLine(const std::vector<std::string>& words) {
  // Programs that asked for JSON get failures in it, too.
  if (std::find(words.begin(), words.end(), "--json") != words.end()) tellInJson = true;
  return reported([&words] {
    const std::string& problem = targetProblem();
    return problem.empty() ? CommandLine(words).run() : report(problem, wrongUse);
  });
}

}  // namespace orvanite::cli
