// SPDX-License-Identifier: BSD-3-Clause
//
// Writing scripts: the node's own defaults are not relied on, every parameter is written.
#include "apps/cli/SaveScript.h"

#include <fmt/format.h>

#include <cstdio>
#include <filesystem>
#include <optional>

#include "apps/cli/ParameterOptions.h"
#include "base/Error.h"
#include "base/ScriptText.h"
#include "keyer/Parameters.h"
#include "media/FramePattern.h"
#include "media/MovieSource.h"

namespace orvanite::cli {

using shot::Role;

namespace {

// Frame numbers become # signs, whatever their spelling.
std::string textOf(const std::optional<media::FramePattern>& pattern, const std::string& path) {
  return pattern ? pattern->text() : path;
}

// A file as it is called from the script's folder.
std::string pathIn(const ScriptFiles& files, const std::filesystem::path& own) {
  if (own.is_absolute()) return own.string();
  const std::filesystem::path whole = std::filesystem::absolute(own);
  if (files.script.empty()) return whole.string();
  // Links resolved: a step up from a folder leaves the folder that it is.
  const auto folderOf = [](const std::filesystem::path& file) {
    return std::filesystem::weakly_canonical(std::filesystem::absolute(file).parent_path());
  };
  return (folderOf(whole).lexically_relative(folderOf(files.script)) / whole.filename())
      .lexically_normal()
      .string();
}

// A bare name of a script that nobody knows the place of lies beside it.
std::string outputIn(const ScriptFiles& files) {
  const bool beside =
      files.script.empty() && !std::filesystem::path(files.output).has_parent_path();
  const std::string own = textOf(media::FramePattern::parse(files.output), files.output);
  return beside ? own : pathIn(files, own);
}

// The node knows channels by their letters only.
std::string channelText(const std::string& option, const std::string& value) {
  if (value.size() == 1 && std::string_view("RGBArgba").find(value[0]) != std::string_view::npos) {
    return inQuotes(value);
  }
  throw Error::expected(Fault::wrongUse, "--save-script", "the " + option + " R, G, B or A", value);
}

void checkExpressible(const Settings& settings) {
  const std::string_view output = settings.choice("output");
  if (output == "matte" || output == "compOnColour") {
    const char* const more = output == "matte" ? "" : ", and no --background-colour";
    throw Error(Fault::wrongUse, "--save-script",
                fmt::format("a script cannot hold --output {}{}", output, more));
  }
  const Settings defaults;
  for (const Parameter& parameter : parameters()) {
    if (parameter.name == "useReference") continue;
    const bool isOne = valuesOf(parameter.type) < 3 ||
                       settings.text(parameter.name) == settings.channelText(parameter.name, 0);
    if (!parameter.plugs[0].empty() && (isOne || !parameter.plugs[1].empty())) continue;
    if (settings.text(parameter.name) != defaults.text(parameter.name)) {
      throw Error(Fault::wrongUse, "--save-script",
                  "a script cannot hold " + optionName(parameter.name));
    }
  }
}

// The frames of a sequence or a movie; empty for a still.
std::vector<int> framesOf(const shot::Clip& from) {
  if (const auto pattern = media::FramePattern::ofInput(from.path)) return pattern->existing();
  if (!media::isMovieName(from.path)) return {};
  return media::Source::open(from.path, from.how)->frames();
}

// How a file is read where nothing usual will do, as arguments.
std::string readingText(const shot::Clip& from) {
  const media::OpenOptions& how = from.how;
  const bool movie = media::isMovieName(from.path) && !media::FramePattern::ofInput(from.path);
  std::string text;
  if (movie && how.frameRate.numerator != 0) {
    text += fmt::format(", fps = \"{}/{}\"", how.frameRate.numerator, how.frameRate.denominator);
  }
  for (const auto& [name, value] : {std::pair{"matrix", &how.matrix},
                                    {"part", &how.picture.part},
                                    {"layer", &how.picture.layer}}) {
    if (!value->empty()) text += fmt::format(", {} = {}", name, inQuotes(*value));
  }
  if (how.deinterlace) text += ", deinterlace = 1";
  return text;
}

// How a movie is written, likewise.
std::string writingText(const ScriptFiles& files) {
  const MovieOptions& movie = files.movie;
  std::string text;
  for (const auto& [name, value] : {std::pair{"codec", &movie.codec},
                                    {"fps", &movie.frameRate},
                                    {"quality", &movie.quality},
                                    {"bitrate", &movie.bitRate}}) {
    if (!value->empty()) text += fmt::format(", {} = {}", name, inQuotes(*value));
  }
  if (!movie.sound.empty()) {
    text +=
        ", sound = " + inQuotes(movie.sound == "none" ? movie.sound : pathIn(files, movie.sound));
  }
  return text;
}

// Which frame of a picture beside the plate is shown, as an argument: the plate's with its offset,
// and beyond the ends of the sequence what `key` shows there.
std::string frameText(const ScriptFiles& files, const shot::Clip& from) {
  const std::string frame = from.offset ? fmt::format("time + {}", from.offset) : "time";
  const std::vector<int> plate = framesOf(files.clips[Role::plate]);
  const std::vector<int> own = framesOf(from);
  const bool isCovered =
      plate.empty() || own.empty() ||
      (own.front() <= plate.front() + from.offset && plate.back() + from.offset <= own.back());
  if (isCovered) return from.offset ? ", " + frame : "";
  const int first = own.front();
  const int count = own.back() - first + 1;
  switch (files.pastEnd) {
    case shot::PastEnd::hold:
      return fmt::format(", clamp({}, {}, {})", frame, first, own.back());
    case shot::PastEnd::loop:
      return fmt::format(", {0} - {2} * floor(({0} - {1}) / {2})", frame, first, count);
    case shot::PastEnd::black:
      break;
  }
  throw Error(Fault::wrongUse, "--save-script",
              "a script cannot hold --bg-time black where " + from.path + " ends");
}

}  // namespace

std::string scriptOf(const Settings& settings, const ScriptFiles& files, media::Samples samples) {
  checkExpressible(settings);
  std::string script;
  const auto input = [&](const char* name, const shot::Clip& from) {
    if (from.path.empty()) return std::string("0");
    const std::string own = textOf(media::FramePattern::ofInput(from.path), from.path);
    script += fmt::format("{} = FileIn({}{}{});\n", name, inQuotes(pathIn(files, own)),
                          frameText(files, from), readingText(from));
    return std::string(name);
  };
  input("plate", files.clips[Role::plate]);
  const std::string background = input("background", files.clips[Role::background]);
  const std::string holdOut = input("holdOut", files.clips[Role::holdOut]);
  const std::string garbage = input("garbage", files.clips[Role::garbage]);
  script += fmt::format("keyed = Orvanite(plate, {}, {}, {});\n", background, holdOut, garbage);
  for (const Parameter& parameter : parameters()) {
    for (std::size_t channel = 0; channel < parameter.plugs.size(); ++channel) {
      if (parameter.plugs[channel].empty()) continue;
      std::string value;
      switch (parameter.type) {
        case ParameterType::choice:
          value = inQuotes(settings.choice(parameter.name));
          break;
        case ParameterType::channel:
          value = channelText(optionName(parameter.name), settings.text(parameter.name));
          break;
        default:
          value = parameter.rule == DefaultRule::balanceOfScreen && settings.moves("screen") &&
                          !settings.given(parameter.name)
                      ? "(bScreen > gScreen) ? 0.9 : 0.5"
                      : settings.channelText(parameter.name, static_cast<int>(channel));
      }
      script += fmt::format("keyed.{} = {};\n", parameter.plugs[channel], value);
    }
  }
  // An image's own depth says everything but whether floats are halved.
  const char* const held = samples == media::Samples::half ? "half" : "auto";
  const char* const alpha = files.alpha == shot::Alpha::none            ? ", \"none\""
                            : files.alpha == shot::Alpha::premultiplied ? ", \"premultiplied\""
                                                                        : "";
  return script + fmt::format("out = FileOut(keyed, {}, \"{}\"{}{});\n", inQuotes(outputIn(files)),
                              held, alpha, writingText(files));
}

std::unique_ptr<media::PendingFile> pendingText(const std::string& path, const std::string& text) {
  auto file = std::make_unique<media::PendingFile>(path);
  std::FILE* const out = std::fopen(file->temporary().c_str(), "r+b");
  const bool written = out && std::fwrite(text.data(), 1, text.size(), out) == text.size();
  const bool closed = out && std::fclose(out) == 0;
  if (!written || !closed) throw Error(Fault::failure, path, "cannot be written");
  return file;
}

}  // namespace orvanite::cli
