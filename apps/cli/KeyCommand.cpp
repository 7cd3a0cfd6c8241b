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
#include "apps/cli/KeyJob.h"
#include "apps/cli/KeyOptions.h"
#include "apps/cli/SaveScript.h"
#include "apps/media/FrameRange.h"
#include "apps/media/MovieSource.h"
#include "apps/media/MovieWriter.h"
#include "apps/media/PendingFile.h"
#include "apps/media/PictureWriter.h"
#include "keyer/Error.h"
#include "keyer/Preset.h"

namespace orvanite::cli {
namespace {

using media::Samples;
using media::Source;

std::string sizeOf(const media::Window& window) {
  return fmt::format("{}x{}", window.width, window.height);
}

void checkNumber(const char* option, int value, int low, int high) {
  if (value >= low && value <= high) return;
  throw Error::expected(Fault::wrongUse, option, fmt::format("a number from {} to {}", low, high),
                        std::to_string(value));
}

PastEnd pastEndOf(const std::string& text) {
  if (text == "hold") return PastEnd::hold;
  if (text == "loop") return PastEnd::loop;
  if (text == "black") return PastEnd::black;
  throw Error::expected(Fault::wrongUse, "--bg-time", "hold, loop or black", text);
}

// A picture beside the plate must show the same frame.
SideInput openSide(const std::string& path, int offset, const Source& plate, const char* role) {
  SideInput input;
  input.offset = offset;
  if (path.empty()) return input;
  input.source = Source::open(path);
  const media::Window& expected = plate.info().display;
  const media::Window& found = input.source->info().display;
  if (expected.width != found.width || expected.height != found.height) {
    throw Error(Fault::wrongUse, input.source->info().path,
                fmt::format("expected a {} of the plate's size {}, found {}", role,
                            sizeOf(expected), sizeOf(found)));
  }
  return input;
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

// The frames to key: those asked for, less what lies past the shot's ends; all of it otherwise.
std::vector<int> framesOf(const KeyOptions& options, const Source& plate) {
  if (!plate.isShot())
    return options.frames.empty() ? std::vector<int>{}
                                  : media::parseFrames(options.frames, "--frames");
  const int first = plate.frames().front();
  const int last = plate.frames().back();
  std::vector<int> frames;
  if (options.frames.empty()) {
    for (int frame = first; frame <= last; ++frame) frames.push_back(frame);
    return frames;
  }
  for (int frame : media::parseFrames(options.frames, "--frames")) {
    if (frame >= first && frame <= last) frames.push_back(frame);
  }
  if (frames.empty()) {
    throw Error(
        Fault::missingFrames, plate.info().path,
        fmt::format("the shot has frames {} to {}, none of {}", first, last, options.frames));
  }
  return frames;
}

void addOutput(KeyJob& job, const std::string& view, const std::string& path, bool severalFrames) {
  if (path.empty()) return;
  ViewOutput output;
  output.output = view;
  output.path = path;
  output.pattern = media::FramePattern::parse(path);
  output.isMovie = !output.pattern && media::isMovieName(path);
  if (severalFrames && !output.pattern && !output.isMovie) {
    throw Error::expected(
        Fault::wrongUse, path,
        "a name with a frame number or of a movie for a shot, such as out.####.exr or out.mov",
        path);
  }
  job.outputs.push_back(std::move(output));
}

// No output may be an input, at any frame.
void checkOutputs(const KeyJob& job, const KeyOptions& options, const std::vector<int>& frames) {
  for (int frame : frames) {
    std::vector<std::string> inputs{job.plate->fileOf(frame)};
    for (const SideInput* side : {&job.background, &job.holdOut, &job.garbage, &job.reference}) {
      if (side->source) inputs.push_back(side->source->fileOf(frame + side->offset));
    }
    if (!options.preset.empty()) inputs.push_back(options.preset);
    std::vector<std::string> outputs;
    for (const ViewOutput& output : job.outputs) {
      const std::string path = output.fileOf(frame);
      if (output.isMovie) {
        media::checkMovieOutput(path, options.codec, inputs);
      } else {
        media::checkOutput(path, inputs);
      }
      if (std::find(outputs.begin(), outputs.end(), path) != outputs.end()) {
        throw Error(Fault::wrongUse, path, "two outputs have this name");
      }
      outputs.push_back(path);
    }
  }
}

void chooseEncoding(const KeyOptions& options, const Source& plate,
                    const media::ColourPath& colours, Settings& settings) {
  if (settings.given("colourspace")) return;
  media::Encoding encoding =
      media::encodingOf(plate.header(), plate.info().format, plate.info().samples);
  if (colours.used && colours.linear) {
    encoding = {"linear", "working space " + colours.workingSpace};
  }
  settings.setText("colourspace", encoding.colourspace);
  if (options.quiet) return;
  fmt::print(stderr, "colourspace: {} ({}; --colourspace says otherwise)\n", encoding.colourspace,
             encoding.reason);
}

// The graph of the job. What no script can hold is refused.
std::string scriptOfJob(const KeyOptions& options, const KeyJob& job, const Settings& settings) {
  const auto refuse = [](const char* what) {
    throw Error(Fault::wrongUse, "--save-script", std::string("a script cannot hold ") + what);
  };
  if (job.reference.used || job.cleanPlateOf) refuse("a clean plate");
  if (job.premultiply) refuse("--premultiply");
  if (job.colours.used) refuse("colour spaces");
  if (job.outputs.size() > 1) refuse("several views");
  return scriptOf(settings,
                  {{options.plate},
                   {options.background, options.backgroundOffset},
                   {options.holdOut, options.holdOutOffset},
                   {options.garbage, options.garbageOffset},
                   options.output},
                  job.samples);
}

// Whether frames follow one another.
bool follow(const std::vector<int>& frames) {
  return std::adjacent_find(frames.begin(), frames.end(),
                            [](int a, int b) { return b != a + 1; }) == frames.end();
}

// Opens the movies to write. One that is there already is whole, and stays where it may.
void openMovies(KeyJob& job, const KeyOptions& options, const std::vector<int>& frames) {
  std::vector<std::string> notices;
  for (ViewOutput& output : job.outputs) {
    std::error_code ignored;
    if (!output.isMovie) continue;
    if (options.skipExisting && std::filesystem::exists(output.path, ignored)) continue;
    if (options.keepGoing) {
      throw Error(Fault::wrongUse, "--keep-going",
                  "expected numbered stills with it: a movie cannot leave frames out");
    }
    media::MovieOptions movie;
    movie.codec = options.codec;
    movie.frame = job.plate->info().display;
    movie.samples = job.samples;
    movie.facts = job.plate->facts();
    movie.threads = encoderThreads(job);
    if (!options.frameRate.empty()) {
      movie.facts.frameRate = media::parseFrameRate(options.frameRate, "--fps");
    } else if (movie.facts.frameRate.numerator == 0) {
      movie.facts.frameRate = {24, 1};
      notices.emplace_back("frame rate: 24 (nothing says another; --fps does)");
    }
    const int shotFirst = job.plate->isShot() ? job.plate->frames().front() : frames.front();
    movie.firstFrame = frames.front() - shotFirst;
    movie.frameCount = static_cast<int>(frames.size());
    movie.toTheEnd = job.plate->isShot() && frames.back() == job.plate->frames().back();
    movie.sound = follow(frames) && options.frameRate.empty();
    if (!movie.sound && !movie.facts.sound.empty()) {
      notices.emplace_back(
          "the sound is left out: it goes with frames that follow one another at "
          "the plate's rate");
    }
    output.movie = std::make_unique<media::MovieWriter>(output.path, movie);
    for (const std::string& notice : output.movie->notices()) notices.push_back(notice);
  }
  if (options.quiet) return;
  for (const std::string& notice : notices) fmt::print(stderr, "{}\n", notice);
}

void prepareKeyers(KeyJob& job, const Settings& settings, const Inputs& present) {
  for (ViewOutput& output : job.outputs) {
    Settings own = settings;
    own.setText("output", output.output);
    output.keyer = std::make_unique<Keyer>();
    try {
      output.keyer->prepare(own, job.depth, present);
    } catch (const Error& error) {
      throw error.subject() == "reference" ? error.about("--reference") : aboutOption(error);
    }
  }
}

// Opens the plate and what goes beside it, and says what their files leave open.
void openPictures(KeyJob& job, const KeyOptions& options) {
  job.plate = Source::open(options.plate);
  job.background = openSide(options.background, options.backgroundOffset, *job.plate, "background");
  job.holdOut = openSide(options.holdOut, options.holdOutOffset, *job.plate, "hold-out matte");
  job.garbage = openSide(options.garbage, options.garbageOffset, *job.plate, "garbage matte");
  job.reference = openSide(ScreenOptions::estimates(options.reference) ? "" : options.reference,
                           options.referenceOffset, *job.plate, "clean plate");
  if (options.quiet) return;
  for (const Source* source :
       {job.plate.get(), job.background.source.get(), job.holdOut.source.get(),
        job.garbage.source.get(), job.reference.source.get()}) {
    if (source != nullptr && !source->notice().empty()) {
      fmt::print(stderr, "{}\n", source->notice());
    }
  }
}

// The views to write, and the frames to key; none for a still.
std::vector<int> addOutputs(KeyJob& job, const KeyOptions& options, const Settings& settings) {
  std::vector<int> frames = framesOf(options, *job.plate);
  const bool several = frames.size() > 1;
  addOutput(job, std::string(settings.choice("output")), options.output, several);
  addOutput(job, "matte", options.matteOutput, several);
  addOutput(job, "status", options.statusOutput, several);
  addOutput(job, "unpremultiplied", options.foregroundOutput, several);
  const bool movies = std::any_of(job.outputs.begin(), job.outputs.end(),
                                  [](const ViewOutput& output) { return output.isMovie; });
  if (!options.codec.empty() && !movies) {
    throw Error(Fault::wrongUse, "--codec", "expected a movie to write, such as -o out.mov");
  }
  if (movies && frames.empty()) frames.push_back(1);
  checkOutputs(job, options, frames.empty() ? std::vector<int>{1} : frames);
  return frames;
}

void chooseSamples(KeyJob& job) {
  job.samples = job.plate->info().samples;
  if (job.background.source)
    job.samples = std::max(job.samples, job.background.source->info().samples);
  // Between spaces codes leave 0..1.
  if (job.colours.used) job.samples = std::max(job.samples, Samples::half);
  job.depth = media::depthOf(job.samples);
}

// The picture in which the screen is looked for. Whatever part of a shot is keyed, it is the same:
// all tasks of a farm see the same screen.
media::Picture screenPicture(const KeyJob& job, const KeyOptions& options,
                             std::optional<int> frame) {
  const auto read = [&] {
    const media::Window whole = job.plate->info().display;
    if (job.plate->isShot() || !frame) {
      const int first = job.plate->isShot() ? job.plate->frames().front() : 1;
      return job.plate->read(frame.value_or(first), {job.depth, whole, 1, ""});
    }
    const auto pattern = media::FramePattern::ofFile(options.plate);
    if (!pattern) {
      throw Error::expected(Fault::wrongUse, "--screen-frame",
                            "a plate with a frame number in its name", options.plate);
    }
    return media::PictureReader(pattern->path(*frame)).read(job.depth, whole, 1);
  };
  media::Picture picture = read();
  job.colours.plate.apply(picture);
  return picture;
}

// Looks at the plate where options ask for it, and estimates clean plates where they do.
void lookAtScreen(KeyJob& job, KeyOptions& options, Settings& settings) {
  options.screen.look([&](std::optional<int> frame) { return screenPicture(job, options, frame); },
                      options.reference, job.depth, settings, options.quiet);
  if (!options.screen.makesCleanPlates()) return;
  job.cleanPlateOf = [&options](const media::Picture& plate) {
    return options.screen.cleanPlateOf(plate);
  };
}

// Makes a keyer for every view. Of the pictures only what the views and the switches use is read.
void prepare(KeyJob& job, const Settings& settings) {
  const Inputs present{job.background.source != nullptr, job.holdOut.source != nullptr,
                       job.garbage.source != nullptr,
                       job.reference.source != nullptr || job.cleanPlateOf != nullptr};
  job.background.used = present.background && settings.view(present) == 0;
  job.holdOut.used = present.holdOut && settings.toggle("useHoldOutMatte");
  job.holdOut.channel = settings.text("holdOutChannel");
  job.garbage.used = present.garbage && settings.toggle("useGarbageMatte");
  job.garbage.channel = settings.text("garbageChannel");
  job.reference.used = job.reference.source && settings.toggle("useReference");
  job.screen = {settings.number("screen", 0), settings.number("screen", 1),
                settings.number("screen", 2)};
  prepareKeyers(job, settings, present);
}

int keyFrames(KeyJob& job, const KeyOptions& options, std::vector<int> frames) {
  // Frames are read side by side, each by one thread.
  if (frames.size() > 1) OIIO::attribute("threads", 1);
  ShotOptions run;
  run.frames = std::move(frames);
  run.skipExisting = options.skipExisting;
  run.keepGoing = options.keepGoing;
  run.inFlight = options.inFlight;
  run.progress = options.quiet ? ProgressForm::none : progressFormOf(options.progress);
  run.json = options.json;
  openMovies(job, options, run.frames);
  return keyShot(job, run);
}

int keyOne(const KeyJob& job, bool quiet) {
  const double seconds = keyStill(job, 1);
  if (!quiet) {
    fmt::print("{}: {}, {}, {}; keyed in {:.1f} ms on {} {}\n", job.outputs[0].fileOf(1),
               sizeOf(job.plate->info().data), media::nameOf(job.samples), job.outputs[0].output,
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

  KeyJob job;
  job.threads = options.threads > 0 ? options.threads : availableThreads();
  job.premultiply = options.premultiply;
  job.passThrough = options.passThrough;
  job.pastEnd = pastEndOf(options.pastEnd);
  OIIO::attribute("threads", job.threads);
  openPictures(job, options);
  std::vector<int> frames = addOutputs(job, options, settings);
  job.colours = options.colours.path();
  chooseEncoding(options, *job.plate, job.colours, settings);
  chooseSamples(job);
  lookAtScreen(job, options, settings);
  prepare(job, settings);
  if (!options.saveScript.empty()) {
    saveText(options.saveScript, scriptOfJob(options, job, settings));
  }
  if (!options.savePreset.empty()) savePreset(settings, options.savePreset);
  return frames.empty() ? keyOne(job, options.quiet) : keyFrames(job, options, std::move(frames));
}

}  // namespace

Run declareKey(CLI::App& command) {
  auto options = std::make_shared<KeyOptions>();
  options->addTo(command);
  return [options] { return runKey(*options); };
}

}  // namespace orvanite::cli
