// SPDX-License-Identifier: BSD-3-Clause
//
// One frame of a job: its pictures in, the views of it out. Read it from top to bottom: a frame
// goes through these functions in this order. All throw Error; all but beginReads and writeMovies
// may run for several frames at once.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "shot/Job.h"

namespace orvanite::shot {

/// The pictures of a frame while some are decoded but not converted; empty: not used.
using FrameReads = ByRole<std::function<media::Picture()>>;

/// The pictures of a frame, of one size, in the colours that are keyed; no pixels: not used.
using FramePictures = ByRole<media::Picture>;

/// What still has to be done in order: the movies' frames, by output; null where there is none.
using MovieFrames = std::vector<std::shared_ptr<AVFrame>>;

/// Begins what one thread must do of the reads, frame after frame.
FrameReads beginReads(const Job& job, int frame);

/// Reads the rest, and lets go of each decoded frame as soon as it is a picture.
FramePictures finishReads(const Job& job, int frame, FrameReads reads);

/// The keyed views, in the order of the job's outputs; the first takes the plate's place. The other
/// pictures are gone when they are done.
std::vector<media::Picture> keyedViews(const Job& job, int frame, FramePictures pictures,
                                       int threads);

/// Writes the views that are pictures of their own; leaves those of movies.
MovieFrames write(const Job& job, std::vector<media::Picture> views, int frame);

/// Hands the movies' frames to their encoders, frame after frame, and lets go of each as soon as
/// its encoder has it.
void writeMovies(const Job& job, MovieFrames& frames);

}  // namespace orvanite::shot
