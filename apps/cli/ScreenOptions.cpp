// SPDX-License-Identifier: BSD-3-Clause
#include "apps/cli/ScreenOptions.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <charconv>
#include <vector>

#include "base/Error.h"

namespace orvanite::cli {
namespace {

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

}  // namespace

std::string describe(const Screen& screen) {
  const char* light = screen.evenness >= 0.97f   ? "even"
                      : screen.evenness >= 0.85f ? "fairly even"
                                                 : "uneven";
  return fmt::format(
      "{}, {:.0f} % of the frame, {} (its darkest part at {:.0f} % of its brightest){}",
      nameOfColour(screen.colour), 100 * static_cast<double>(screen.coverage), light,
      100 * static_cast<double>(screen.evenness),
      screen.sure() ? "" : "; it may be no screen: look at the matte, --screen says otherwise");
}

std::vector<std::string> optionsOf(const shot::FirstKey& key, const Settings& settings) {
  std::vector<std::string> options;
  if (key.cleanPlate && !key.blind) options.emplace_back("--reference auto");
  for (const std::string& parameter : key.set) {
    options.push_back(optionName(parameter) + ' ' + settings.text(parameter));
  }
  return options;
}

void ScreenOptions::addTo(CLI::App& command) {
  const std::string group(findParameter("screen")->group.heading);
  CLI::Option* screen = command.get_option("--screen");
  screen
      ->description(screen->get_description() +
                    " As R,G,B with 1 white, #00b140, 0,177,64, green or blue; auto, or nothing, "
                    "finds it in the plate.")
      ->type_name("COLOUR|auto");
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

shot::FirstKeyWish ScreenOptions::wish(const std::string& reference,
                                       const Settings& settings) const {
  shot::FirstKeyWish wish;
  wish.everything = auto_;
  // Who names no screen wants the plate's.
  wish.screenColour = automaticColour_ || (!settings.given("screen") && at_.empty());
  wish.cleanPlate = estimates(reference) && settings.toggle("useReference");
  if (!at_.empty()) wish.at = boxOf(at_);
  wish.average = average_ == "mean" ? Average::mean : Average::median;
  if (frameOption_->count() == 0) return wish;
  wish.frame = frame_;
  if (settings.choice("estimate") == "off" && !wish.everything && !wish.screenColour && !wish.at &&
      !wish.cleanPlate) {
    throw Error(Fault::wrongUse, "--screen-frame",
                "expected --auto, --screen auto, --screen-at or --reference auto with it");
  }
  return wish;
}

shot::FirstKey ScreenOptions::look(const shot::Shot& shot, const std::string& reference,
                                   Settings& settings, bool quiet) const {
  shot::FirstKey key;
  try {
    key = shot::findFirstKey(shot, wish(reference, settings), settings);
  } catch (const Error& error) {
    const std::string& subject = error.subject();
    if (subject == "screen" && !automaticColour_) {
      throw Error(error.fault(), "--screen",
                  "none was given, and the plate shows none: expected its colour, or --screen-at "
                  "X,Y with a pixel of it");
    }
    throw subject == "auto"    ? error.about("--auto")
    : subject == "screen"      ? error.about("--screen auto")
    : subject == "reference"   ? error.about("--reference auto")
    : subject == "screenAt"    ? error.about("--screen-at")
    : subject == "screenFrame" ? error.about("--screen-frame")
                               : aboutOption(error);
  }
  if (quiet) return key;
  if (key.screen) {
    const bool named = auto_ || automaticColour_;
    fmt::print(stderr, "screen: {}{}\n", describe(*key.screen),
               named ? "" : "; --auto looks at the subject, too, and sets the whole key");
  }
  if (!key.decided().empty()) fmt::print(stderr, "key: {}\n", key.decided());
  std::vector<std::string> chosen = optionsOf(key, settings);
  // A clean plate that was asked for was not chosen.
  if (key.cleanPlate && !key.blind && estimates(reference) && !auto_) chosen.erase(chosen.begin());
  if (!chosen.empty()) fmt::print(stderr, "chosen: {}\n", fmt::join(chosen, " "));
  return key;
}

}  // namespace orvanite::cli
