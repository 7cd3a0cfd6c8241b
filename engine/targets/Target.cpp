// SPDX-License-Identifier: BSD-3-Clause
//
// targets.inc has a line ORVANITE_TARGET(name) for every target of the build, best first; CMake
// makes it from the list in targets/targets.cmake.
#include "engine/targets/Target.h"

#include <cstdlib>
#include <cstring>

#include "engine/targets/Features.h"

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace orvanite {

#define ORVANITE_TARGET(target)               \
  namespace target {                          \
  extern const Features features;             \
  extern const EncodingFunctions encodings;   \
  extern const FloatKernels floatKernels;     \
  extern const IntegerKernels integerKernels; \
  }
#include "targets.inc"
#undef ORVANITE_TARGET

namespace {

/// What this processor has, with the system's support for its wide registers.
Features processorFeatures() {
  Features all = 0;
#if defined(__x86_64__)
  __builtin_cpu_init();
  const auto note = [&all](bool there, Feature feature) {
    if (there) all |= feature;
  };
  note(__builtin_cpu_supports("sse4.2"), hasSse42);
  note(__builtin_cpu_supports("popcnt"), hasPopcnt);
  note(__builtin_cpu_supports("avx2"), hasAvx2);
  note(__builtin_cpu_supports("fma"), hasFma);
  note(__builtin_cpu_supports("bmi"), hasBmi);
  note(__builtin_cpu_supports("bmi2"), hasBmi2);
  note(__builtin_cpu_supports("avx512f"), hasAvx512f);
  note(__builtin_cpu_supports("avx512bw"), hasAvx512bw);
  note(__builtin_cpu_supports("avx512cd"), hasAvx512cd);
  note(__builtin_cpu_supports("avx512dq"), hasAvx512dq);
  note(__builtin_cpu_supports("avx512vl"), hasAvx512vl);
  note(__builtin_cpu_supports("avx512vbmi"), hasAvx512vbmi);
  // Not every compiler's builtin knows these by name. F16C needs the wide registers, as AVX2 does.
  unsigned a = 0, b = 0, c = 0, d = 0;
  if (__get_cpuid(1, &a, &b, &c, &d) != 0) {
    note((c & bit_F16C) != 0 && (all & hasAvx2) != 0, hasF16c);
    note((c & bit_MOVBE) != 0, hasMovbe);
  }
  if (__get_cpuid(0x80000001, &a, &b, &c, &d) != 0) note((c & bit_LZCNT) != 0, hasLzcnt);
#endif
  return all;
}

const TargetChoice& chosen() {
  static const TargetChoice choice = chooseTarget(std::getenv("ORVANITE_TARGET"));
  return choice;
}

}  // namespace

bool Target::supported() const {
  static const Features present = processorFeatures();
  return features == nullptr || (*features & ~present) == 0;
}

const std::vector<Target>& knownTargets() {
  static const std::vector<Target> targets = {
#define ORVANITE_TARGET(target) \
  {#target, &target::features, &target::encodings, &target::floatKernels, &target::integerKernels},
#include "targets.inc"
#undef ORVANITE_TARGET
      {"definition", nullptr, nullptr, nullptr, nullptr},
  };
  return targets;
}

TargetChoice chooseTarget(const char* wanted) {
  std::string names;
  const char* trouble = "no such target";
  for (const Target& target : knownTargets()) {
    const bool supported = target.supported();
    if (wanted == nullptr || *wanted == '\0') {
      if (supported) return {&target, ""};
    } else if (std::strcmp(wanted, target.name) == 0) {
      if (supported) return {&target, ""};
      trouble = "this processor lacks that target";
    }
    names += names.empty() ? "" : ", ";
    names += target.name;
    if (!supported) names += " (not on this processor)";
  }
  return {nullptr,
          std::string("ORVANITE_TARGET=") + wanted + ": " + trouble + ": expected one of " + names};
}

const Target* activeTarget() { return chosen().target; }

const std::string& targetProblem() { return chosen().problem; }

}  // namespace orvanite
