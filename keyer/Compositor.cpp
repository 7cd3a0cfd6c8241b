// SPDX-License-Identifier: BSD-3-Clause
//
// Why nothing is screen: the key's strongest coefficient, blue's, is 1 for a screen of pure blue
// and at most 1 with the foreground bias in it; a gain of -1 takes it to 0 or below, and the other
// two have none above 0. So no pixel leans to the screen, exactly, at any depth. In log encoding a
// code of 0 still is light: integers then take the coefficients of a clean plate, which are 1
// without that, and floats a screen beside which that light vanishes.
#include "keyer/Compositor.h"

#include "base/Error.h"

namespace orvanite {

Compositor::Compositor() : engine_(orvanite_new()) {
  if (!engine_) throw Error(Fault::failure, "keyer", "out of memory");
}

void Compositor::prepare(const Settings& settings, Depth depth, const Inputs& inputs) {
  Settings composing = settings;
  composing.setNumbers("screen", 0, 0, depth == Depth::floats ? 10 : 1);
  for (const char* name : {"screenRange", "shadowBalance", "midtoneBalance", "highlightBalance"}) {
    composing.setNumber(name, 0);
  }
  for (const char* name : {"shadowGain", "midtoneGain", "highlightGain"}) {
    composing.setNumber(name, -1);
  }
  for (const char* name : {"midTonesAt", "exposure", "gamma", "offset", "saturation"}) {
    composing.reset(name);
  }
  composing.setText("useGarbageMatte", "on");
  composing.setText("useReference", "on");
  Inputs given;
  given.background = inputs.background;
  given.garbage = true;
  given.reference = depth != Depth::floats && settings.choice("colourspace") == "log";
  composing.applyTo(engine_.get(), depth, given);
  if (const int result = orvanite_makeLuts(engine_.get()); result != 0) {
    throw Error(Fault::failure, "keyer", tableProblem(result));
  }
  depth_ = depth;
}

int Compositor::render(const OtileImage& foreground, const OtileImage& background,
                       const OtileImage& destination, int width, int height) const {
  Otile tile{};
  tile.dst = destination;
  tile.bg = background;
  tile.fg = foreground;
  tile.garbage = foreground;
  tile.ref = foreground;
  return orvanite_render(engine_.get(), bytesOf(depth_), width, height, &tile);
}

int Compositor::gradeBackground(const OtileImage& background, const OtileImage& destination,
                                int width, int height) const {
  Otile tile{};
  tile.dst = destination;
  tile.bg = background;
  tile.ref = background;
  return orvanite_render(engine_.get(), bytesOf(depth_), width, height, &tile);
}

}  // namespace orvanite
