// SPDX-License-Identifier: BSD-3-Clause
//
// What `orvanite key` does once its options are understood: the pictures of a frame in, the views
// of it out; one frame, or a shot through a pipeline.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/cli/ColourOptions.h"
#include "apps/cli/Progress.h"
#include "apps/media/FramePattern.h"
#include "apps/media/MovieWriter.h"
#include "apps/media/Source.h"
#include "keyer/Keyer.h"

namespace orvanite::cli {

/// What a shorter or shifted clip shows where it has no frame.
enum class PastEnd { hold, loop, black };

/// A picture beside the plate.
struct SideInput {
  std::unique_ptr<media::Source> source;  // null: none
  int offset = 0;                         // its frame is the plate's frame plus this
  std::string channel;                    // a matte's
  bool used = false;                      // whether a view or a switch needs it
};

/// One view of every frame, and where it goes.
struct ViewOutput {
  std::string output;  // the parameter's text, such as "matte"
  std::string path;    // a file, or a pattern
  std::optional<media::FramePattern> pattern;
  bool isMovie = false;
  std::unique_ptr<media::MovieWriter> movie;  // of a movie that is not there yet
  std::unique_ptr<Keyer> keyer;
  std::string fileOf(int frame) const { return pattern ? pattern->path(frame) : path; }
};

struct KeyJob {
  std::unique_ptr<media::Source> plate;
  SideInput background, holdOut, garbage, reference;
  // Where clean plates are estimated: what makes one from a frame of the plate.
  std::function<media::Picture(const media::Picture&)> cleanPlateOf;
  std::array<float, 3> screen{};  // what lies beside the plate's pixels
  media::ColourPath colours;
  PastEnd pastEnd = PastEnd::hold;
  std::vector<ViewOutput> outputs;  // the first is keyed in place
  int depth = 1;
  media::Samples samples = media::Samples::uint8;
  bool premultiply = false;  // the first output
  bool passThrough = false;  // the plate as it is, to see what decoding and encoding take
  int threads = 1;
};

struct ShotOptions {
  std::vector<int> frames;
  bool skipExisting = false;
  bool keepGoing = false;
  int inFlight = 0;  // 0: as many as keep the threads busy and memory within 1.25 GiB
  ProgressForm progress = ProgressForm::automatic;
  bool json = false;
};

/// The threads of each movie's encoder: several movies share them.
int encoderThreads(const KeyJob& job);

/// Keys and writes one frame. Returns the seconds that keying took.
double keyStill(const KeyJob& job, int frame);

/// Keys and writes a shot, decoding, keying and writing frames side by side. Returns the exit code.
int keyShot(const KeyJob& job, const ShotOptions& options);

}  // namespace orvanite::cli
