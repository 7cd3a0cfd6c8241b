// SPDX-License-Identifier: BSD-3-Clause
//
// Which machine the kernels are for. The engine is compiled for several levels of the processor;
// one is chosen when the first tile is keyed and kept for the life of the process: the best that
// the processor has, or the one that the environment variable ORVANITE_TARGET names. "definition"
// is plain code, one pixel at a time; it is always there, and every other target gives its bits.
//
// This file neither prints nor exits: a front end asks for the problem and reports it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/targets/Kernels.h"

namespace orvanite {

/// One level of the processor and what was compiled for it; the definition has no parts.
struct Target {
  const char* name;
  const Features* features;  // what the processor must have
  const EncodingFunctions* encodings;
  const FloatKernels* floats;
  const IntegerKernels* integers;

  /// Whether the processor that runs this has all that the objects may use.
  bool supported() const;
};

/// Every target of this build, best first; the last is "definition", which has no parts.
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

/// How many tiles the target's own kernels, not the definition, have keyed in this process.
std::uint64_t tilesKeyedByTarget();

}  // namespace orvanite
