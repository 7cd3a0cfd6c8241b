// SPDX-License-Identifier: BSD-3-Clause
//
// The small systems of equations that fits by least squares come to.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>

namespace orvanite {

/// Solves a symmetric positive system by elimination; a pivot that vanishes counts as 1e-12.
template <std::size_t N>
std::array<double, N> solved(std::array<std::array<double, N>, N> a, std::array<double, N> b) {
  const auto pivot = [&](std::size_t i) { return std::max(a[i][i], 1e-12); };
  for (std::size_t i = 0; i < N; ++i) {
    for (std::size_t j = i + 1; j < N; ++j) {
      const double share = a[j][i] / pivot(i);
      for (std::size_t k = i; k < N; ++k) a[j][k] -= share * a[i][k];
      b[j] -= share * b[i];
    }
  }
  for (std::size_t i = N; i-- > 0;) {
    for (std::size_t k = i + 1; k < N; ++k) b[i] -= a[i][k] * b[k];
    b[i] /= pivot(i);
  }
  return b;
}

}  // namespace orvanite
