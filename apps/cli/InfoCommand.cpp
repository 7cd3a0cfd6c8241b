// SPDX-License-Identifier: BSD-3-Clause
//
// `orvanite info`: what plates are, the screen that is found in them, and the options that a first
// key would start from. Looks at one frame of a shot; writes nothing.
#include <fmt/format.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

#include "apps/cli/Commands.h"
#include "apps/cli/MediaOptions.h"
#include "apps/cli/ScreenOptions.h"
#include "apps/cli/ShellWord.h"
#include "base/Error.h"
#include "media/FrameRange.h"
#include "shot/FirstKey.h"

namespace orvanite::cli {
namespace {

using media::Source;

struct InfoOptions {
  std::vector<std::string> files;
  int screenFrame = 0;
  bool frameGiven = false, headerOnly = false, json = false;
  ReadOptions reading;
};

/// What a look at the pixels found; `key` is there where a screen is.
struct Look {
  std::optional<int> frame;  // of a shot
  std::optional<Screen> screen;
  std::vector<std::string> key;  // options, each with its value
};

Look lookAt(const shot::Shot& shot, const InfoOptions& options) {
  Look look;
  if (shot.plate().isShot()) {
    look.frame = options.frameGiven ? options.screenFrame : shot.plate().frames().front();
  }
  Settings settings;
  settings.setText("colourspace", shot.encoding().colourspace);
  shot::FirstKeyWish wish;
  wish.everything = true;
  wish.frame = look.frame;
  try {
    const shot::FirstKey key = findFirstKey(shot, wish, settings);
    look.screen = key.screen;
    look.key = optionsOf(key, settings);
  } catch (const Error& error) {
    if (error.subject() != "auto") throw;  // anything but that there is no screen
  }
  return look;
}

shot::Shot opened(const std::string& path, const InfoOptions& options) {
  shot::ShotFiles files;
  files.clips[shot::Role::plate] = {path, 0, options.reading.how()};
  return shot::Shot(std::move(files));
}

/// Frames that are not there between the first and the last.
std::vector<int> missingOf(const std::vector<int>& frames) {
  std::vector<int> missing;
  for (std::size_t i = 1; i < frames.size(); ++i) {
    for (int frame = frames[i - 1] + 1; frame < frames[i]; ++frame) missing.push_back(frame);
  }
  return missing;
}

double valueOf(const media::Ratio& ratio) {
  return static_cast<double>(ratio.numerator) / ratio.denominator;
}

std::string plural(std::size_t count, const char* what) {
  return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

/// Bold text and a patch of a colour, where a terminal shows them.
class Style {
 public:
  explicit Style(bool terminal) {
    const auto text = [](const char* name) {
      const char* value = std::getenv(name);
      return std::string(value != nullptr ? value : "");
    };
    bold_ = terminal && text("NO_COLOR").empty() && text("TERM") != "dumb";
    colours_ = bold_ && (text("COLORTERM") == "truecolor" || text("COLORTERM") == "24bit");
  }
  std::string bold(const std::string& text) const {
    return bold_ ? "\033[1m" + text + "\033[0m" : text;
  }
  std::string patch(const Rgb& colour, bool linear) const {
    if (!colours_) return "";
    const auto code = [linear](float v) {
      return std::lround(255 * std::pow(std::clamp(v, 0.0f, 1.0f), linear ? 1 / 2.2f : 1));
    };
    return fmt::format("\033[48;2;{};{};{}m    \033[0m ", code(colour[0]), code(colour[1]),
                       code(colour[2]));
  }

 private:
  bool bold_, colours_;
};

void line(const char* label, const std::string& text) { fmt::print("  {:<9} {}\n", label, text); }

/// A command that can be pasted into a shell, broken into lines that fit.
void printKey(const std::string& path, const Look& look, const ReadOptions& reading) {
  constexpr std::size_t width = 86;
  std::string text = "orvanite key " + shellWord(path);
  std::vector<std::string> words = reading.words();
  for (std::string& word : words) word = shellWord(word);
  words.insert(words.end(), look.key.begin(), look.key.end());
  words.emplace_back("-o OUT");
  bool first = true;
  for (const std::string& word : words) {
    if (text.size() + word.size() + 3 > width) {
      line(first ? "key" : "", text + " \\");
      first = false;
      text = "  " + word;
    } else {
      text += ' ' + word;
    }
  }
  line(first ? "key" : "", text);
}

std::string samplesOf(const media::PictureInfo& info) {
  const int held = info.samples == media::Samples::uint8     ? 8
                   : info.samples == media::Samples::float32 ? 32
                                                             : 16;
  const std::string used = info.bits == held ? "" : fmt::format(" of which {} are used", info.bits);
  return media::nameOf(info.samples) + used + ", " + info.format;
}

void printText(const std::string& path, const shot::Shot& shot, const InfoOptions& options) {
  const Source& source = shot.plate();
  const media::PictureInfo& info = source.info();
  const media::Encoding encoding = shot.encoding();
  const Style style(::isatty(STDOUT_FILENO) != 0);
  fmt::print("{}\n", style.bold(path));
  line("size", fmt::format("{}x{}", info.display.width, info.display.height));
  if (!(info.data == info.display)) {
    line("data", fmt::format("{}x{} at {},{} of the frame", info.data.width, info.data.height,
                             info.data.x - info.display.x, info.data.y - info.display.y));
  }
  line("samples", samplesOf(info));
  line("channels", media::oneLine(fmt::format("{}", fmt::join(info.channels, ", "))));
  for (std::size_t part = 0; info.parts.size() > 1 && part < info.parts.size(); ++part) {
    line(part == 0 ? "parts" : "",
         media::oneLine(fmt::format("{} '{}': {}", part, info.parts[part].name,
                                    fmt::join(info.parts[part].channels, ", "))));
  }
  if (!info.layer.empty()) line("layer", media::oneLine(info.layer));
  line("encoding", fmt::format("{} ({})", encoding.colourspace, encoding.reason));
  if (source.isShot()) {
    const std::vector<int> missing = missingOf(source.frames());
    line("frames", fmt::format("{} ({}{})", media::formatFrames(source.frames()),
                               plural(source.frames().size(), "frame"),
                               missing.empty() ? "" : ", missing " + media::formatFrames(missing)));
  }
  const media::ShotFacts& facts = source.facts();
  std::vector<std::string> tags;
  if (facts.frameRate.numerator > 0)
    tags.push_back(fmt::format("{:.5g} frames/s", valueOf(facts.frameRate)));
  if (!facts.timeCode.empty()) tags.push_back("time code " + facts.timeCode);
  if (facts.pixelAspect.numerator > 0 &&
      facts.pixelAspect.numerator != facts.pixelAspect.denominator)
    tags.push_back(fmt::format("pixels {:.4g} times as wide as high", valueOf(facts.pixelAspect)));
  if (!facts.sound.empty()) tags.emplace_back("sound");
  if (!tags.empty()) line("shot", fmt::format("{}", fmt::join(tags, ", ")));
  if (!source.notice().empty()) line("note", source.notice());
  if (options.headerOnly) return;
  std::fflush(stdout);  // looking takes a moment
  const Look look = lookAt(shot, options);
  const std::string frame = look.frame ? fmt::format(" (frame {})", *look.frame) : "";
  if (!look.screen) {
    line("screen", "none found: no even colour fills enough of the frame" + frame);
    return;
  }
  const Rgb& c = look.screen->colour;
  line("screen", style.patch(c, encoding.colourspace == "linear") + describe(*look.screen) + frame);
  line("", fmt::format("its median colour {:.4g},{:.4g},{:.4g}", c[0], c[1], c[2]));
  printKey(path, look, options.reading);
}

void printJson(const std::string& path, const shot::Shot& shot, const InfoOptions& options) {
  const Source& source = shot.plate();
  const media::PictureInfo& info = source.info();
  const media::Encoding encoding = shot.encoding();
  const auto window = [](const media::Window& w) {
    return nlohmann::ordered_json{{"x", w.x}, {"y", w.y}, {"width", w.width}, {"height", w.height}};
  };
  nlohmann::ordered_json object{{"file", path},
                                {"format", info.format},
                                {"width", info.display.width},
                                {"height", info.display.height},
                                {"displayWindow", window(info.display)},
                                {"dataWindow", window(info.data)},
                                {"samples", media::nameOf(info.samples)},
                                {"bits", info.bits},
                                {"channels", info.channels},
                                {"colourspace", encoding.colourspace},
                                {"colourspaceFrom", encoding.reason}};
  if (!info.layer.empty()) object["layer"] = info.layer;
  for (const media::PartInfo& part : info.parts) {
    object["parts"].push_back({{"name", part.name}, {"channels", part.channels}});
  }
  if (source.isShot()) {
    object["frames"] = source.frames();
    object["missingFrames"] = missingOf(source.frames());
  }
  const media::ShotFacts& facts = source.facts();
  if (facts.frameRate.numerator > 0)
    object["frameRate"] = {facts.frameRate.numerator, facts.frameRate.denominator};
  if (facts.pixelAspect.numerator > 0)
    object["pixelAspect"] = {facts.pixelAspect.numerator, facts.pixelAspect.denominator};
  if (!facts.timeCode.empty()) object["timeCode"] = facts.timeCode;
  if (!source.notice().empty()) object["note"] = source.notice();
  if (!options.headerOnly) {
    const Look look = lookAt(shot, options);
    if (look.frame) object["screenFrame"] = *look.frame;
    object["screen"] = nullptr;
    if (look.screen) {
      object["screen"] = {{"hue", nameOfColour(look.screen->colour)},
                          {"confidence", look.screen->confidence},
                          {"sure", look.screen->sure()},
                          {"colour", look.screen->colour},
                          {"coverage", look.screen->coverage},
                          {"evenness", look.screen->evenness}};
      // An option and its value are two words.
      auto& words = object["recommended"] = options.reading.words();
      for (const std::string& option : look.key) {
        const std::size_t space = option.find(' ');
        words.push_back(option.substr(0, space));
        if (space != std::string::npos) words.push_back(option.substr(space + 1));
      }
    }
  }
  fmt::print("{}\n", object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

int runInfo(const InfoOptions& options) {
  if (options.files.empty())
    throw Error(Fault::wrongUse, "info", "expected a file: orvanite info FILE...");
  int code = success;
  for (const std::string& file : options.files) {
    try {
      const shot::Shot shot = opened(file, options);
      options.json ? printJson(file, shot, options) : printText(file, shot, options);
    } catch (const Error& error) {
      if (options.files.size() == 1) throw;
      std::fflush(stdout);
      fmt::print(stderr, "orvanite: {}\n", error.what());
      code = failed;  // the others are looked at all the same
    }
    std::fflush(stdout);
  }
  return code;
}

}  // namespace

Run declareInfo(CLI::App& command) {
  auto options = std::make_shared<InfoOptions>();
  command.add_option("FILE", options->files,
                     "What to look at: pictures, numbered sequences, folders of one, movies.");
  CLI::Option* frame =
      command
          .add_option("--screen-frame", options->screenFrame,
                      "Frame of a shot in which the screen is looked for. [default the first]")
          ->type_name("N")
          ->take_last();
  command.add_flag("--header", options->headerOnly,
                   "Look at the headers only, not for a screen. [default off]");
  options->reading.addTo(command, "Options");
  command.add_flag("--json", options->json, "Print one JSON object per file. [default off]");
  return [options, frame] {
    options->frameGiven = frame->count() > 0;
    return runInfo(*options);
  };
}

}  // namespace orvanite::cli
