// SPDX-License-Identifier: BSD-3-Clause
#include "apps/cli/ColourOptions.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "base/Error.h"

namespace orvanite::cli {

void ColourOptions::addTo(CLI::App& command) {
  const auto text = [&](const char* type, const char* name, std::string& to, const char* help) {
    command.add_option(name, to, help)->group("Colour spaces")->type_name(type)->take_last();
  };
  text("FILE", "--ocio", config_,
       "OpenColorIO configuration that the spaces below are from. [default $OCIO]");
  text("SPACE", "--input-space", input_,
       "The plate's colour space, by name or role. It is keyed in float then. [default none: codes "
       "are keyed as they are]");
  text("SPACE", "--bg-space", background_, "The background's. [default --input-space's]");
  text("SPACE", "--working-space", working_,
       "The space to key in: --screen and other colours are in it. [default scene_linear]");
  text("SPACE", "--output-space", output_,
       "The space to write colours in; matte and status have none. [default --input-space's]");
}

media::ColourPath ColourOptions::path() const {
  media::ColourPath path;
  if (input_.empty()) {
    for (const auto& [name, value] : {std::pair{"--ocio", &config_},
                                      {"--bg-space", &background_},
                                      {"--working-space", &working_},
                                      {"--output-space", &output_}}) {
      if (!value->empty()) {
        throw Error(Fault::wrongUse, name, "expected --input-space, the plate's space, with it");
      }
    }
    return path;
  }
  const char* fromEnvironment = std::getenv("OCIO");
  std::string config = config_;
  if (config.empty() && fromEnvironment != nullptr) config = fromEnvironment;
  if (config.empty()) {
    throw Error(Fault::wrongUse, "--input-space",
                "expected an OpenColorIO configuration: --ocio FILE, or $OCIO");
  }
  const media::ColourSpaces spaces(config);
  const std::string in = spaces.space(input_, "--input-space");
  const std::string under = background_.empty() ? in : spaces.space(background_, "--bg-space");
  path.workingSpace = spaces.space(working_.empty() ? "scene_linear" : working_, "--working-space");
  const std::string out = output_.empty() ? in : spaces.space(output_, "--output-space");
  path.plate = spaces.conversion(in, path.workingSpace);
  path.background = spaces.conversion(under, path.workingSpace);
  path.out = spaces.conversion(path.workingSpace, out);
  path.encoding = spaces.encodingOf(path.workingSpace);
  path.inputSpace = in;
  path.outputSpace = out;
  path.used = true;
  return path;
}

std::vector<std::string> ColourOptions::words(bool absolute) const {
  // A configuration may also be one that the library has built in, by a name with a colon.
  const bool isFile = config_.find("://") == std::string::npos;
  const std::string config = absolute && isFile && !config_.empty()
                                 ? std::filesystem::absolute(config_).string()
                                 : config_;
  std::vector<std::string> words;
  for (const auto& [name, value] : {std::pair{"--ocio", &config},
                                    {"--input-space", &input_},
                                    {"--bg-space", &background_},
                                    {"--working-space", &working_},
                                    {"--output-space", &output_}}) {
    if (!value->empty()) words.insert(words.end(), {name, *value});
  }
  return words;
}

}  // namespace orvanite::cli
