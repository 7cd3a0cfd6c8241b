// SPDX-License-Identifier: BSD-3-Clause
//
// What is to become of a shot: its views, where each goes, and one keyer for each. Understood once,
// before the first frame.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "media/FramePattern.h"
#include "media/MovieWish.h"
#include "shot/FirstKey.h"
#include "shot/Shot.h"
#include "shot/ViewKeyer.h"

namespace orvanite::shot {

/// What a file has beside the colours of a view.
enum class Alpha {
  none,          // the view as it looks: opaque
  matte,         // the matte, and colours as they are
  premultiplied  // the matte, and colours multiplied by it
};

/// What a key estimates of a frame.
enum class Estimate { cleanPlate, holdOut, garbage };

/// One view of every frame, and where it goes.
struct ViewOutput {
  std::string view;                  // the text of the parameter "output", such as "matte"
  std::optional<Estimate> estimate;  // this instead of a view
  std::string path;                  // a file, or a pattern
  std::optional<media::FramePattern> pattern;
  bool isMovie = false;
  std::unique_ptr<media::MovieWriter> movie;  // of a movie that is not there yet
  std::unique_ptr<ViewKeyer> keyer;
  bool showsColours = true;
  Alpha alpha = Alpha::none;

  std::string fileOf(int frame) const { return pattern ? pattern->path(frame) : path; }
};

struct Job {
  const Shot* shot = nullptr;
  Settings settings;  // whose numbers may move
  FirstKey firstKey;
  std::vector<ViewOutput> outputs;  // the first is keyed in place
  bool passThrough = false;         // the plate as it is, to see what decoding and encoding take
  int threads = 1;

  /// The pictures that there are for the keyers: an estimated clean plate is one.
  Inputs inputs() const;
  /// Whether a file of this role is read.
  bool reads(Role role) const;
};

/// The view of a key that asks for none, and what its file has beside the colours: over a
/// background the composite; without one a cut-out, straight or, where readers of the format expect
/// it, premultiplied; over black where the format has no alpha. Throws Error as movieHoldsAlpha
/// does.
std::pair<std::string, Alpha> usualView(const Inputs& inputs, const std::string& path,
                                        const std::string& codec);

/// What a file of a view has beside the colours where nothing else is asked for.
Alpha usualAlpha(const std::string& view);

/// Adds a view. Throws Error (wrongUse) where several frames would go into one still.
void addOutput(Job& job, const std::string& view, Alpha alpha, const std::string& path,
               bool severalFrames);

/// Adds an estimate, likewise. One that the key does not make is refused by prepareKeyers.
void addEstimate(Job& job, Estimate estimate, const std::string& path, bool severalFrames);

/// Refuses outputs that are an input or another output at one of the frames, that no format has an
/// ending for, or whose folder is missing. Throws Error: wrongUse, failure.
/// codec   of movies; empty: the usual one
/// others  files besides the shot's that are read
/// written  files besides the views that are written
void checkOutputs(const Job& job, const std::vector<int>& frames, const std::string& codec,
                  const std::vector<std::string>& others, const std::vector<std::string>& written);

/// Makes the keyers. Throws Error about the parameter that cannot key, and (wrongUse) about the
/// file of an estimate that nothing is keyed beside.
void prepareKeyers(Job& job);

/// Opens the movies to write, for frames that are keyed in this order; those that are there already
/// and whole may be kept. Returns what was decided, for a person to see. Throws Error as movieOf
/// and MovieWriter do.
std::vector<std::string> openMovies(Job& job, const media::MovieWish& wish,
                                    const std::vector<int>& frames, bool keepExisting);

/// The threads of each movie's encoder: several movies share the job's.
int encoderThreads(const Job& job);

}  // namespace orvanite::shot
