// SPDX-License-Identifier: BSD-3-Clause
//
// What a processor must have to run an object: everything that the compiler's flags allow it to
// emit, not only what the kernels ask for, told by the compiler's own macros. A target's object
// carries it as a number; ordinary code compares it with the processor.
#pragma once

#include "engine/targets/Kernels.h"

namespace orvanite {

enum Feature : Features {
  hasSse42 = 1 << 0,
  hasPopcnt = 1 << 1,
  hasAvx2 = 1 << 2,
  hasFma = 1 << 3,
  hasBmi = 1 << 4,
  hasBmi2 = 1 << 5,
  hasF16c = 1 << 6,
  hasMovbe = 1 << 7,
  hasLzcnt = 1 << 8,
  hasAvx512f = 1 << 9,
  hasAvx512bw = 1 << 10,
  hasAvx512cd = 1 << 11,
  hasAvx512dq = 1 << 12,
  hasAvx512vl = 1 << 13,
  hasAvx512vbmi = 1 << 14,
};

/// What the including file is compiled for, of the list above. Machines other than x86-64 have one
/// level each, which all of them have.
constexpr Features compiledFeatures() {
  Features all = 0;
#if defined(__SSE4_2__)
  all |= hasSse42;
#endif
#if defined(__POPCNT__)
  all |= hasPopcnt;
#endif
#if defined(__AVX2__)
  all |= hasAvx2;
#endif
#if defined(__FMA__)
  all |= hasFma;
#endif
#if defined(__BMI__)
  all |= hasBmi;
#endif
#if defined(__BMI2__)
  all |= hasBmi2;
#endif
#if defined(__F16C__)
  all |= hasF16c;
#endif
#if defined(__MOVBE__)
  all |= hasMovbe;
#endif
#if defined(__LZCNT__)
  all |= hasLzcnt;
#endif
#if defined(__AVX512F__)
  all |= hasAvx512f;
#endif
#if defined(__AVX512BW__)
  all |= hasAvx512bw;
#endif
#if defined(__AVX512CD__)
  all |= hasAvx512cd;
#endif
#if defined(__AVX512DQ__)
  all |= hasAvx512dq;
#endif
#if defined(__AVX512VL__)
  all |= hasAvx512vl;
#endif
#if defined(__AVX512VBMI__)
  all |= hasAvx512vbmi;
#endif
  return all;
}

}  // namespace orvanite
