// SPDX-License-Identifier: BSD-3-Clause
//
// Whole frames: one engine, set up once, that keys frames of any size by splitting their rows.
// Everything that keys whole pictures goes through here.
// Knows settings and the engine's flat interface; whose threads work is the caller's choice.
#pragma once

#include <memory>

#include "base/Depth.h"
#include "engine/orvanite.h"
#include "keyer/Finish.h"
#include "keyer/Loops.h"
#include "keyer/Threads.h"

namespace orvanite {

class Finisher;

/// Where a frame's pictures lie. The pictures are the caller's.
struct Frame {
  Otile pictures{};  // each pointer at the first pixel of the first row; a step may be negative
  int width = 0;     // pixels, at least 1
  int height = 0;    // rows, at least 1
  Depth depth = Depth::bytes;  // of all pictures
};

/// An engine with its tables built, for any number of frames of one kind.
class Keyer {
 public:
  /// Throws Error (failure) when memory runs out.
  Keyer();
  ~Keyer();
  /// The other may only be destroyed or assigned to then.
  Keyer(Keyer&&) noexcept;
  /// The same.
  Keyer& operator=(Keyer&&) noexcept;

  /// Sets up for frames of a depth that have the given inputs.
  ///
  /// scale  the frames' size over the full one's: the finish's lengths are given in full pixels
  /// Throws Error: wrongUse for settings that cannot key or that move, a clean plate with float
  /// frames included; failure when memory runs out. No render may run meanwhile.
  void prepare(const Settings& settings, Depth depth, const Inputs& inputs, float scale = 1);

  /// How far around a pixel its result depends on others; 0 without a finish. A caller that keys a
  /// part of a frame hands over as much more of it on each side, as far as the frame goes, and
  /// keeps the part: it equals that part of the whole.
  int border() const { return finish_.border(); }

  /// Whether there is a finish: frames are then keyed whole, not in bands.
  bool finishes() const { return finish_.on(); }

  /// Keys one frame into pictures.dst, which may share its buffer with the plate or the background,
  /// pixel for pixel. Renders of different frames may run at once on one prepared keyer.
  ///
  /// threads  how many may work on this frame; 0 for as many as the process has
  /// Throws Error (wrongUse) when the frame lacks what prepare was told or has another depth.
  void render(const Frame& frame, int threads = 0) const { render(frame, rowsOn(threads)); }
  /// The same on threads of the caller's.
  void render(const Frame& frame, const RowLoop& rows) const;

 private:
  struct Delete {
    void operator()(QMXOrvaniteTable* engine) const { orvanite_delete(engine); }
  };
  std::unique_ptr<QMXOrvaniteTable, Delete> engine_;
  std::unique_ptr<Finisher> finisher_;  // null until there is a finish
  Finish finish_;
  std::optional<Depth> depth_;  // none before it is prepared
};

}  // namespace orvanite
