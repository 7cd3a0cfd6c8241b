// SPDX-License-Identifier: BSD-3-Clause
#include "engine/kernels/Target.h"

#include <cstdlib>
#include <cstring>

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace orvanite {

#if defined(__x86_64__)
namespace sse4 {
extern const EncodingFunctions encodings;
extern const FloatKernels floatKernels;
extern const IntegerKernels integerKernels;
}  // namespace sse4
namespace avx2 {
extern const EncodingFunctions encodings;
extern const FloatKernels floatKernels;
extern const IntegerKernels integerKernels;
}  // namespace avx2
namespace avx512 {
extern const EncodingFunctions encodings;
extern const FloatKernels floatKernels;
extern const IntegerKernels integerKernels;
}  // namespace avx512
#else
namespace native {
extern const EncodingFunctions encodings;
extern const FloatKernels floatKernels;
extern const IntegerKernels integerKernels;
}  // namespace native
#endif

namespace {

#if defined(__x86_64__)

// Everything that the compiler's level may emit is asked for, not only what the kernels need.
// __builtin_cpu_supports also knows whether the system keeps the wide registers.
bool hasSse4() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("sse4.2") && __builtin_cpu_supports("popcnt");
}

bool hasAvx2() {
  if (!hasSse4() || !__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("fma") ||
      !__builtin_cpu_supports("bmi") || !__builtin_cpu_supports("bmi2")) {
    return false;
  }
  // Not every compiler's builtin knows these by name.
  unsigned a = 0, b = 0, c = 0, d = 0;
  if (__get_cpuid(1, &a, &b, &c, &d) == 0) return false;
  if ((c & bit_F16C) == 0 || (c & bit_MOVBE) == 0) return false;
  if (__get_cpuid(0x80000001, &a, &b, &c, &d) == 0) return false;
  return (c & bit_LZCNT) != 0;
}

bool hasAvx512() {
  return hasAvx2() && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
         __builtin_cpu_supports("avx512cd") && __builtin_cpu_supports("avx512dq") &&
         __builtin_cpu_supports("avx512vl");
}

#endif

bool always() { return true; }

const char* wantedTarget() { return std::getenv("ORVANITE_TARGET"); }

const TargetChoice& chosen() {
  static const TargetChoice choice = chooseTarget(wantedTarget());
  return choice;
}

}  // namespace

const std::vector<Target>& knownTargets() {
  static const std::vector<Target> targets = {
#if defined(__x86_64__)
    {"avx512", hasAvx512, &avx512::encodings, &avx512::floatKernels, &avx512::integerKernels},
    {"avx2", hasAvx2, &avx2::encodings, &avx2::floatKernels, &avx2::integerKernels},
    {"sse4", hasSse4, &sse4::encodings, &sse4::floatKernels, &sse4::integerKernels},
#else
    {"native", always, &native::encodings, &native::floatKernels, &native::integerKernels},
#endif
    {"reference", always, nullptr, nullptr, nullptr},
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
