// SPDX-License-Identifier: BSD-3-Clause
//
// Which machine the kernels are for. The engine is compiled for several levels of the processor;
// one is chosen when the first tile is keyed and kept for the life of the process: the best that
// the processor has, or the one that the environment variable ORVANITE_TARGET names. "reference"
// is the scalar definition; it is always there, and every other target gives the same bits.
//
// This file neither prints nor exits: a front end asks for the problem and reports it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/kernels/simd/Kernels.h"

namespace orvanite {

/// One level of the processor and what was compiled for it; null parts are those of the reference.
struct Target {
  const char* name;
  bool (*supported)();  // by the processor that runs this
  const EncodingFunctions* encodings;
  const FloatKernels* floats;
  const IntegerKernels* integers;
};

/// Every target of this build, best first; the last is "reference", which has no parts.
const std::vector<Target>& knownTargets();

/// The target of this process. Null when ORVANITE_TARGET names one that is unknown or that the
/// processor lacks: nothing may be rendered then, and targetProblem says why.
const Target* activeTarget();

/// One line that says what is wrong with ORVANITE_TARGET and lists what it may be; empty when
/// nothing is.
const std::string& targetProblem();

/// What choosing gives for a value of ORVANITE_TARGET (null when it is not set). Both results as
/// above; for activeTarget, and for tests.
struct TargetChoice {
  const Target* target;
  std::string problem;
};
TargetChoice chooseTarget(const char* wanted);

/// How many tiles the target's own kernels, not the reference, have keyed in this process.
std::uint64_t tilesKeyedByTarget();

}  // namespace orvanite
