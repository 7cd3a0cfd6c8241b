// SPDX-License-Identifier: BSD-3-Clause
//
// A shot runs through three stages: frames are handed out in order (and read there, where a source
// has to be read in order), read, keyed and written side by side, and reported in order. How many
// are under way is bounded, and memory with it.
#include "shot/Pipeline.h"

#include <tbb/global_control.h>
#include <tbb/info.h>
#include <tbb/parallel_pipeline.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <new>

#include "media/PixelMemory.h"
#include "shot/Existing.h"
#include "shot/KeyedFrame.h"

namespace orvanite::shot {
namespace {

constexpr std::size_t memoryInFlight = std::size_t{5} << 28;

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

bool hasMovies(const Job& job) {
  return std::any_of(job.outputs.begin(), job.outputs.end(),
                     [](const ViewOutput& output) { return output.movie != nullptr; });
}

// A frame on its way through the pipeline.
struct Work {
  FrameReport report;
  FrameReads reads;
  MovieFrames movieFrames;
};

template <class Action>
void guarded(FrameReport& report, const Action& action) {
  if (report.status != FrameStatus::done) return;
  try {
    action();
  } catch (const Error& error) {
    report.status = FrameStatus::failed;
    report.fault = error.fault();
    report.message = error.what();
  } catch (const std::exception& error) {
    report.status = FrameStatus::failed;
    report.message =
        dynamic_cast<const std::bad_alloc*>(&error) != nullptr ? "out of memory" : error.what();
  }
}

// Whether nothing of a frame is left to do; what lies there and is not whole is said.
bool isDone(const Job& job, FrameReport& report) {
  for (const ViewOutput& output : job.outputs) {
    std::error_code ignored;
    const std::string path = output.fileOf(report.frame);
    if (output.movie || !std::filesystem::exists(path, ignored)) return false;
    if (output.isMovie) continue;  // was looked at before the first frame
    const std::string fault = faultOfExisting(job, output, path, 1);
    if (fault.empty()) continue;
    report.notice = path + ": " + fault + "; made again";
    return false;
  }
  return true;
}

// Decoders and encoders keep frames of their own, however few are under way: what is left of the
// memory is shared by the frames between them. Sizes count in pictures.
int framesInFlight(const Job& job, int wanted) {
  if (wanted > 0) return wanted;
  const media::PictureInfo& plate = job.shot->plate().info();
  const media::Window data = united(plate.data, plate.display);
  const std::size_t picture = 4 * static_cast<std::size_t>(job.shot->depth()) *
                              static_cast<std::size_t>(data.width) *
                              static_cast<std::size_t>(data.height);
  std::size_t kept = 0;
  // While one is read, the others are there; a movie's passes through another layout.
  std::size_t each = job.outputs.size();
  bool movies = false;
  for (const Role role : roles) {
    if (!job.reads(role)) continue;
    if (role != Role::plate) ++each;
    kept += job.shot->sequential(role) ? 1 : 0;
    movies = movies || job.shot->sequential(role);
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

double keyStill(const Job& job, int frame) {
  FramePictures pictures = finishReads(job, frame, beginReads(job, frame));
  const auto start = std::chrono::steady_clock::now();
  std::vector<media::Picture> views = keyedViews(job, frame, std::move(pictures), job.threads);
  const double seconds = secondsSince(start);
  static_cast<void>(write(job, std::move(views), frame));
  return seconds;
}

ShotResult keyShot(const Job& job, const ShotRun& run) {
  const media::KeptPixels kept;
  ShotResult result;
  std::size_t next = 0;
  std::atomic<bool> stop = false;

  const auto handOut = [&](tbb::flow_control& control) -> std::shared_ptr<Work> {
    if (next == run.frames.size() || stop || run.stopAsked()) {
      control.stop();
      return nullptr;
    }
    auto work = std::make_shared<Work>();
    const int frame = work->report.frame = run.frames[next++];
    if (run.skipExisting && isDone(job, work->report)) work->report.status = FrameStatus::skipped;
    const auto start = std::chrono::steady_clock::now();
    guarded(work->report, [&] { work->reads = beginReads(job, frame); });
    work->report.seconds = secondsSince(start);
    return work;
  };
  const auto keyAndWrite = [&](std::shared_ptr<Work> work) {
    const auto start = std::chrono::steady_clock::now();
    const int frame = work->report.frame;
    guarded(work->report, [&] {
      // Frames run side by side; one alone does not split further.
      work->movieFrames = write(
          job, keyedViews(job, frame, finishReads(job, frame, std::move(work->reads)), 1), frame);
    });
    work->reads = {};
    work->report.seconds += secondsSince(start);
    return work;
  };
  const auto report = [&](const std::shared_ptr<Work>& work) {
    // A movie with a hole is none: what follows a frame that failed is not written.
    if (result.failed == 0) guarded(work->report, [&] { writeMovies(job, work->movieFrames); });
    work->movieFrames.clear();
    if (work->report.status != FrameStatus::failed) {
      result.finished.push_back(work->report.frame);
    } else {
      if (result.failed == 0) result.fault = work->report.fault;
      ++result.failed;
      if (!run.keepGoing) stop = true;
    }
    run.report(work->report);
  };

  std::optional<tbb::global_control> more;
  if (job.threads > tbb::info::default_concurrency()) {
    more.emplace(tbb::global_control::max_allowed_parallelism,
                 static_cast<std::size_t>(job.threads));
  }
  tbb::task_arena(job.threads).execute([&] {
    tbb::parallel_pipeline(
        static_cast<std::size_t>(framesInFlight(job, run.inFlight)),
        tbb::make_filter<void, std::shared_ptr<Work>>(tbb::filter_mode::serial_in_order, handOut) &
            tbb::make_filter<std::shared_ptr<Work>, std::shared_ptr<Work>>(
                tbb::filter_mode::parallel, keyAndWrite) &
            tbb::make_filter<std::shared_ptr<Work>, void>(tbb::filter_mode::serial_in_order,
                                                          report));
  });

  const std::size_t ended = result.finished.size() + static_cast<std::size_t>(result.failed);
  result.cancelled = run.stopAsked() && ended < run.frames.size();
  result.moviesLost = hasMovies(job) && (result.cancelled || result.failed > 0);
  if (!result.moviesLost) {
    for (const ViewOutput& output : job.outputs) {
      if (output.movie) output.movie->finish();
    }
  }
  return result;
}

}  // namespace orvanite::shot
