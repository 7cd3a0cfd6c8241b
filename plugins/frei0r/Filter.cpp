// SPDX-License-Identifier: BSD-3-Clause
//
// The filter: one clip in, its key out.
#include <frei0r.h>

#include "plugins/frei0r/Effect.h"

namespace orvanite::frei0rPlugin {

// Editors lay a filter's clip over the track below by its straight alpha, so that the foreground
// unmultiplied, with its matte, is what fits.
const Kind& kind() {
  static const Kind filter = {
      F0R_PLUGIN_TYPE_FILTER, "Orvanite",
      "Keys a clip shot against a blue or green screen: matte in alpha, spill removed",
      "unpremultiplied", false};
  return filter;
}

}  // namespace orvanite::frei0rPlugin
