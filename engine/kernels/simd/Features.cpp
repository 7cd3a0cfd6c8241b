// SPDX-License-Identifier: BSD-3-Clause
//
// Built once per target: what its objects may emit. The list's name for the target and what the
// flags really make of Highway must be one: kernels/simd/Lanes.h holds that.
#include "engine/targets/Features.h"

#include "engine/kernels/simd/Lanes.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

extern const Features features;
const Features features = compiledFeatures();

}  // namespace orvanite::ORVANITE_SIMD_TARGET
