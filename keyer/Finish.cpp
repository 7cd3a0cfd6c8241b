// SPDX-License-Identifier: BSD-3-Clause
#include "keyer/Finish.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "keyer/MatteFilter.h"
#include "keyer/Refine.h"

namespace orvanite {

Finish Finish::of(const Settings& settings, const Inputs& inputs, float scale) {
  const auto pixels = [&](const char* name) {
    return static_cast<int>(settings.number(name) * scale + 0.5f);
  };
  Finish finish;
  finish.black = settings.number("matteBlack");
  finish.white = settings.number("matteWhite");
  finish.gamma = settings.number("matteGamma");
  finish.refine = settings.number("refine");
  finish.islands = pixels("islands");
  finish.pinholes = pixels("pinholes");
  finish.shrink = settings.number("shrink") * scale;
  finish.soften = settings.number("soften") * scale;
  for (int c = 0; c < 3; ++c) {
    finish.screen[static_cast<std::size_t>(c)] = settings.number("screen", c);
    if (settings.number("screen", c) > settings.number("screen", finish.primary)) {
      finish.primary = c;
    }
  }
  if (showsMatte(settings.view(inputs))) return finish;
  finish.edgeColour = settings.number("edgeColour");
  finish.edgeReach = std::max(1, pixels("edgeReach"));
  finish.spill = settings.number("spill");
  finish.spillLimit = settings.number("spillLimit");
  finish.spillReplace = static_cast<SpillReplace>(settings.number("spillReplace"));
  if (finish.spillReplace == SpillReplace::background && !inputs.background) {
    finish.spillReplace = SpillReplace::nothing;
  }
  for (const char* name : {"exposure", "gamma", "offset", "saturation"}) {
    const Parameter& grade = *findParameter(name);
    for (int c = 0; c < (grade.type == ParameterType::triple ? 3 : 1); ++c) {
      finish.graded =
          finish.graded || settings.number(name, c) != grade.defaults[static_cast<std::size_t>(c)];
    }
  }
  finish.wrap = inputs.background ? settings.number("lightWrap") : 0;
  finish.wrapReach = std::max(1, pixels("wrapReach"));
  return finish;
}

int Finish::border() const {
  if (!on()) return 0;
  const int matte = (refine > 0 ? refineBorder : 0) + islands + pinholes + moveBorder(shrink) +
                    softenBorder(soften) + (wrap > 0 ? wrapReach : 0);
  return std::max({matte, edgeColour > 0 ? edgeReach + (refine > 0 ? refineBorder : 0) : 0,
                   looksBehind() ? wrapReach : 0});
}

bool needsBackground(const Settings& settings, const Inputs& inputs) {
  return settings.view(inputs) == View::composite ||
         (inputs.background && Finish::of(settings, inputs).looksBehind());
}

}  // namespace orvanite
