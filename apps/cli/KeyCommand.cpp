// SPDX-License-Identifier: BSD-3-Clause
//
// `orvanite key`: from options to a job: what to read, how to key it, where to write.
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "apps/cli/Commands.h"
#include "apps/cli/KeyBatch.h"
#include "apps/cli/KeyOptions.h"
#include "apps/cli/KeyRun.h"
#include "apps/cli/SaveScript.h"
#include "base/Error.h"
#include "keyer/ColourText.h"
#include "keyer/MaskFile.h"
#include "keyer/Preset.h"
#include "keyer/Threads.h"
#include "media/InputFile.h"
#include "media/MovieSource.h"
#include "media/PictureWriter.h"
#include "shot/Images.h"
#include "shot/Mask.h"

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

// What a preset says that is not the plate's own: it may have been made for other plates.
struct FromPreset {
  std::string colourspace;  // empty: it says none
  PresetSpaces spaces;
};

Settings settingsOf(KeyOptions& options, FromPreset& preset) {
  Settings settings;
  if (!options.preset.empty()) {
    settings = settingsFromPresetFile(options.preset, &preset.spaces);
    if (settings.given("colourspace")) preset.colourspace = settings.text("colourspace");
  }
  options.screen.apply(options.parameters, settings);
  return settings;
}

PresetSpaces spacesOf(const media::ColourPath& colours) {
  return {colours.inputSpace, colours.workingSpace, colours.outputSpace};
}

// Says where a preset was made for plates of another kind than this one.
void comparePreset(const FromPreset& preset, const shot::Shot& shot, const Settings& settings) {
  const media::Encoding own = shot.encoding();
  if (!preset.colourspace.empty() && settings.text("colourspace") == preset.colourspace &&
      own.colourspace != preset.colourspace) {
    fmt::print(stderr, "colourspace: {}, the preset's; the plate is {} ({})\n", preset.colourspace,
               own.colourspace, own.reason);
  }
  const PresetSpaces spaces = spacesOf(shot.colours());
  const auto compare = [](const char* option, const std::string& made, const std::string& now) {
    if (made.empty() || made == now) return;
    fmt::print(stderr, "{}: the preset was made with {}, this is {}\n", option, made,
               now.empty() ? "keyed without" : now);
  };
  compare("--input-space", preset.spaces.input, spaces.input);
  compare("--working-space", preset.spaces.working, spaces.working);
  compare("--output-space", preset.spaces.output, spaces.output);
}

// How the pictures are read: the plate as asked for; all movies at one rate and in whole frames.
void chooseReading(const KeyOptions& options, shot::ShotFiles& files) {
  const media::OpenOptions how = options.reading.how();
  const auto rate = options.movie.wish().frameRate;
  bool movies = false;
  for (const Role role : shot::roles) {
    shot::Clip& clip = files.clips[role];
    if (role == Role::plate) clip.how = how;
    const bool movie = media::isMovieName(clip.path) && !media::FramePattern::parse(clip.path);
    clip.how.deinterlace = movie && how.deinterlace;
    if (rate) clip.how.frameRate = *rate;
    movies = movies || movie;
  }
  if (how.deinterlace && !movies) {
    throw Error(Fault::wrongUse, "--deinterlace", "expected a movie with it");
  }
}

// Those of the file, and those of the options, which do not move.
Masks masksOf(const KeyOptions& options) {
  Masks masks;
  if (!options.masks.empty()) masks = masksFromFile(options.masks);
  if (!(options.garbageSoft >= 0 && options.garbageSoft <= 1000)) {
    throw Error::expected(Fault::wrongUse, "--garbage-soft", "a number from 0 to 1000",
                          fmt::format("{}", options.garbageSoft));
  }
  const auto add = [&](MaskShape shape) {
    shape.softPixels = options.garbageSoft;
    shape.outside = options.garbageOutside;
    masks.push_back({shape, {{1, shape.points, {}}}});
  };
  for (const std::string& text : options.garbageRects) {
    add(shot::rectangleOf(text, "--garbage-rect"));
  }
  for (const std::string& text : options.garbagePolygons) {
    add(shot::polygonOf(text, "--garbage-polygon"));
  }
  return masks;
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
  chooseReading(options, files);
  files.pastEnd = pastEndOf(options.pastEnd);
  files.backgroundFit = shot::fitOf(options.backgroundFit, "--bg-fit");
  files.backgroundEncoding = options.backgroundColourspace;
  files.masks = masksOf(options);
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

// A colour as background is the flat one.
void takeFlatBackground(KeyOptions& options, Settings& settings) {
  std::error_code ignored;
  if (options.background.empty() || std::filesystem::exists(options.background, ignored)) return;
  const auto colour = displayColour(options.background);
  if (!colour && options.background.find_first_not_of("0123456789.,") != std::string::npos) return;
  if (settings.given("output") && settings.choice("output") != "compOnColour") {
    throw Error(Fault::wrongUse, "--bg " + options.background,
                "expected no --output with it, or compOnColour");
  }
  settings.setText("output", "compOnColour");
  try {
    if (colour) {
      settings.setNumbers("backgroundColour", static_cast<double>((*colour)[0]),
                          static_cast<double>((*colour)[1]), static_cast<double>((*colour)[2]));
    } else {
      settings.setText("backgroundColour", options.background);
    }
  } catch (const Error& error) {
    throw error.about("--bg");
  }
  options.background.clear();
}

void checkEncoding(const std::string& text) {
  if (text.empty() || text == "linear" || text == "log" || text == "video") return;
  throw Error::expected(Fault::wrongUse, "--bg-colourspace", "linear, log or video", text);
}

shot::Alpha alphaOf(const std::string& text) {
  if (text == "matte") return shot::Alpha::matte;
  if (text == "premultiplied") return shot::Alpha::premultiplied;
  if (text == "none") return shot::Alpha::none;
  throw Error::expected(Fault::wrongUse, "--alpha", "matte, premultiplied or none", text);
}

// The first output's view and what lies beside its colours; said where it was chosen.
shot::Alpha chooseView(shot::Job& job, const KeyOptions& options) {
  Settings& settings = job.settings;
  if (options.premultiply) return shot::Alpha::premultiplied;
  if (options.passThrough) return shot::Alpha::matte;  // the plate's own
  if (settings.given("output")) {
    return options.alpha.empty() ? shot::usualAlpha(settings.text("output"))
                                 : alphaOf(options.alpha);
  }
  auto [view, alpha] = shot::usualView(job.shot->inputs(), options.output, options.movie.codec);
  settings.setText("output", view);
  if (!options.alpha.empty()) alpha = alphaOf(options.alpha);
  if (options.quiet || view == "composite") return alpha;
  fmt::print(stderr, "output: {} (--bg puts something behind, --output shows another view)\n",
             view != "unpremultiplied" ? "over black, as its format holds no alpha"
             : alpha == shot::Alpha::premultiplied
                 ? "a cut-out, colours multiplied by the matte in alpha"
             : alpha == shot::Alpha::matte ? "a cut-out, straight colours and the matte in alpha"
                                           : "the foreground's colours, without a matte");
  return alpha;
}

bool writesMovies(const shot::Job& job) {
  return std::any_of(job.outputs.begin(), job.outputs.end(),
                     [](const shot::ViewOutput& output) { return output.isMovie; });
}

// The views to write, and the frames to key; none for a still.
std::vector<int> addOutputs(shot::Job& job, const KeyOptions& options) {
  const shot::Alpha first = chooseView(job, options);
  const shot::Alpha others = options.alpha.empty() ? shot::Alpha::none : alphaOf(options.alpha);
  std::vector<int> frames = shot::framesOf(job.shot->plate(), options.frames, "--frames");
  const bool several = frames.size() > 1;
  addOutput(job, std::string(job.settings.choice("output")), first, options.output, several);
  addOutput(job, "matte", others, options.matteOutput, several);
  addOutput(job, "status", others, options.statusOutput, several);
  addOutput(job, "unpremultiplied", options.alpha.empty() ? shot::Alpha::matte : others,
            options.foregroundOutput, several);
  addEstimate(job, shot::Estimate::cleanPlate, options.saveReference, several);
  addEstimate(job, shot::Estimate::holdOut, options.saveHoldOut, several);
  addEstimate(job, shot::Estimate::garbage, options.saveGarbage, several);
  const bool movies = writesMovies(job);
  if (const std::string option = options.movie.given(); !option.empty() && !movies) {
    throw Error(Fault::wrongUse, option, "expected a movie to write, such as -o out.mov");
  }
  if (movies && options.keepGoing) {
    throw Error(Fault::wrongUse, "--keep-going",
                "expected numbered stills with it: a movie cannot leave frames out");
  }
  if (movies && frames.empty()) frames.push_back(1);
  std::vector<std::string> read, written;
  for (const std::string* path : {&options.preset, &options.masks}) {
    if (!path->empty()) read.push_back(*path);
  }
  if (options.movie.sound != "none" && !options.movie.sound.empty()) {
    read.push_back(options.movie.sound);
  }
  for (const std::string* path : {&options.savePreset, &options.saveScript}) {
    if (!path->empty()) written.push_back(*path);
  }
  checkOutputs(job, frames.empty() ? std::vector<int>{1} : frames, options.movie.codec, read,
               written);
  return frames;
}

// The graph of the job. What no script can hold is refused.
std::string scriptOfJob(const KeyOptions& options, const shot::Job& job) {
  const auto refuse = [](const std::string& what) {
    throw Error(Fault::wrongUse, "--save-script", "a script cannot hold " + what);
  };
  for (const auto& [option, path] : {std::pair{"--save-reference", &options.saveReference},
                                     {"--save-hold-out", &options.saveHoldOut},
                                     {"--save-garbage", &options.saveGarbage}}) {
    if (!path->empty()) refuse(option);
  }
  if (job.reads(Role::cleanPlate)) refuse("the clean plate of --reference");
  if (job.firstKey.blind || job.firstKey.cleanPlate) {
    refuse("the clean plates of --auto, --estimate or --reference auto, found in each frame");
  }
  if (options.passThrough) refuse("--no-key");
  if (!options.masks.empty()) refuse("the drawn masks of --masks");
  if (!job.shot->files().masks.empty())
    refuse("--garbage-rect and --garbage-polygon, with --garbage-soft and --garbage-outside");
  if (!job.shot->backgroundIsAsItIs())
    refuse("a --bg of another size or encoding, which --bg-fit and --bg-colourspace are for");
  if (job.shot->colours().used)
    refuse("--input-space with --ocio, --bg-space, --working-space and --output-space");
  if (!options.matteOutput.empty()) refuse("--matte-output");
  if (!options.statusOutput.empty()) refuse("--status-output");
  if (!options.foregroundOutput.empty()) refuse("--foreground-output");
  if (!job.outputs[0].pattern && media::FramePattern::parse(options.output)) {
    refuse("the name " + options.output + " of -o: it takes the sign for a frame's number");
  }
  Settings settings = job.settings;
  for (const auto& [role, name] :
       {std::pair{Role::holdOut, "holdOutChannel"}, {Role::garbage, "garbageChannel"}}) {
    const std::string channel = channelOf(*job.shot, settings, role);
    if (!channel.empty()) settings.setText(name, channel);
  }
  return scriptOf(settings,
                  {job.shot->files().clips, options.output, job.outputs[0].alpha,
                   pastEndOf(options.pastEnd), options.movie, options.saveScript},
                  job.shot->samples());
}

void sayMatteChannels(const KeyOptions& options, const shot::Shot& shot, const Settings& settings) {
  if (options.quiet) return;
  for (const Role role : shot::roles) {
    const std::string channel = channelOf(shot, settings, role);
    if (channel != "R") continue;
    const char* const option = role == Role::holdOut ? "holdOutChannel" : "garbageChannel";
    if (settings.given(option)) continue;
    fmt::print(stderr, "{}: its red channel, as it has no alpha ({} says otherwise)\n",
               nameOf(role), optionName(option));
  }
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
  const media::MovieWish movies = options.movie.wish();
  for (const std::string& notice : openMovies(job, movies, frames, options.skipExisting)) {
    if (!options.quiet) fmt::print(stderr, "{}\n", notice);
  }
  shot::ShotRun run;
  run.frames = std::move(frames);
  run.skipExisting = options.skipExisting;
  run.keepGoing = options.keepGoing;
  run.inFlight = options.inFlight;
  return runShot(job, std::move(run),
                 {options.quiet ? ProgressForm::none : progressFormOf(options.progress),
                  options.json, options.quiet});
}

int keyOne(const shot::Job& job, bool quiet, bool json) {
  const double seconds = keyStill(job, 1);
  if (json) {
    Progress progress(ProgressForm::none, true, 1);
    progress.frame(1, job.outputs[0].fileOf(1), FrameStatus::done, seconds, "");
    progress.finish(false);
    return success;
  }
  const media::Window& data = job.shot->plate().info().data;
  if (!quiet) {
    fmt::print("{}: {}x{}, {}, {}; keyed in {:.1f} ms on {} {}\n", job.outputs[0].fileOf(1),
               data.width, data.height,
               media::nameOf(media::writtenSamples(job.outputs[0].fileOf(1), job.shot->samples())),
               job.outputs[0].view, seconds * 1000, job.threads,
               job.threads == 1 ? "thread" : "threads");
  }
  return success;
}

int keyPlate(KeyOptions& options) {
  checkNumber("--threads", options.threads, 0, 1024);
  checkNumber("--in-flight", options.inFlight, 0, 1024);
  checkEncoding(options.backgroundColourspace);
  if (!options.memory.empty()) {
    media::setMemoryBound(media::parseMemory(options.memory, "--memory"));
  }
  FromPreset preset;
  Settings settings = settingsOf(options, preset);
  takeFlatBackground(options, settings);
  if (options.premultiply && settings.choice("output") != "unpremultiplied") {
    throw Error(Fault::wrongUse, "--premultiply", "expected --output unpremultiplied with it");
  }

  shot::Job job;
  job.threads = options.threads > 0 ? options.threads : availableThreads();
  job.passThrough = options.passThrough;
  OIIO::attribute("threads", job.threads);
  const shot::Shot shot(filesOf(options), options.colours.path());
  if (!options.quiet) {
    for (const std::string& notice : shot.notices()) fmt::print(stderr, "{}\n", notice);
  }
  job.shot = &shot;
  job.settings = std::move(settings);
  std::vector<int> frames = addOutputs(job, options);
  if (!options.quiet) comparePreset(preset, shot, job.settings);
  chooseEncoding(options, shot, job.settings);
  for (const std::string& colour : options.parameters.recodeColours(job.settings)) {
    if (!options.quiet) fmt::print(stderr, "{}\n", colour);
  }
  sayMatteChannels(options, shot, job.settings);
  job.firstKey = options.passThrough
                     ? shot::FirstKey()
                     : options.screen.look(shot, options.reference, job.settings, options.quiet);
  prepare(job);
  std::vector<std::unique_ptr<media::PendingFile>> texts;
  if (!options.saveScript.empty()) {
    texts.push_back(pendingText(options.saveScript, scriptOfJob(options, job)));
  }
  if (!options.savePreset.empty()) {
    texts.push_back(
        pendingText(options.savePreset, presetText(job.settings, spacesOf(shot.colours()))));
  }
  const auto keepTexts = [&texts] {
    for (const auto& text : texts) text->commit();
  };
  // Frames stay one by one, and what keys them with them; a still or a movie that fails leaves
  // nothing.
  const bool oneByOne = !frames.empty() && !writesMovies(job);
  if (oneByOne) keepTexts();
  const int result = frames.empty() ? keyOne(job, options.quiet, options.json)
                                    : keyFrames(job, options, std::move(frames));
  if (!oneByOne) keepTexts();
  return result;
}

}  // namespace

Run declareKey(CLI::App& command) {
  auto options = std::make_shared<KeyOptions>();
  options->addTo(command);
  return [options] { return keyPlates(*options, keyPlate); };
}

}  // namespace orvanite::cli
