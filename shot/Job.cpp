// SPDX-License-Identifier: BSD-3-Clause
#include "shot/Job.h"

#include <algorithm>
#include <filesystem>

#include "base/Error.h"
#include "media/MovieSource.h"
#include "media/PictureWriter.h"
#include "shot/Existing.h"
#include "shot/Images.h"

namespace orvanite::shot {
Inputs Job::inputs() const {
  Inputs present = shot->inputs();
  present.reference = present.reference || firstKey.cleanPlate;
  return present;
}

bool Job::reads(Role role) const { return shot->has(role) && uses(settings, inputs(), role); }

Alpha usualAlpha(const std::string& view) { return isCutOut(view) ? Alpha::matte : Alpha::none; }

std::pair<std::string, Alpha> usualView(const Inputs& inputs, const std::string& path,
                                        const std::string& codec) {
  if (inputs.background) return {"composite", Alpha::none};
  const bool movie = media::isMovieName(path) && !media::FramePattern::parse(path);
  const bool alpha = movie ? media::movieHoldsAlpha(path, codec) : media::pictureHoldsAlpha(path);
  if (!alpha) return {"compOnBlack", Alpha::none};
  const bool multiplied = !movie && media::pictureIsPremultiplied(path);
  return {"unpremultiplied", multiplied ? Alpha::premultiplied : Alpha::matte};
}

namespace {

void add(Job& job, ViewOutput output, const std::string& path, bool severalFrames) {
  if (path.empty()) return;
  output.path = path;
  output.pattern = media::FramePattern::ofOutput(path, severalFrames || job.shot->plate().isShot());
  output.isMovie = !output.pattern && media::isMovieName(path);
  if (severalFrames && !output.pattern && !output.isMovie) {
    throw Error::expected(
        Fault::wrongUse, path,
        "a name with a frame number or of a movie for a shot, such as out.####.exr or out.mov",
        path);
  }
  job.outputs.push_back(std::move(output));
}

bool makes(const FirstKey& key, Estimate estimate) {
  return key.blind != nullptr || (key.cleanPlate && estimate == Estimate::cleanPlate);
}

}  // namespace

void addOutput(Job& job, const std::string& view, Alpha alpha, const std::string& path,
               bool severalFrames) {
  ViewOutput output;
  output.view = view;
  output.alpha = alpha;
  add(job, std::move(output), path, severalFrames);
}

void addEstimate(Job& job, Estimate estimate, const std::string& path, bool severalFrames) {
  ViewOutput output;
  output.estimate = estimate;
  output.showsColours = estimate == Estimate::cleanPlate;
  add(job, std::move(output), path, severalFrames);
}

void checkOutputs(const Job& job, const std::vector<int>& frames, const std::string& codec,
                  const std::vector<std::string>& others, const std::vector<std::string>& written) {
  for (int frame : frames) {
    std::vector<std::string> inputs = others;
    for (const Role role : roles) {
      if (job.shot->hasFile(role)) inputs.push_back(job.shot->fileOf(role, frame));
    }
    std::vector<std::string> outputs;
    for (const ViewOutput& output : job.outputs) {
      const std::string path = output.fileOf(frame);
      if (output.isMovie) {
        media::checkMovieOutput(path, codec, inputs);
      } else {
        media::checkOutput(path, inputs);
      }
      for (const std::string& other : outputs) {
        if (media::isSameFile(path, other)) {
          throw Error(Fault::wrongUse, path, "the outputs " + other + " and this are one file");
        }
      }
      outputs.push_back(path);
    }
    for (const std::string& other : written) {
      for (const std::string& path : outputs) {
        if (media::isSameFile(path, other)) {
          throw Error(Fault::wrongUse, path, "the outputs " + other + " and this are one file");
        }
      }
      media::checkPlace(other, inputs);
    }
  }
}

void prepareKeyers(Job& job) {
  for (ViewOutput& output : job.outputs) {
    if (output.estimate) {
      if (makes(job.firstKey, *output.estimate)) continue;
      throw Error(
          Fault::wrongUse, output.path,
          "there is no estimate to write: expected a key that is found beside estimates, as "
          "--auto and --estimate ask for");
    }
    Settings own = job.settings;
    own.setText("output", output.view);
    output.showsColours = showsColours(own);
    const auto& found = job.firstKey.blind;
    output.keyer = std::make_unique<ViewKeyer>(own, found, job.shot->depth(),
                                               found ? job.shot->inputs() : job.inputs());
  }
}

std::vector<std::string> openMovies(Job& job, const media::MovieWish& wish,
                                    const std::vector<int>& frames, bool keepExisting) {
  std::vector<std::string> notices;
  const media::Source& plate = job.shot->plate();
  for (ViewOutput& output : job.outputs) {
    std::error_code ignored;
    if (!output.isMovie) continue;
    if (keepExisting && std::filesystem::exists(output.path, ignored)) {
      const std::string fault = faultOfExisting(job, output, output.path, frames.size());
      if (fault.empty()) continue;
      notices.push_back(output.path + ": " + fault + "; made again");
    }
    media::MovieOptions movie = media::movieOf(&plate, wish, frames, notices);
    movie.frame = plate.info().display;
    movie.samples = job.shot->samples();
    movie.threads = encoderThreads(job);
    movie.alpha = output.alpha != Alpha::none;
    output.movie = std::make_unique<media::MovieWriter>(output.path, movie);
    for (const std::string& notice : output.movie->notices()) notices.push_back(notice);
  }
  return notices;
}

int encoderThreads(const Job& job) {
  const auto movies = std::count_if(job.outputs.begin(), job.outputs.end(),
                                    [](const ViewOutput& output) { return output.isMovie; });
  return std::clamp(job.threads / std::max(1, static_cast<int>(movies)), 1, 16);
}

}  // namespace orvanite::shot
