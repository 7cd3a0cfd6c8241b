// SPDX-License-Identifier: BSD-3-Clause
//
// Keys and finishes whole frames: the engine's key to unpremultiplied colour and matte, the
// finish on it tile by tile, and the wanted view put together in one place.
// Knows the finish's parts and the engine's flat interface; the threads are its caller's.
#pragma once

#include <memory>
#include <variant>

#include "base/Depth.h"
#include "keyer/Compositor.h"
#include "keyer/Finish.h"
#include "keyer/FinishColour.h"
#include "keyer/Pool.h"
#include "keyer/Specks.h"

namespace orvanite {

struct Frame;

class Finisher {
 public:
  /// Throws Error (failure) when memory runs out.
  Finisher();
  ~Finisher();

  /// Sets up for frames of a depth. Throws Error when the engines cannot be.
  void prepare(const Settings& settings, const Finish& finish, Depth depth, const Inputs& inputs);

  /// Keys and finishes a frame into its destination, which may share its buffer with the plate or
  /// the background, pixel for pixel. Several may run at once. False when a picture is missing.
  bool render(const Frame& frame, const Loop& loop) const;

 private:
  struct Workspace;
  struct Scratch;

  template <class Sample>
  bool renderAs(const Frame& frame, const Loop& loop) const;
  template <class Sample>
  bool keyBand(const Frame& frame, int band, Workspace& space) const;
  template <class Sample>
  void refine(const Frame& frame, Workspace& space, const Loop& loop) const;
  template <class Sample>
  const OtileImage behindOf(const Frame& frame, Workspace& space, const Loop& loop) const;
  template <class Sample>
  bool finishTile(const Frame& frame, const Workspace& space, const OtileImage* behind,
                  const FrameArea& area, Scratch& scratch) const;

  struct Delete {
    void operator()(QMXOrvaniteTable* engine) const { orvanite_delete(engine); }
  };
  std::unique_ptr<QMXOrvaniteTable, Delete> engine_;
  Compositor compositor_;
  Finish finish_;
  Depth depth_ = Depth::bytes;
  bool reference_ = false;     // whether a clean plate says what the screen's colour is
  bool garbage_ = false;       // whether a garbage matte cuts
  bool showsColours_ = true;   // whether the view does
  bool status_ = false;        // whether the view is the status
  bool gradesBehind_ = false;  // whether the background has a grade of its own
  bool background_ = false;    // whether the view shows the background
  std::variant<MatteReader<std::uint8_t>, MatteReader<std::uint16_t>, MatteReader<float>> reader_;
  mutable Pool<Workspace> workspaces_;
  mutable Pool<Scratch> scratches_;
};

}  // namespace orvanite
