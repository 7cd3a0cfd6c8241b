// SPDX-License-Identifier: BSD-3-Clause
//
// A shot runs through three stages: frames are handed out in order (and read there, where a source
// has to be read in order), read, keyed and written side by side, and reported in order. How many
// are under way is bounded, and memory with it.
#include "apps/cli/KeyJob.h"

#include <fmt/format.h>
#include <tbb/global_control.h>
#include <tbb/info.h>
#include <tbb/parallel_pipeline.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <new>

#include "apps/cli/Commands.h"
#include "apps/cli/KeyFrame.h"
#include "apps/cli/Signals.h"
#include "apps/media/FrameRange.h"
#include "keyer/Error.h"

namespace orvanite::cli {
namespace {

constexpr std::size_t memoryInFlight = std::size_t{5} << 28;

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
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

// Decoders and encoders keep frames of their own, however few are under way: what is left of the
// memory is shared by the frames between them. Sizes count in pictures.
int framesInFlight(const KeyJob& job, const ShotOptions& options) {
  if (options.inFlight > 0) return options.inFlight;
  const media::Window data = united(job.plate->info().data, job.plate->info().display);
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

int encoderThreads(const KeyJob& job) {
  const auto movies = std::count_if(job.outputs.begin(), job.outputs.end(),
                                    [](const ViewOutput& output) { return output.isMovie; });
  return std::clamp(job.threads / std::max(1, static_cast<int>(movies)), 1, 16);
}

double keyStill(const KeyJob& job, int frame) {
  FramePictures pictures = finishReads(job, frame, beginReads(job, frame));
  const auto start = std::chrono::steady_clock::now();
  std::vector<media::Picture> views = keyed(job, frame, std::move(pictures), job.threads);
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
