// SPDX-License-Identifier: BSD-3-Clause
//
// `orvanite view`: opens the page on a plate and serves it until it is stopped.
#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "apps/cli/ColourOptions.h"
#include "apps/cli/Commands.h"
#include "apps/cli/ParameterOptions.h"
#include "apps/cli/SaveScript.h"
#include "apps/cli/ShellWord.h"
#include "apps/view/View.h"
#include "base/Error.h"
#include "keyer/MaskFile.h"
#include "keyer/Preset.h"

namespace orvanite::cli {
namespace {

using shot::Role;

struct ViewCommandOptions {
  shot::ShotFiles files;

  std::string& file(shot::Role role) { return files.clips[role].path; }
  const std::string& file(shot::Role role) const { return files.clips[role].path; }
  std::string output, preset, masks;
  int port = 0;
  int cacheMebibytes = 1024;
  bool noOpen = false;
  ParameterOptions parameters;
  ColourOptions colours;
};

// Where a render goes that is not the page's own.
std::string outputOf(const ViewCommandOptions& options) {
  return options.output.empty() ? "key.png" : options.output;
}

// Where what the page hands out writes to: the folder that it is used in, if nobody said where.
std::string outputAnywhere(const ViewCommandOptions& options) {
  return options.output.empty()
             ? outputOf(options)
             : std::filesystem::absolute(options.output).lexically_normal().string();
}

// What follows `orvanite` on the command line that keys the same into a file.
std::vector<std::string> argumentsFor(const ViewCommandOptions& options,
                                      const shot::ShotFiles& files, const Settings& settings,
                                      const std::string& masks, const std::string& output) {
  std::vector<std::string> arguments{"key", files.clips[Role::plate].path};
  const auto file = [&](const char* option, Role role) {
    const std::string& path = files.clips[role].path;
    if (!path.empty()) arguments.insert(arguments.end(), {option, path});
  };
  file("--bg", Role::background);
  file("--hold-out", Role::holdOut);
  file("--garbage", Role::garbage);
  file("--reference", Role::cleanPlate);
  if (!masks.empty()) arguments.insert(arguments.end(), {"--masks", masks});
  for (const std::string& word : options.colours.words(true)) arguments.push_back(word);
  for (const std::string& option : optionsFor(settings)) arguments.push_back(option);
  arguments.insert(arguments.end(), {"-o", output});
  return arguments;
}

std::string commandFor(const ViewCommandOptions& options, const shot::ShotFiles& files,
                       const Settings& settings, const std::string& masks) {
  std::string line = "orvanite";
  for (const std::string& argument :
       argumentsFor(options, files, settings, masks, outputAnywhere(options))) {
    line += ' ' + shellWord(argument);
  }
  return line;
}

std::string scriptFor(const ViewCommandOptions& options, const shot::ShotFiles& files,
                      const Settings& settings, media::Samples samples) {
  if (!files.clips[Role::cleanPlate].path.empty() && settings.toggle("useReference")) {
    throw Error(Fault::wrongUse, "script", "a script cannot hold a clean plate");
  }
  if (!options.colours.words().empty()) {
    throw Error(Fault::wrongUse, "script", "a script cannot hold colour spaces");
  }
  return scriptOf(settings,
                  {files.clips,
                   outputAnywhere(options),
                   shot::usualAlpha(settings.text("output")),
                   shot::PastEnd::hold,
                   {},
                   {}},
                  samples);
}

int runView(const ViewCommandOptions& options) {
  if (options.file(Role::plate).empty()) {
    throw Error(Fault::wrongUse, "view", "expected a plate: orvanite view PLATE");
  }
  if (options.port < 0 || options.port > 65535) {
    throw Error::expected(Fault::wrongUse, "--port", "a number from 0 to 65535",
                          std::to_string(options.port));
  }
  if (options.cacheMebibytes < 1 || options.cacheMebibytes > 1 << 20) {
    throw Error::expected(Fault::wrongUse, "--cache", "a number from 1 to 1048576",
                          std::to_string(options.cacheMebibytes));
  }
  view::ViewOptions view;
  view.files = options.files;
  view.output = options.output;
  view.colours = options.colours.path();
  view.port = options.port;
  view.cacheBytes = static_cast<std::size_t>(options.cacheMebibytes) << 20;
  const bool desktop =
      std::getenv("DISPLAY") != nullptr || std::getenv("WAYLAND_DISPLAY") != nullptr;
  view.openBrowser = desktop && !options.noOpen;
  if (!options.preset.empty()) view.settings = settingsFromPresetFile(options.preset);
  options.parameters.apply(view.settings);
  if (!options.masks.empty()) view.masks = masksFromFile(options.masks);
  view.exports.arguments = [&](const shot::ShotFiles& given, const Settings& settings,
                               const std::string& masks, const std::string& output) {
    return argumentsFor(options, given, settings, masks, output);
  };
  view.exports.command = [&](const shot::ShotFiles& given, const Settings& settings,
                             const std::string& masks) {
    return commandFor(options, given, settings, masks);
  };
  view.exports.script = [&](const shot::ShotFiles& given, const Settings& settings,
                            media::Samples samples) {
    return scriptFor(options, given, settings, samples);
  };
  view.started = sayAddress;
  view::view(view);
  return success;
}

}  // namespace

Run declareView(CLI::App& command) {
  auto options = std::make_shared<ViewCommandOptions>();
  const char* files = "Files";
  command.add_option(
      "PLATE", options->file(Role::plate),
      "The picture to key, in any format that OpenImageIO reads, or a numbered sequence such as "
      "plate.####.exr, or a movie that FFmpeg decodes.");
  const auto path = [&](const char* names, std::string& to, const char* help) {
    command.add_option(names, to, help)->group(files)->type_name("FILE")->take_last();
  };
  path("-o,--out", options->output,
       "Where the page's renders go; for a shot a pattern such as key.####.exr, or a movie. "
       "[default: the page hands them over as a download]");
  path("--bg,--background-picture", options->file(Role::background),
       "Background picture for the view composite.");
  path("--hold-out", options->file(Role::holdOut), "Hold-out matte: white keeps the foreground.");
  path("--garbage", options->file(Role::garbage), "Garbage matte: white cuts away.");
  path("--reference", options->file(Role::cleanPlate),
       "Clean plate: the screen without the subject (8- and 16-bit plates).");
  path("--masks", options->masks,
       "Masks to start with, as the page saves them: they lie over the picture.");
  path("--preset", options->preset, "Parameters to start with, from a preset; options go over it.");
  const char* serving = "Serving";
  command
      .add_option("--port", options->port, "Port of 127.0.0.1. [0 to 65535, default any free one]")
      ->group(serving)
      ->type_name("N")
      ->take_last();
  command
      .add_option("--cache", options->cacheMebibytes,
                  "Memory for decoded pictures in MiB. [default 1024]")
      ->group(serving)
      ->type_name("N")
      ->take_last();
  command
      .add_flag("--no-open", options->noOpen, "Do not open the browser; print the address only.")
      ->group(serving);
  options->colours.addTo(command);
  options->parameters.addTo(command);
  return [options] { return runView(*options); };
}

}  // namespace orvanite::cli
