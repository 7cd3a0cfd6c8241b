// SPDX-License-Identifier: BSD-3-Clause
//
// Puts a finished foreground into the view that was asked for, by the engine's own arithmetic, so
// that a finished composite and a plain one differ in nothing but the finish.
//
// It is an engine whose screen nothing comes near: every pixel is all foreground to it, and the
// matte is what its garbage matte leaves.
// Knows settings and the engine's flat interface.
#pragma once

#include <memory>

#include "base/Depth.h"
#include "engine/orvanite.h"
#include "keyer/Settings.h"

namespace orvanite {

class Compositor {
 public:
  /// Throws Error (failure) when memory runs out.
  Compositor();

  /// Sets it up for the view that these settings show, without their foreground grade. Throws Error
  /// (failure) when memory runs out.
  void prepare(const Settings& settings, Depth depth, const Inputs& inputs);

  /// Composes a tile. Any thread.
  ///
  /// foreground  four interleaved samples a pixel; in place of alpha stands full less the matte
  /// Returns what orvanite_render returns.
  int render(const OtileImage& foreground, const OtileImage& background,
             const OtileImage& destination, int width, int height) const;

  /// Grades the background alone.
  int gradeBackground(const OtileImage& background, const OtileImage& destination, int width,
                      int height) const;

 private:
  struct Delete {
    void operator()(QMXOrvaniteTable* engine) const { orvanite_delete(engine); }
  };
  std::unique_ptr<QMXOrvaniteTable, Delete> engine_;
  Depth depth_ = Depth::bytes;
};

}  // namespace orvanite
