// SPDX-License-Identifier: BSD-3-Clause
//
// A shot runs through three stages: frames are handed out in order (and read there, where a source
// has to be read in order), read, keyed and written side by side, and reported in order. How many
// are under way is bounded, and memory with it.
#include "apps/cli/KeyJob.h"

#include <fmt/format.h>
#include <tbb/global_control.h>
#include <tbb/info.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_pipeline.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <new>

#include "apps/cli/Commands.h"
#include "apps/cli/Signals.h"
#include "apps/media/FrameRange.h"
#include "apps/media/PictureWriter.h"
#include "keyer/Error.h"

namespace orvanite::cli {
namespace {

using media::Picture;
using media::Source;
using media::Window;

constexpr std::size_t memoryInFlight = std::size_t{5} << 28;

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

struct FramePictures {
  Picture plate, background, holdOut, garbage, reference;
};

// The same while some of it is decoded but not converted.
struct FrameReads {
  std::function<Picture()> plate, background, holdOut, garbage, reference;
};

// The frame of a side input that goes with a frame of the plate; none where it shows black.
std::optional<int> frameOf(const SideInput& input, int frame, PastEnd pastEnd) {
  const std::vector<int>& frames = input.source->frames();
  if (frames.empty()) return frame;
  const int first = frames.front();
  const int last = frames.back();
  const int wanted = frame + input.offset;
  if (wanted >= first && wanted <= last) return wanted;
  switch (pastEnd) {
    case PastEnd::hold:
      return std::clamp(wanted, first, last);
    case PastEnd::loop: {
      const int length = last - first + 1;
      return first + ((wanted - first) % length + length) % length;
    }
    default:
      return std::nullopt;
  }
}

// Where a window of one source lies in the coordinates of another, whose frame may start elsewhere.
Window windowIn(const Source& to, const Source& from, Window window) {
  window.x += to.info().display.x - from.info().display.x;
  window.y += to.info().display.y - from.info().display.y;
  return window;
}

// The pixels of a keyed frame: all that the plate, the background and the mattes have, and the
// whole frame where a file cannot hold less. A key beside a plate's pixels shows what is behind it.
Window keyedWindow(const KeyJob& job, int frame) {
  Window window = job.plate->windowOf(frame);
  for (const SideInput* side : {&job.background, &job.holdOut, &job.garbage}) {
    if (!side->source) continue;
    const auto own = frameOf(*side, frame, job.pastEnd);
    if (own)
      window = united(window, windowIn(*job.plate, *side->source, side->source->windowOf(*own)));
  }
  const bool kept =
      std::all_of(job.outputs.begin(), job.outputs.end(), [](const ViewOutput& output) {
        return !output.isMovie && media::keepsDataWindow(output.path);
      });
  return kept ? window : united(window, job.plate->info().display);
}

// Begins what one thread must do of a read, in order; leaves the rest, and all that need not be
// done so, to whoever calls the result.
std::function<Picture()> beginRead(Source& source, int frame,
                                   std::function<media::Request()> request) {
  if (source.sequential()) return source.begin(frame, request());
  return [&source, frame, request = std::move(request)] { return source.read(frame, request()); };
}

std::function<Picture()> beginSide(const KeyJob& job, const SideInput& input, int frame) {
  const auto window = [&job, &input, frame] {
    return windowIn(*input.source, *job.plate, keyedWindow(job, frame));
  };
  if (const auto own = frameOf(input, frame, job.pastEnd)) {
    return beginRead(*input.source, *own, [&job, &input, window] {
      return media::Request{job.depth, window(), 1, input.channel};
    });
  }
  return [&job, window] {
    Picture black = Picture::make(window(), job.depth, job.samples);
    std::memset(black.pixels.get(), 0, black.bytes());
    return black;
  };
}

FrameReads beginReads(const KeyJob& job, int frame) {
  FrameReads reads;
  reads.plate = beginRead(*job.plate, frame, [&job, frame] {
    return media::Request{job.depth, keyedWindow(job, frame), 1, ""};
  });
  const auto begin = [&](const SideInput& input, std::function<Picture()>& to) {
    if (input.used) to = beginSide(job, input, frame);
  };
  begin(job.background, reads.background);
  begin(job.holdOut, reads.holdOut);
  begin(job.garbage, reads.garbage);
  begin(job.reference, reads.reference);
  return reads;
}

// Lets go of each decoded frame as soon as it is a picture.
Picture finished(std::function<Picture()>& read) {
  Picture picture = read();
  read = nullptr;
  return picture;
}

FramePictures finishReads(const KeyJob& job, int frame, FrameReads reads) {
  FramePictures pictures;
  pictures.plate = finished(reads.plate);
  pictures.plate.samples = job.samples;
  job.colours.plate.apply(pictures.plate);
  // Beside the plate's pixels there is nothing but screen.
  if (!job.passThrough) {
    media::paintOutside(pictures.plate, job.plate->windowOf(frame), job.screen);
  }
  if (reads.background) {
    pictures.background = finished(reads.background);
    job.colours.background.apply(pictures.background);
  }
  if (reads.holdOut) pictures.holdOut = finished(reads.holdOut);
  if (reads.garbage) pictures.garbage = finished(reads.garbage);
  if (reads.reference) {
    pictures.reference = finished(reads.reference);
    job.colours.plate.apply(pictures.reference);
    // What is painted as screen is screen beside a clean plate, too.
    const Window inside = windowIn(*job.reference.source, *job.plate, job.plate->windowOf(frame));
    media::paintOutside(pictures.reference, inside, job.screen);
  }
  return pictures;
}

// The keyed views, in the order of the job's outputs; the first takes the plate's place. The other
// pictures are gone when they are done.
std::vector<Picture> keyed(const KeyJob& job, int number, FramePictures pictures, int threads) {
  std::vector<Picture> views(job.outputs.size());
  Frame frame;
  frame.width = pictures.plate.data.width;
  frame.height = pictures.plate.data.height;
  frame.depth = job.depth;
  frame.pictures.fg = pictures.plate.image();
  if (job.background.used) frame.pictures.bg = pictures.background.image();
  if (job.holdOut.used) frame.pictures.hold = pictures.holdOut.image();
  if (job.garbage.used) frame.pictures.garbage = pictures.garbage.image();
  if (job.cleanPlateOf) {
    pictures.reference = job.cleanPlateOf(pictures.plate);
    media::paintOutside(pictures.reference, job.plate->windowOf(number), job.screen);
    frame.pictures.ref = pictures.reference.image();
  }
  if (job.reference.used) frame.pictures.ref = pictures.reference.image();
  for (std::size_t i = views.size(); i-- > 1;) {
    views[i] = Picture::make(pictures.plate.data, job.depth, job.samples);
    views[i].header = pictures.plate.header;
    views[i].hasAlpha = true;
    frame.pictures.dst = views[i].image();
    job.outputs[i].keyer->render(frame, threads);
  }
  frame.pictures.dst = frame.pictures.fg;
  if (!job.passThrough) job.outputs[0].keyer->render(frame, threads);
  views[0] = std::move(pictures.plate);
  for (std::size_t i = 0; i < views.size(); ++i) {
    // A matte is no colour, unless there is nothing but the plate.
    const std::string& output = job.outputs[i].output;
    if (job.passThrough || (output != "matte" && output != "status")) {
      job.colours.out.apply(views[i]);
    }
  }
  if (job.premultiply) media::multiplyByAlpha(views[0]);
  return views;
}

// What still has to be done in order: the movies' frames, by output.
using MovieFrames = std::vector<std::shared_ptr<AVFrame>>;

MovieFrames write(const KeyJob& job, std::vector<Picture> views, int frame) {
  MovieFrames rest(views.size());
  for (std::size_t i = 0; i < views.size(); ++i) {
    const ViewOutput& output = job.outputs[i];
    const Picture view = std::move(views[i]);
    if (output.movie) {
      rest[i] = output.movie->prepare(view);
    } else if (!output.isMovie) {
      media::writePicture(view, output.fileOf(frame));
    }
  }
  return rest;
}

// Each frame is let go of as soon as the encoder has it.
void writeMovies(const KeyJob& job, MovieFrames& frames) {
  tbb::parallel_for(std::size_t{0}, frames.size(), [&](std::size_t i) {
    if (!frames[i]) return;
    job.outputs[i].movie->write(std::move(frames[i]));
  });
}

bool hasMovies(const KeyJob& job) {
  return std::any_of(job.outputs.begin(), job.outputs.end(),
                     [](const ViewOutput& output) { return output.movie != nullptr; });
}

// A frame on its way through the pipeline.
struct Work {
  int frame = 0;
  FrameReads reads;
  MovieFrames movieFrames;
  FrameStatus status = FrameStatus::done;
  Fault fault = Fault::failure;
  std::string message;
  double seconds = 0;
};

template <class Action>
void guarded(Work& work, const Action& action) {
  if (work.status != FrameStatus::done) return;
  try {
    action();
  } catch (const Error& error) {
    work.status = FrameStatus::failed;
    work.fault = error.fault();
    work.message = error.what();
  } catch (const std::exception& error) {
    work.status = FrameStatus::failed;
    work.message =
        dynamic_cast<const std::bad_alloc*>(&error) != nullptr ? "out of memory" : error.what();
  }
}

bool allExist(const KeyJob& job, int frame) {
  std::error_code ignored;
  return std::all_of(job.outputs.begin(), job.outputs.end(), [&](const ViewOutput& output) {
    return std::filesystem::exists(output.fileOf(frame), ignored);
  });
}

}  // namespace

int encoderThreads(const KeyJob& job) {
  const auto movies = std::count_if(job.outputs.begin(), job.outputs.end(),
                                    [](const ViewOutput& output) { return output.isMovie; });
  return std::clamp(job.threads / std::max(1, static_cast<int>(movies)), 1, 16);
}

namespace {

// Decoders and encoders keep frames of their own, however few are under way: what is left of the
// memory is shared by the frames between them. Sizes count in pictures.
int framesInFlight(const KeyJob& job, const ShotOptions& options) {
  if (options.inFlight > 0) return options.inFlight;
  const Window data = united(job.plate->info().data, job.plate->info().display);
  const std::size_t picture = 4 * static_cast<std::size_t>(job.depth) *
                              static_cast<std::size_t>(data.width) *
                              static_cast<std::size_t>(data.height);
  std::size_t kept = job.plate->sequential() ? 1 : 0;
  // While one is read, the others are there; a movie's passes through another layout.
  std::size_t each = job.outputs.size();
  bool movies = job.plate->sequential();
  for (const SideInput* input : {&job.background, &job.holdOut, &job.garbage, &job.reference}) {
    if (!input->used) continue;
    ++each;
    kept += input->source->sequential() ? 1 : 0;
    movies = movies || input->source->sequential();
  }
  for (const ViewOutput& output : job.outputs) {
    if (output.movie == nullptr) continue;
    movies = true;
    const auto own = static_cast<std::size_t>(encoderThreads(job));
    kept += own > 1 ? own + 2 : 1;  // a frame for each thread, and those that wait for one
  }
  each += movies ? 1 : 0;
  const std::size_t room = memoryInFlight - std::min(memoryInFlight, kept * picture);
  return static_cast<int>(std::clamp<std::size_t>(room / std::max<std::size_t>(each * picture, 1),
                                                  1, static_cast<std::size_t>(job.threads) + 2));
}

}  // namespace

double keyStill(const KeyJob& job, int frame) {
  FramePictures pictures = finishReads(job, frame, beginReads(job, frame));
  const auto start = std::chrono::steady_clock::now();
  std::vector<Picture> views = keyed(job, frame, std::move(pictures), job.threads);
  const double seconds = secondsSince(start);
  static_cast<void>(write(job, std::move(views), frame));
  return seconds;
}

int keyShot(const KeyJob& job, const ShotOptions& options) {
  stopAtNextFrameOnSignals();
  Progress progress(options.progress, options.json, static_cast<int>(options.frames.size()));
  std::size_t next = 0;
  std::atomic<bool> stop = false;
  Fault fault = Fault::failure;
  std::vector<int> finished;
  bool firstReport = true;

  const auto handOut = [&](tbb::flow_control& control) -> std::shared_ptr<Work> {
    if (next == options.frames.size() || stop || stopAsked()) {
      control.stop();
      return nullptr;
    }
    auto work = std::make_shared<Work>();
    work->frame = options.frames[next++];
    if (options.skipExisting && allExist(job, work->frame)) work->status = FrameStatus::skipped;
    const auto start = std::chrono::steady_clock::now();
    guarded(*work, [&] { work->reads = beginReads(job, work->frame); });
    work->seconds = secondsSince(start);
    return work;
  };
  const auto keyAndWrite = [&](std::shared_ptr<Work> work) {
    const auto start = std::chrono::steady_clock::now();
    guarded(*work, [&] {
      // Frames run side by side; one alone does not split further.
      work->movieFrames = write(
          job, keyed(job, work->frame, finishReads(job, work->frame, std::move(work->reads)), 1),
          work->frame);
    });
    work->reads = {};
    work->seconds += secondsSince(start);
    return work;
  };
  const auto report = [&](const std::shared_ptr<Work>& work) {
    // A movie with a hole is none: what follows a frame that failed is not written.
    if (progress.failed() == 0) guarded(*work, [&] { writeMovies(job, work->movieFrames); });
    work->movieFrames.clear();
    progress.frame(work->frame, job.outputs[0].fileOf(work->frame), work->status, work->seconds,
                   work->message);
    if (work->status != FrameStatus::failed) {
      finished.push_back(work->frame);
      return;
    }
    std::fflush(stdout);
    fmt::print(stderr, "orvanite: frame {}: {}\n", work->frame, work->message);
    if (firstReport) fault = work->fault;
    firstReport = false;
    if (!options.keepGoing) stop = true;
  };

  std::optional<tbb::global_control> more;
  if (job.threads > tbb::info::default_concurrency()) {
    more.emplace(tbb::global_control::max_allowed_parallelism,
                 static_cast<std::size_t>(job.threads));
  }
  tbb::task_arena(job.threads).execute([&] {
    tbb::parallel_pipeline(
        static_cast<std::size_t>(framesInFlight(job, options)),
        tbb::make_filter<void, std::shared_ptr<Work>>(tbb::filter_mode::serial_in_order, handOut) &
            tbb::make_filter<std::shared_ptr<Work>, std::shared_ptr<Work>>(
                tbb::filter_mode::parallel, keyAndWrite) &
            tbb::make_filter<std::shared_ptr<Work>, void>(tbb::filter_mode::serial_in_order,
                                                          report));
  });

  const bool wasCancelled =
      stopAsked() &&
      finished.size() + static_cast<std::size_t>(progress.failed()) < options.frames.size();
  const bool moviesLost = hasMovies(job) && (wasCancelled || progress.failed() > 0);
  if (!moviesLost) {
    for (const ViewOutput& output : job.outputs) {
      if (output.movie) output.movie->finish();
    }
  }
  progress.finish(wasCancelled);
  if (moviesLost) {
    std::fflush(stdout);
    fmt::print(stderr,
               "orvanite: {}; a movie appears when it is whole: the same command begins it again\n",
               wasCancelled ? "stopped" : "not all frames are done");
  } else if (wasCancelled || progress.failed() > 0) {
    std::fflush(stdout);
    std::sort(finished.begin(), finished.end());
    fmt::print(stderr,
               "orvanite: {}; finished frames are whole ({}); the same command with "
               "--skip-existing does the others\n",
               wasCancelled ? "stopped" : "not all frames are done",
               finished.empty() ? "none" : media::formatFrames(finished));
  }
  if (wasCancelled) return cancelled;
  if (progress.failed() == 0) return success;
  return fault == Fault::missingFrames ? missingInput : framesFailed;
}

}  // namespace orvanite::cli
