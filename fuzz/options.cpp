// SPDX-License-Identifier: BSD-3-Clause
//
// Takes every line as a word of a command line. The whole line is understood but not run; the
// options of a key are set, and said again they set the same; each word is taken for frames and for
// a pattern, for a polygon or rectangle that is drawn, too. Parameters that move are asked for at
// frames. No file is opened but one small plate.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "apps/cli/CommandLine.h"
#include "apps/cli/MediaOptions.h"
#include "apps/cli/ParameterOptions.h"
#include "apps/cli/ScreenOptions.h"
#include "base/Error.h"
#include "fuzz/File.h"
#include "media/FramePattern.h"
#include "media/FrameRange.h"
#include "shot/Mask.h"

namespace {

using orvanite::Error;
using orvanite::Settings;
using orvanite::fuzz::allowed;
using Words = std::vector<std::string>;

Words wordsOf(const unsigned char* data, std::size_t size) {
  std::istringstream text(std::string(reinterpret_cast<const char*>(data), size));
  Words words;
  for (std::string word; std::getline(text, word);) words.push_back(word);
  return words;
}

// A shot of one small picture, grey with some green, for the options that look at one.
const orvanite::shot::Shot& plate() {
  static const std::filesystem::path path = std::filesystem::temp_directory_path() /
                                            ("orvanite-fuzz-" + std::to_string(getpid()) + ".ppm");
  static const orvanite::shot::Shot shot = [] {
    std::string picture = "P6 8 8 255\n";
    for (int i = 0; i < 8 * 8 * 3; ++i) picture += static_cast<char>(i % 3 == 1 ? 180 : i % 9);
    std::ofstream(path, std::ios::binary) << picture;
    std::atexit([] { std::filesystem::remove(path); });
    orvanite::shot::ShotFiles files;
    files.clips[orvanite::shot::Role::plate].path = path;
    return orvanite::shot::Shot(files);
  }();
  return shot;
}

// The words that belong to these options, set as a key sets them.
bool set(const Words& words, Settings& settings, bool look) {
  CLI::App app;
  orvanite::cli::ParameterOptions parameters;
  orvanite::cli::ScreenOptions screen;
  parameters.addTo(app);
  screen.addTo(app);
  app.allow_extras();
  try {
    app.parse(Words(words.rbegin(), words.rend()));
  } catch (const CLI::Error&) {
    return false;
  }
  return allowed([&] {
    screen.apply(parameters, settings);
    if (look) screen.look(plate(), "", settings, true);
  });
}

// How files are read and movies written; said again it is the same.
void readFiles(const Words& words) {
  const auto parsed = [](const Words& from, orvanite::cli::ReadOptions& reading,
                         orvanite::cli::MovieOptions& movie) {
    CLI::App app;
    reading.addTo(app, "Files");
    movie.addTo(app, "Movies");
    app.allow_extras();
    try {
      app.parse(Words(from.rbegin(), from.rend()));
      return true;
    } catch (const CLI::Error&) {
      return false;
    }
  };
  orvanite::cli::ReadOptions reading, again;
  orvanite::cli::MovieOptions movie, none;
  if (!parsed(words, reading, movie)) return;
  allowed([&] { reading.how(); });
  allowed([&] { movie.wish(); });
  if (!parsed(reading.words(), again, none) || again.words() != reading.words()) std::abort();
}

// At each frame nothing moves, and every number is one that the parameter takes, but for those that
// the engine holds.
void readFrames(const Settings& settings) {
  for (const double frame : {-1e9, 0.0, 1.0, 2.5, 24.0, 1e9}) {
    const Settings now = settings.at(frame);
    if (now.moves()) std::abort();
    Settings again;
    for (const orvanite::Parameter& parameter : orvanite::parameters()) {
      const auto take = [&] { again.setText(parameter.name, now.text(parameter.name)); };
      if (parameter.plugs[0].empty()) {
        take();
      } else {
        allowed(take);
      }
    }
    now.screenProblem();
  }
}

void readAsMask(const std::string& word) {
  for (const auto read : {orvanite::shot::rectangleOf, orvanite::shot::polygonOf}) {
    allowed([&] {
      orvanite::MaskShape mask = read(word, "mask");
      for (const double soft : {0.0, 1.0, 1000.0}) {
        mask.softPixels = soft;
        mask.outside = soft == 1;
        for (const double at : {-3.0, 0.5, 4.0}) {
          const double held = coverage(mask, at, 4.5);
          if (!(held >= 0 && held <= 1)) std::abort();
        }
      }
    });
  }
}

void readAsFrames(const std::string& word) {
  std::vector<int> frames;
  if (!allowed([&] { frames = orvanite::media::parseFrames(word, "--frames"); })) return;
  if (frames.empty() || frames.size() > 10000) return;
  std::sort(frames.begin(), frames.end());
  if (orvanite::media::parseFrames(orvanite::media::formatFrames(frames), "again") != frames) {
    std::abort();
  }
}

void readAsPattern(const std::string& word) {
  if (const auto pattern = orvanite::media::FramePattern::parse(word)) {
    if (pattern->path(7) == pattern->path(8)) std::abort();
    pattern->text();
  }
  if (const auto pattern = orvanite::media::FramePattern::ofFile(word)) {
    if (pattern->path(7) == pattern->path(8)) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const Words words = wordsOf(data, size);
  allowed([&] { const orvanite::cli::CommandLine line(words); });
  Settings settings;
  if (set(words, settings, true)) {
    Settings again;
    if (!set(orvanite::cli::optionsFor(settings), again, false)) std::abort();
    if (!(again == settings)) std::abort();
    readFrames(settings);
  }
  readFiles(words);
  for (const std::string& word : words) {
    readAsFrames(word);
    readAsPattern(word);
    readAsMask(word);
  }
  return 0;
}
