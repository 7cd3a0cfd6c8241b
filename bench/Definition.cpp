// SPDX-License-Identifier: BSD-3-Clause
#include "bench/Definition.h"

#include "engine/kernels/Definition.h"

namespace orvanite::bench {

void renderDefinition(QMXOrvaniteTable& engine, Depth depth, int width, int height, Otile& tile,
                      const Choices& choices) {
  definitionKernel(depth, choices)(&engine, width, height, &tile);
}

}  // namespace orvanite::bench
