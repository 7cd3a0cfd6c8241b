// SPDX-License-Identifier: BSD-3-Clause
#include "keyer/Finish.h"

#include <algorithm>
#include <cmath>

#include "keyer/MatteFilter.h"

namespace orvanite {

Finish Finish::of(const Settings& settings, const Inputs& inputs, float scale) {
  const auto pixels = [&](const char* name) {
    return static_cast<int>(settings.number(name) * scale + 0.5f);
  };
  Finish finish;
  finish.black = settings.number("matteBlack");
  finish.white = settings.number("matteWhite");
  finish.gamma = settings.number("matteGamma");
  finish.islands = pixels("islands");
  finish.pinholes = pixels("pinholes");
  finish.shrink = settings.number("shrink") * scale;
  finish.soften = settings.number("soften") * scale;
  const std::string_view output = settings.choice("output");
  // Nobody sees colours there.
  if (output == "matte" || output == "status") return finish;
  finish.edgeColour = settings.number("edgeColour");
  finish.edgeReach = std::max(1, pixels("edgeReach"));
  finish.spill = settings.number("spill");
  finish.spillLimit = settings.number("spillLimit");
  finish.spillReplace = static_cast<SpillReplace>(settings.number("spillReplace"));
  if (finish.spillReplace == SpillReplace::background && !inputs.background) {
    finish.spillReplace = SpillReplace::nothing;
  }
  for (int c = 0; c < 3; ++c) {
    if (settings.number("screen", c) > settings.number("screen", finish.primary)) {
      finish.primary = c;
    }
  }
  finish.wrap = inputs.background ? settings.number("lightWrap") : 0;
  finish.wrapReach = std::max(1, pixels("wrapReach"));
  return finish;
}

int Finish::border() const {
  if (!on()) return 0;
  const int matte =
      islands + pinholes + moveBorder(shrink) + softenBorder(soften) + (wrap > 0 ? wrapReach : 0);
  return std::max({matte, edgeColour > 0 ? edgeReach : 0, looksBehind() ? wrapReach : 0});
}

bool needsBackground(const Settings& settings, const Inputs& inputs) {
  return settings.view(inputs) == View::composite ||
         (inputs.background && Finish::of(settings, inputs).looksBehind());
}

}  // namespace orvanite
