// SPDX-License-Identifier: BSD-3-Clause
#include "keyer/Sheet.h"

#include <cstddef>

namespace orvanite {

namespace {

constexpr double tension = 0.1, stiffness = 0.05, pull = 0.002;

}  // namespace

Plane Sheet::solve() const {
  const std::size_t n = seen_.size();
  Plane z(seen_.width, seen_.height);
  Cells x(n), r(n), p(n), q(n), once(n), twice(n);
  double rr = 0;
  for (std::size_t i = 0; i < n; ++i) {
    r[i] = static_cast<double>(weight_[i] * seen_[i]);
    p[i] = r[i];
    rr += r[i] * r[i];
  }
  for (int round = 0; round < 120 && rr > 1e-14; ++round) {
    apply(p, once, twice, q);
    double pq = 0;
    for (std::size_t i = 0; i < n; ++i) pq += p[i] * q[i];
    const double step = rr / pq;
    double next = 0;
    for (std::size_t i = 0; i < n; ++i) {
      x[i] += step * p[i];
      r[i] -= step * q[i];
      next += r[i] * r[i];
    }
    const double share = next / rr;
    rr = next;
    for (std::size_t i = 0; i < n; ++i) p[i] = r[i] + share * p[i];
  }
  for (std::size_t i = 0; i < n; ++i) z[i] = static_cast<float>(x[i]);
  return z;
}

// What each value lies off its neighbours, as far as there are any.
void Sheet::bend(const Cells& z, Cells& out) const {
  const int w = seen_.width;
  const int h = seen_.height;
  for (int y = 0; y < h; ++y) {
    const double* here = z.data() + seen_.index(0, y);
    const double* above = y > 0 ? here - w : here;
    const double* below = y + 1 < h ? here + w : here;
    double* to = out.data() + seen_.index(0, y);
    const auto at = [&](int x, const double* left, const double* right) {
      to[x] = 0.0 + (here[x] - *left) + (here[x] - *right) + (here[x] - above[x]) +
              (here[x] - below[x]);
    };
    at(0, here, here + (w > 1 ? 1 : 0));
    for (int x = 1; x + 1 < w; ++x) at(x, here + x - 1, here + x + 1);
    if (w > 1) at(w - 1, here + w - 2, here + w - 1);
  }
}

void Sheet::apply(const Cells& z, Cells& once, Cells& twice, Cells& out) const {
  bend(z, once);
  bend(once, twice);
  for (std::size_t i = 0; i < z.size(); ++i) {
    out[i] =
        (static_cast<double>(weight_[i]) + pull) * z[i] + tension * once[i] + stiffness * twice[i];
  }
}

}  // namespace orvanite
