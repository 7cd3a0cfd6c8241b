// SPDX-License-Identifier: BSD-3-Clause
//
// Where the pictures beside the plate come from, what is keyed, and where it goes.
#include "apps/cli/KeyFrame.h"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <cstring>
#include <optional>

#include "apps/media/PictureWriter.h"

namespace orvanite::cli {
namespace {

using media::Picture;
using media::Source;
using media::Window;

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

Picture finished(std::function<Picture()>& read) {
  Picture picture = read();
  read = nullptr;
  return picture;
}

}  // namespace

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

void writeMovies(const KeyJob& job, MovieFrames& frames) {
  tbb::parallel_for(std::size_t{0}, frames.size(), [&](std::size_t i) {
    if (!frames[i]) return;
    job.outputs[i].movie->write(std::move(frames[i]));
  });
}

}  // namespace orvanite::cli
