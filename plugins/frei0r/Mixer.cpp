// SPDX-License-Identifier: BSD-3-Clause
//
// The mixer: the plate, on the upper track, over the background on the lower one.
#include <frei0r.h>

#include "plugins/frei0r/Effect.h"

namespace orvanite::frei0rPlugin {

const Kind& kind() {
  static const Kind mixer = {
      F0R_PLUGIN_TYPE_MIXER2, "Orvanite Mix",
      "Keys the upper clip, shot against a blue or green screen, over the lower one", "composite",
      true};
  return mixer;
}

}  // namespace orvanite::frei0rPlugin
