// SPDX-License-Identifier: BSD-3-Clause
//
// The functions that expressions may call: one table, which the compiler of expressions and the
// language's reference read.
#pragma once

#include <optional>
#include <span>
#include <string_view>

#include "base/Curve.h"
#include "platform/NRiExport.h"

/// A function of expressions: numbers in, a number out, nothing remembered.
struct NRiMathFunction {
  std::string_view name;       // as expressions write it
  std::string_view arguments;  // as the reference shows them
  std::string_view help;       // a sentence
  int least;                   // how many arguments it takes
  int most;                    // 0: any number
  /// Works it out. Returns null, or what is wrong with the arguments.
  const char* (*work)(std::span<const double> x, double& result);
  /// Of one whose arguments behind the first are keys, frame\@value; it has no `work`.
  std::optional<orvanite::CurveShape> curve;
};

/// All of them, in the order of the reference.
NRI_API std::span<const NRiMathFunction> NRiMathFunctions();

/// The one of that name, or null.
NRI_API const NRiMathFunction* NRiMathNamed(std::string_view name);
