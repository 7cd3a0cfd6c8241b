// SPDX-License-Identifier: BSD-3-Clause
//
// targets.inc has a line ORVANITE_TARGET(name) for every target of the build.
#include "keyer/simd/RowTable.h"

#include <cstring>

#include "engine/targets/Target.h"

namespace orvanite {

#define ORVANITE_TARGET(target)     \
  namespace target {                \
  extern const RowTable rowKernels; \
  }
#include "targets.inc"
ORVANITE_TARGET(definition)
#undef ORVANITE_TARGET

const RowTable* rowTableFor(const char* target) {
#define ORVANITE_TARGET(name) \
  if (std::strcmp(target, #name) == 0) return &name::rowKernels;
#include "targets.inc"
  ORVANITE_TARGET(definition)
#undef ORVANITE_TARGET
  return nullptr;
}

const RowTable& rowTable() {
  static const RowTable* const active = [] {
    // Where no target is in force nothing is keyed, but a plate may still be looked at.
    const Target* const target = activeTarget();
    const RowTable* const own = target != nullptr ? rowTableFor(target->name) : nullptr;
    return own != nullptr ? own : &definition::rowKernels;
  }();
  return *active;
}

}  // namespace orvanite
