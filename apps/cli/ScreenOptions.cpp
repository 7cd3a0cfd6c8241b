// SPDX-License-Identifier: BSD-3-Clause
#include "apps/cli/ScreenOptions.h"

#include <fmt/format.h>

#include <charconv>
#include <vector>

#include "keyer/CleanPlate.h"
#include "keyer/Error.h"

namespace orvanite::cli {
namespace {

Plate plateOf(const media::Picture& picture) {
  return {picture.image(), picture.data.width, picture.data.height, picture.depth};
}

Box boxOf(const std::string& text) {
  const auto wrong = [&] {
    return Error::expected(Fault::wrongUse, "--screen-at", "X,Y or X,Y,WIDTH,HEIGHT in pixels",
                           text);
  };
  std::vector<int> numbers;
  const char* at = text.data();
  const char* end = at + text.size();
  while (true) {
    int number = 0;
    const auto [after, problem] = std::from_chars(at, end, number);
    if (problem != std::errc()) throw wrong();
    numbers.push_back(number);
    if (after == end) break;
    if (*after != ',') throw wrong();
    at = after + 1;
  }
  if (numbers.size() == 2) return {numbers[0], numbers[1], 1, 1};
  if (numbers.size() == 4) return {numbers[0], numbers[1], numbers[2], numbers[3]};
  throw wrong();
}

Screen foundIn(const Plate& plate, const char* option) {
  Screen screen = findScreen(plate);
  if (screen.found) return screen;
  throw Error(Fault::failure, option,
              "expected a green or blue screen in the plate, found none; --screen-at or --screen "
              "says where or which");
}

void setScreen(Settings& settings, const Rgb& c) {
  settings.setNumbers("screen", static_cast<double>(c[0]), static_cast<double>(c[1]),
                      static_cast<double>(c[2]));
}

}  // namespace

std::string describe(const Screen& screen) {
  const char* light = screen.evenness >= 0.97F   ? "even"
                      : screen.evenness >= 0.85F ? "fairly even"
                                                 : "uneven";
  return fmt::format(
      "{}, {:.0f} % of the frame, {} (its darkest part at {:.0f} % of its brightest)",
      screen.primary == 2 ? "blue" : "green", 100 * static_cast<double>(screen.coverage), light,
      100 * static_cast<double>(screen.evenness));
}

std::vector<std::string> optionsOf(const AutoKey& key, const Settings& settings) {
  std::vector<std::string> options;
  for (const std::string& parameter : key.set) {
    options.push_back(optionName(parameter) + ' ' + settings.text(parameter));
  }
  return options;
}

void ScreenOptions::addTo(CLI::App& command) {
  const char* group = "Screen";
  CLI::Option* screen = command.get_option("--screen");
  screen->description(screen->get_description() + " auto finds it in the plate.")
      ->type_name("R,G,B|auto");
  command
      .add_flag("--auto", auto_,
                "Find the screen and set what follows from it and from the subject: screen colour "
                "and range, foreground bias, balances, replace colour; beside a clean plate "
                "estimated from an uneven 8- or 16-bit plate, otherwise gains and midtones, too. "
                "Parameters that are given stay. Prints what it chose as options. [default off]")
      ->group(group);
  command
      .add_option("--screen-at", at_,
                  "Takes the screen colour from the plate: from a pixel, or from the median of a "
                  "box. [pixels from the frame's top left]")
      ->group(group)
      ->type_name("X,Y[,W,H]")
      ->take_last();
  averageOption_ = command
                       .add_option("--screen-average", average_,
                                   "What --screen-at takes of its box. [default median]")
                       ->group(group)
                       ->type_name("median|mean")
                       ->take_last();
  frameOption_ = command
                     .add_option("--screen-frame", frame_,
                                 "Frame of the shot that --auto, --screen auto, --screen-at and "
                                 "--reference auto look at. [default the first]")
                     ->group(group)
                     ->type_name("N")
                     ->take_last();
}

void ScreenOptions::apply(const ParameterOptions& parameters, Settings& settings) {
  const std::string* screen = parameters.text("screen");
  automaticColour_ = screen != nullptr && *screen == "auto";
  parameters.apply(settings, automaticColour_ ? "screen" : "");
  if (average_ != "median" && average_ != "mean") {
    throw Error::expected(Fault::wrongUse, "--screen-average", "median or mean", average_);
  }
  if (averageOption_->count() > 0 && at_.empty()) {
    throw Error(Fault::wrongUse, "--screen-average", "expected --screen-at with it");
  }
  if (!at_.empty()) {
    boxOf(at_);
    if (screen != nullptr)
      throw Error(Fault::wrongUse, "--screen-at", "expected no --screen with it");
  }
}

void ScreenOptions::look(const Load& load, const std::string& reference, int depth,
                         Settings& settings, bool quiet) {
  const bool estimate = estimates(reference) && settings.toggle("useReference");
  if (estimate && depth == 4) {
    throw Error(Fault::wrongUse, "--reference auto",
                "expected an 8-bit or 16-bit plate, found half or float");
  }
  if (!auto_ && !automaticColour_ && at_.empty() && !estimate) {
    if (frameOption_->count() > 0) {
      throw Error(Fault::wrongUse, "--screen-frame",
                  "expected --auto, --screen auto, --screen-at or --reference auto with it");
    }
    return;
  }
  const media::Picture picture =
      load(frameOption_->count() > 0 ? std::optional(frame_) : std::nullopt);
  const Plate plate = plateOf(picture);
  std::vector<std::string> chosen;
  const auto choose = [&](const std::string& parameter) {
    chosen.push_back(optionName(parameter) + ' ' + settings.text(parameter));
  };
  std::optional<Screen> screen;
  if (!at_.empty()) {
    try {
      setScreen(settings,
                colourOf(plate, boxOf(at_), average_ == "mean" ? Average::mean : Average::median));
    } catch (const Error& error) {
      throw error.about("--screen-at");
    }
    choose("screen");
  }
  if (auto_) {
    const CleanPlateUse use = !settings.toggle("useReference") ? CleanPlateUse::never
                              : !reference.empty()             ? CleanPlateUse::always
                              : depth == 4                     ? CleanPlateUse::never
                                                               : CleanPlateUse::whenUneven;
    AutoKey key;
    try {
      key = autoKey(plate, settings, use);
    } catch (const Error& error) {
      throw error.subject() == "auto" ? error.about("--auto") : aboutOption(error);
    }
    if (key.cleanPlate && (reference.empty() || estimate)) {
      chosen.insert(chosen.begin(), "--reference auto");
      clean_ = key.screen;
    }
    for (std::string& option : optionsOf(key, settings)) chosen.push_back(std::move(option));
    screen = std::move(key.screen);
  } else if (automaticColour_ || estimate) {
    screen = foundIn(plate, automaticColour_ ? "--screen auto" : "--reference auto");
    if (automaticColour_) {
      setScreen(settings, screen->colour);
      choose("screen");
    }
    if (estimate) clean_ = screen;
  }
  if (quiet) return;
  if (screen) fmt::print(stderr, "screen: {}\n", describe(*screen));
  if (!chosen.empty()) fmt::print(stderr, "chosen: {}\n", fmt::join(chosen, " "));
}

media::Picture ScreenOptions::cleanPlateOf(const media::Picture& plate) const {
  media::Picture clean = media::Picture::make(plate.data, plate.depth, plate.samples);
  CleanPlate(plateOf(plate), *clean_).write(clean.image(), plate.depth);
  return clean;
}

}  // namespace orvanite::cli
