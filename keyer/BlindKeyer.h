// SPDX-License-Identifier: BSD-3-Clause
//
// Renders frames with a key that was found: beside its clean plate, in the encoding that was
// chosen, under its mattes, at any depth. The engine keys 16 bits; what comes in is brought to
// them band by band, and back.
#pragma once

#include <optional>

#include "base/Depth.h"
#include "keyer/BlindKey.h"
#include "keyer/Keyer.h"
#include "keyer/Pool.h"
#include "keyer/Words.h"

namespace orvanite {

/// Rows of a frame on their way through the engine.
struct WordBlock {
  Frame frame;           ///< their words
  int first = 0;         ///< the first of them
  Words::Buffer fg;      ///< room for the plate's
  Words::Buffer bg;      ///< for the background's
  Words::Buffer dst;     ///< for what is keyed
  Words::Buffer ref;     ///< for the clean plate's
  Words::Buffer mattes;  ///< for hold-out and garbage
};

/// A keyer for the frames of one shot.
class BlindKeyer {
 public:
  /// Sets up the engine for frames of a depth. `settings` are the found ones, perhaps with another
  /// output; `inputs` says which of background, hold-out and garbage the caller has: its mattes are
  /// joined with the found ones. A clean plate of the caller's is used instead of the found one.
  /// scale  the frames' size over the full one's, as Keyer takes it
  /// white  the greatest value of float pictures that is kept; what is brighter is cut there
  /// Throws Error as Keyer::prepare does.
  void prepare(const BlindKey& key, const Settings& settings, Depth depth, const Inputs& inputs,
               float scale = 1, float white = 8);

  /// Keys one frame of that depth into pictures.dst, which may be the plate's or the background's
  /// own buffer. `key` is the one of prepare, or one carried to this frame. Renders of different
  /// frames may run at once.
  void render(const BlindKey& key, const Frame& frame, int threads = 0) const {
    render(key, frame, rowsOn(threads));
  }
  /// The same on threads of the caller's.
  void render(const BlindKey& key, const Frame& frame, const RowLoop& rows) const;

 private:
  Keyer engine_;
  Inputs used_{};
  std::optional<Depth> depth_;
  bool showsColours_ = true;
  Words words_;
  mutable Pool<WordBlock> blocks_;
};

}  // namespace orvanite
