// SPDX-License-Identifier: BSD-3-Clause
//
// `orvanite key`: from options to a job: what to read, how to key it, where to write.
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "apps/cli/Commands.h"
#include "apps/cli/KeyOptions.h"
#include "apps/cli/KeyRun.h"
#include "apps/cli/SaveScript.h"
#include "base/Error.h"
#include "keyer/Preset.h"
#include "media/MovieSource.h"
#include "media/PendingFile.h"

namespace orvanite::cli {
namespace {

using shot::Role;

void checkNumber(const char* option, int value, int low, int high) {
  if (value >= low && value <= high) return;
  throw Error::expected(Fault::wrongUse, option, fmt::format("a number from {} to {}", low, high),
                        std::to_string(value));
}

shot::PastEnd pastEndOf(const std::string& text) {
  if (text == "hold") return shot::PastEnd::hold;
  if (text == "loop") return shot::PastEnd::loop;
  if (text == "black") return shot::PastEnd::black;
  throw Error::expected(Fault::wrongUse, "--bg-time", "hold, loop or black", text);
}

Settings settingsOf(KeyOptions& options) {
  Settings settings;
  if (!options.preset.empty()) {
    settings = settingsFromPresetFile(options.preset);
  }
  options.screen.apply(options.parameters, settings);
  return settings;
}

void savePreset(const Settings& settings, const std::string& path) {
  media::PendingFile pending(path);
  std::ofstream file(pending.temporary(), std::ios::binary);
  file << presetText(settings);
  file.close();
  if (!file) throw Error(Fault::failure, path, "cannot be written");
  pending.commit();
}

shot::ShotFiles filesOf(const KeyOptions& options) {
  shot::ShotFiles files;
  files.clips[Role::plate] = {options.plate};
  files.clips[Role::background] = {options.background, options.backgroundOffset};
  files.clips[Role::holdOut] = {options.holdOut, options.holdOutOffset};
  files.clips[Role::garbage] = {options.garbage, options.garbageOffset};
  if (!ScreenOptions::estimates(options.reference)) {
    files.clips[Role::cleanPlate] = {options.reference, options.referenceOffset};
  }
  files.pastEnd = pastEndOf(options.pastEnd);
  return files;
}

// The encoding that is keyed in, as given or as the pictures say.
void chooseEncoding(const KeyOptions& options, const shot::Shot& shot, Settings& settings) {
  if (settings.given("colourspace")) return;
  const media::Encoding encoding = shot.encoding();
  settings.setText("colourspace", encoding.colourspace);
  if (options.quiet) return;
  fmt::print(stderr, "colourspace: {} ({}; --colourspace says otherwise)\n", encoding.colourspace,
             encoding.reason);
}

// The views to write, and the frames to key; none for a still.
std::vector<int> addOutputs(shot::Job& job, const KeyOptions& options) {
  std::vector<int> frames = shot::framesOf(job.shot->plate(), options.frames, "--frames");
  const bool several = frames.size() > 1;
  addOutput(job, std::string(job.settings.choice("output")), options.output, several);
  addOutput(job, "matte", options.matteOutput, several);
  addOutput(job, "status", options.statusOutput, several);
  addOutput(job, "unpremultiplied", options.foregroundOutput, several);
  const bool movies = std::any_of(job.outputs.begin(), job.outputs.end(),
                                  [](const shot::ViewOutput& output) { return output.isMovie; });
  if (!options.codec.empty() && !movies) {
    throw Error(Fault::wrongUse, "--codec", "expected a movie to write, such as -o out.mov");
  }
  if (movies && options.keepGoing) {
    throw Error(Fault::wrongUse, "--keep-going",
                "expected numbered stills with it: a movie cannot leave frames out");
  }
  if (movies && frames.empty()) frames.push_back(1);
  std::vector<std::string> others;
  if (!options.preset.empty()) others.push_back(options.preset);
  checkOutputs(job, frames.empty() ? std::vector<int>{1} : frames, options.codec, others);
  return frames;
}

// The graph of the job. What no script can hold is refused.
std::string scriptOfJob(const KeyOptions& options, const shot::Job& job) {
  const auto refuse = [](const char* what) {
    throw Error(Fault::wrongUse, "--save-script", std::string("a script cannot hold ") + what);
  };
  if (job.reads(Role::cleanPlate) || job.firstKey.cleanPlate) refuse("a clean plate");
  if (job.premultiply) refuse("--premultiply");
  if (job.shot->colours().used) refuse("colour spaces");
  if (job.outputs.size() > 1) refuse("several views");
  return scriptOf(job.settings,
                  {{options.plate},
                   {options.background, options.backgroundOffset},
                   {options.holdOut, options.holdOutOffset},
                   {options.garbage, options.garbageOffset},
                   options.output},
                  job.shot->samples());
}

void prepare(shot::Job& job) {
  try {
    prepareKeyers(job);
  } catch (const Error& error) {
    throw error.subject() == "reference" ? error.about("--reference") : aboutOption(error);
  }
}

int keyFrames(shot::Job& job, const KeyOptions& options, std::vector<int> frames) {
  // Frames are read side by side, each by one thread.
  if (frames.size() > 1) OIIO::attribute("threads", 1);
  shot::MovieWish movies;
  movies.codec = options.codec;
  if (!options.frameRate.empty())
    movies.frameRate = media::parseFrameRate(options.frameRate, "--fps");
  movies.keepExisting = options.skipExisting;
  for (const std::string& notice : openMovies(job, movies, frames)) {
    if (!options.quiet) fmt::print(stderr, "{}\n", notice);
  }
  shot::ShotRun run;
  run.frames = std::move(frames);
  run.skipExisting = options.skipExisting;
  run.keepGoing = options.keepGoing;
  run.inFlight = options.inFlight;
  return runShot(
      job, std::move(run),
      {options.quiet ? ProgressForm::none : progressFormOf(options.progress), options.json});
}

int keyOne(const shot::Job& job, bool quiet) {
  const double seconds = keyStill(job, 1);
  const media::Window& data = job.shot->plate().info().data;
  if (!quiet) {
    fmt::print("{}: {}x{}, {}, {}; keyed in {:.1f} ms on {} {}\n", job.outputs[0].fileOf(1),
               data.width, data.height, media::nameOf(job.shot->samples()), job.outputs[0].view,
               seconds * 1000, job.threads, job.threads == 1 ? "thread" : "threads");
  }
  return success;
}

int runKey(KeyOptions& options) {
  if (options.plate.empty())
    throw Error(Fault::wrongUse, "key", "expected a plate: orvanite key PLATE -o OUT");
  if (options.output.empty()) throw Error(Fault::wrongUse, "key", "expected an output: -o OUT");
  checkNumber("--threads", options.threads, 0, 1024);
  checkNumber("--in-flight", options.inFlight, 0, 1024);
  Settings settings = settingsOf(options);
  if (options.premultiply && settings.choice("output") != "unpremultiplied") {
    throw Error(Fault::wrongUse, "--premultiply", "expected --output unpremultiplied with it");
  }

  shot::Job job;
  job.threads = options.threads > 0 ? options.threads : availableThreads();
  job.premultiply = options.premultiply;
  job.passThrough = options.passThrough;
  OIIO::attribute("threads", job.threads);
  const shot::Shot shot(filesOf(options), options.colours.path());
  if (!options.quiet) {
    for (const std::string& notice : shot.notices()) fmt::print(stderr, "{}\n", notice);
  }
  job.shot = &shot;
  job.settings = std::move(settings);
  std::vector<int> frames = addOutputs(job, options);
  chooseEncoding(options, shot, job.settings);
  job.firstKey = options.screen.look(shot, options.reference, job.settings, options.quiet);
  prepare(job);
  if (!options.saveScript.empty()) saveText(options.saveScript, scriptOfJob(options, job));
  if (!options.savePreset.empty()) savePreset(job.settings, options.savePreset);
  return frames.empty() ? keyOne(job, options.quiet) : keyFrames(job, options, std::move(frames));
}

}  // namespace

Run declareKey(CLI::App& command) {
  auto options = std::make_shared<KeyOptions>();
  options->addTo(command);
  return [options] { return runKey(*options); };
}

}  // namespace orvanite::cli
