// SPDX-License-Identifier: BSD-3-Clause
//
// The edge is as far from a pixel's centre as the nearest side of the polygon.
#include "shot/Mask.h"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>

#include "base/Error.h"

namespace orvanite::shot {
namespace {

std::vector<double> numbersOf(const std::string& text) {
  std::vector<double> numbers;
  const char* at = text.data();
  const char* const end = at + text.size();
  while (true) {
    double number = 0;
    const auto [after, problem] = std::from_chars(at, end, number);
    if (problem != std::errc() || !std::isfinite(number)) return {};
    numbers.push_back(number);
    if (after == end) return numbers;
    if (*after != ',') return {};
    at = after + 1;
  }
}

double distanceTo(const std::array<double, 2>& a, const std::array<double, 2>& b, double x,
                  double y) {
  const double dx = b[0] - a[0], dy = b[1] - a[1];
  const double length = dx * dx + dy * dy;
  const double along =
      length > 0 ? std::clamp(((x - a[0]) * dx + (y - a[1]) * dy) / length, 0.0, 1.0) : 0;
  return std::hypot(x - a[0] - along * dx, y - a[1] - along * dy);
}

template <class Sample>
void joinRow(const Mask& mask, const media::Window& frame, media::Picture& matte, int row,
             double white) {
  auto* sample =
      reinterpret_cast<Sample*>(matte.pixels.get()) +
      std::size_t{4} * static_cast<std::size_t>(row) * static_cast<std::size_t>(matte.data.width) +
      3;
  const double y = matte.data.y + row - frame.y + 0.5;
  for (int column = 0; column < matte.data.width; ++column, sample += 4) {
    const double held = white * coverage(mask, matte.data.x + column - frame.x + 0.5, y);
    const auto value = static_cast<Sample>(white > 1 ? std::floor(held + 0.5) : held);
    *sample = std::max(*sample, value);
  }
}

}  // namespace

Mask rectangleOf(const std::string& text, const std::string& subject) {
  const std::vector<double> n = numbersOf(text);
  if (n.size() != 4 || !(n[2] > 0) || !(n[3] > 0)) {
    throw Error::expected(Fault::wrongUse, subject, "X,Y,WIDTH,HEIGHT in pixels", text);
  }
  return {{{n[0], n[1]}, {n[0] + n[2], n[1]}, {n[0] + n[2], n[1] + n[3]}, {n[0], n[1] + n[3]}}};
}

Mask polygonOf(const std::string& text, const std::string& subject) {
  const std::vector<double> n = numbersOf(text);
  if (n.size() < 6 || n.size() % 2 != 0) {
    throw Error::expected(Fault::wrongUse, subject, "X,Y,X,Y,X,Y,... of three corners or more",
                          text);
  }
  Mask mask;
  for (std::size_t i = 0; i < n.size(); i += 2) mask.corners.push_back({n[i], n[i + 1]});
  return mask;
}

double coverage(const Mask& mask, double x, double y) {
  bool inside = false;
  double nearest = std::numeric_limits<double>::infinity();
  for (std::size_t i = 0, j = mask.corners.size() - 1; i < mask.corners.size(); j = i++) {
    const auto& a = mask.corners[i];
    const auto& b = mask.corners[j];
    nearest = std::min(nearest, distanceTo(a, b, x, y));
    if ((a[1] > y) != (b[1] > y) && x < (b[0] - a[0]) * (y - a[1]) / (b[1] - a[1]) + a[0]) {
      inside = !inside;
    }
  }
  const double signedDistance = inside ? nearest : -nearest;
  const double held = std::clamp(0.5 + signedDistance / std::max(mask.softPixels, 1e-6), 0.0, 1.0);
  return mask.outside ? 1 - held : held;
}

void join(const Mask& mask, const media::Window& frame, media::Picture& matte) {
  tbb::parallel_for(0, matte.data.height, [&](int row) {
    withSampleOf(matte.depth, [&]<class Sample>(std::type_identity<Sample>) {
      joinRow<Sample>(mask, frame, matte, row, static_cast<float>(maxOf(matte.depth)));
    });
  });
}

}  // namespace orvanite::shot
