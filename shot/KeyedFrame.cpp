// SPDX-License-Identifier: BSD-3-Clause
#include "shot/KeyedFrame.h"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <cstring>
#include <optional>

#include "media/PictureWriter.h"
#include "shot/Images.h"

namespace orvanite::shot {
namespace {

using media::Picture;
using media::Window;

// The pixels of a keyed frame: all that there are, and the whole frame where a file cannot hold
// less.
Window keyedWindow(const Job& job, int frame) {
  const Window window = job.shot->allPixels(frame);
  const bool kept =
      std::all_of(job.outputs.begin(), job.outputs.end(), [](const ViewOutput& output) {
        return !output.isMovie && media::keepsDataWindow(output.path);
      });
  return kept ? window : united(window, job.shot->plate().info().display);
}

// What the file has beside the colours.
void giveAlpha(const Job& job, const ViewOutput& output, Picture& view) {
  if (job.passThrough) return;
  if (output.alpha == Alpha::premultiplied) media::multiplyByAlpha(view);
  if (output.alpha != Alpha::none) return;
  view.channels = media::Channels::colour;
  if (output.isMovie) media::makeOpaque(view);
}

// `own` is the frame's key, `clean` its estimated clean plate where that is all there is.
void fillEstimate(Estimate estimate, const std::optional<BlindKey>& own, const Picture& clean,
                  Picture& view) {
  const OtileImage image = imageOf(view);
  if (!own) {
    std::memcpy(view.pixels.get(), clean.pixels.get(), view.bytes());
  } else if (estimate == Estimate::cleanPlate) {
    own->writeCleanPlate(image, view.depth);
  } else {
    own->writeMatte(estimate == Estimate::holdOut ? own->holdOut : own->garbage, image, view.depth);
  }
}

}  // namespace

FrameReads beginReads(const Job& job, int frame) {
  FrameReads reads;
  for (const Role role : roles) {
    if (!job.reads(role)) continue;
    reads[role] = job.shot->begin(
        role, frame, [&job, frame] { return keyedWindow(job, frame); },
        channelOf(*job.shot, job.settings, role));
  }
  return reads;
}

FramePictures finishReads(const Job& job, int frame, FrameReads reads) {
  FramePictures pictures;
  const Settings settings = job.settings.at(frame);
  for (const Role role : roles) {
    if (!reads[role]) continue;
    pictures[role] = reads[role]();
    reads[role] = nullptr;
    const bool screenBeside = (role == Role::plate && !job.passThrough) || role == Role::cleanPlate;
    if (screenBeside) paintBeside(pictures[role], job.shot->ownPixels(role, frame), settings);
  }
  return pictures;
}

std::vector<Picture> keyedViews(const Job& job, int number, FramePictures pictures, int threads) {
  std::vector<Picture> views(job.outputs.size());
  Picture& plate = pictures[Role::plate];
  std::optional<BlindKey> own;
  if (job.firstKey.blind) {
    if (!job.passThrough) own = job.firstKey.blind->carriedTo(plateOf(plate), rowsOn(threads));
  } else if (job.firstKey.cleanPlate) {
    Picture& clean = pictures[Role::cleanPlate];
    clean = job.firstKey.cleanPlateOf(plate);
    paintBeside(clean, job.shot->ownPixels(Role::plate, number), job.settings.at(number));
  }
  ByRole<const Picture*> present;
  for (const Role role : roles) present[role] = pictures[role].pixels ? &pictures[role] : nullptr;
  Frame frame = frameOf(present, {0, 0, plate.data.width, plate.data.height});
  const auto key = [&](std::size_t i) {
    job.outputs[i].keyer->render(number, own ? &*own : nullptr, frame, threads);
  };
  for (std::size_t i = views.size(); i-- > 1;) {
    views[i] = Picture::make(plate.data, plate.depth, plate.samples);
    views[i].header = plate.header;
    views[i].hasAlpha = true;
    if (const auto& estimate = job.outputs[i].estimate) {
      fillEstimate(*estimate, own, pictures[Role::cleanPlate], views[i]);
      continue;
    }
    frame.pictures.dst = imageOf(views[i]);
    key(i);
  }
  frame.pictures.dst = frame.pictures.fg;
  if (!job.passThrough) key(0);
  views[0] = std::move(plate);
  for (std::size_t i = 0; i < views.size(); ++i) {
    // A matte is no colour, unless there is nothing but the plate.
    if (job.passThrough || job.outputs[i].showsColours) job.shot->colours().out.apply(views[i]);
  }
  for (std::size_t i = 0; i < views.size(); ++i) giveAlpha(job, job.outputs[i], views[i]);
  return views;
}

MovieFrames write(const Job& job, std::vector<Picture> views, int frame) {
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

void writeMovies(const Job& job, MovieFrames& frames) {
  tbb::parallel_for(std::size_t{0}, frames.size(), [&](std::size_t i) {
    if (!frames[i]) return;
    job.outputs[i].movie->write(std::move(frames[i]));
  });
}

}  // namespace orvanite::shot
