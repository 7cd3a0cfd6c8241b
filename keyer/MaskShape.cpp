// SPDX-License-Identifier: BSD-3-Clause
//
// The edge is as far from a point as the nearest place of the outline. Beyond half the edge's width
// it does not matter how far: sides that are farther from a row are left out of it.
#include "keyer/MaskShape.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <type_traits>

namespace orvanite {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

double lengthOf(double x, double y) { return std::sqrt(x * x + y * y); }

double distanceTo(const MaskPoint& a, const MaskPoint& b, double x, double y) {
  const double dx = b[0] - a[0], dy = b[1] - a[1];
  const double length = dx * dx + dy * dy;
  const double along =
      length > 0 ? std::clamp(((x - a[0]) * dx + (y - a[1]) * dy) / length, 0.0, 1.0) : 0;
  return lengthOf(x - a[0] - along * dx, y - a[1] - along * dy);
}

// The cosine and the sine of an angle, exact at multiples of 90 degrees. Of the library's own they
// would have other bits elsewhere.
struct Turn {
  explicit Turn(double degrees) {
    // Whole quarters aside, what is left is within an eighth of a turn, as far as doubles tell.
    const double quarters = std::floor(degrees / 90 + 0.5);
    const double x = (degrees - 90 * quarters) * (3.14159265358979323846 / 180);
    const double square = x * x;
    // Their series up to x^17: what is left out is below 1e-19 at pi / 4.
    double c = 0, s = 0;
    for (int n = 16; n >= 2; n -= 2) {
      c = (1 + c) * -square / (n * (n - 1));
      s = (1 + s) * -square / (n * (n + 1));
    }
    c = 1 + c;
    s = x * (1 + s);
    const int quarter = static_cast<int>(quarters - 4 * std::floor(quarters / 4));
    cosine = quarter == 0 ? c : quarter == 1 ? -s : quarter == 2 ? -c : s;
    sine = quarter == 0 ? s : quarter == 1 ? c : quarter == 2 ? -s : -c;
  }
  double cosine, sine;
};

// How far a point of the first quadrant is from an ellipse around 0, 0, a its greater radius, along
// x.
double distanceToEllipse(double a, double b, double x, double y) {
  const double e = a * a - b * b;
  if (!(b * y > 0)) {
    // On the long axis, not far from the centre, the nearest places are beside it.
    const double part = e > 0 ? a * x / e : 1;
    return part < 1 ? lengthOf(a * part - x, b * std::sqrt(1 - part * part)) : std::abs(x - a);
  }
  // The nearest place is (a^2 x / (s + e), b^2 y / s) for the largest s at which it lies on the
  // ellipse. The sum of squares below falls with s and is convex, and it is 1 to 2 at the start:
  // Newton's steps rise to s without passing it.
  constexpr int mostSteps = 64;
  double s = std::max(b * y, a * x - e);
  for (int step = 0; step < mostSteps; ++step) {
    const double p = a * x / (s + e), q = b * y / s;
    const double next = s + (p * p + q * q - 1) / (2 * (p * p / (s + e) + q * q / s));
    if (!(next > s)) break;
    s = next;
  }
  return lengthOf(x - a * a * x / (s + e), y - b * b * y / s);
}

// One row of a shape: what of it can matter there.
class Row {
 public:
  Row(const MaskShape& shape, double y)
      : shape_(shape),
        y_(y),
        soft_(std::max(shape.softPixels, 1e-6)),
        reach_(soft_ / 2),
        turn_(shape.turnDegrees) {
    if (shape.kind == MaskShape::Kind::ellipse) return;
    if (shape.kind == MaskShape::Kind::brush) reach_ += shape.radii[0];
    const std::vector<MaskPoint>& points = shape.points;
    const bool closed = shape.kind == MaskShape::Kind::polygon;
    if (points.size() == 1) take(points[0], points[0]);
    for (std::size_t i = 1; i < points.size(); ++i) take(points[i - 1], points[i]);
    if (closed) take(points.back(), points.front());
    if (!closed) return;
    for (std::size_t i = 0, j = points.size() - 1; i < points.size(); j = i++) {
      const MaskPoint &a = points[i], &b = points[j];
      if ((a[1] > y) != (b[1] > y)) {
        crossings_.push_back((b[0] - a[0]) * (y - a[1]) / (b[1] - a[1]) + a[0]);
      }
    }
  }

  double at(double x) const {
    const double held = std::clamp(0.5 + depthAt(x) / soft_, 0.0, 1.0);
    return shape_.outside ? 1 - held : held;
  }

 private:
  struct Side {
    MaskPoint a, b;
    double left, right;  // beyond them it is out of reach
  };

  void take(const MaskPoint& a, const MaskPoint& b) {
    if (std::min(a[1], b[1]) - reach_ > y_ || std::max(a[1], b[1]) + reach_ < y_) return;
    sides_.push_back({a, b, std::min(a[0], b[0]) - reach_, std::max(a[0], b[0]) + reach_});
  }

  // How far within the edge, in pixels; infinite where that is beyond the edge's width.
  double depthAt(double x) const {
    if (shape_.kind == MaskShape::Kind::ellipse) return depthInEllipse(x);
    double nearest = infinity;
    for (const Side& side : sides_) {
      if (x < side.left || x > side.right) continue;
      nearest = std::min(nearest, distanceTo(side.a, side.b, x, y_));
    }
    if (shape_.kind == MaskShape::Kind::brush) return shape_.radii[0] - nearest;
    bool inside = false;
    for (const double crossing : crossings_) inside = inside != (x < crossing);
    return inside ? nearest : -nearest;
  }

  double depthInEllipse(double x) const {
    const double a = shape_.radii[0], b = shape_.radii[1];
    const double dx = x - shape_.points[0][0], dy = y_ - shape_.points[0][1];
    const double u = std::abs(dx * turn_.cosine + dy * turn_.sine);
    const double v = std::abs(dy * turn_.cosine - dx * turn_.sine);
    const double part = lengthOf(u / a, v / b);  // of the radius in that direction
    // A ball of the lesser radius fits into the ellipse: so far is it at least.
    if (std::abs(1 - part) * std::min(a, b) >= reach_) return part < 1 ? infinity : -infinity;
    const double distance = a < b ? distanceToEllipse(b, a, v, u) : distanceToEllipse(a, b, u, v);
    return part < 1 ? distance : -distance;
  }

  const MaskShape& shape_;
  double y_, soft_, reach_;
  Turn turn_;
  std::vector<Side> sides_;
  std::vector<double> crossings_;
};

}  // namespace

MaskShape MovingMask::at(int frame) const {
  MaskShape now = shape;
  const auto after = std::find_if(keys.begin(), keys.end(),
                                  [frame](const MaskKey& key) { return key.frame >= frame; });
  const MaskKey& to = after == keys.end() ? keys.back() : *after;
  now.points = to.points;
  now.radii = to.radii;
  now.turnDegrees = to.turnDegrees;
  if (after == keys.end() || after == keys.begin() || to.frame == frame) return now;
  const MaskKey& from = *(after - 1);
  const double part =
      (static_cast<double>(frame) - from.frame) / (static_cast<double>(to.frame) - from.frame);
  const auto between = [part](double a, double b) { return a + (b - a) * part; };
  for (std::size_t i = 0; i < now.points.size(); ++i) {
    for (std::size_t c = 0; c < 2; ++c) {
      now.points[i][c] = between(from.points[i][c], to.points[i][c]);
    }
  }
  for (std::size_t i = 0; i < now.radii.size(); ++i) {
    now.radii[i] = between(from.radii[i], to.radii[i]);
  }
  now.turnDegrees = between(from.turnDegrees, to.turnDegrees);
  return now;
}

bool hasMasks(const Masks& masks, MaskShape::Use use) {
  return std::any_of(masks.begin(), masks.end(),
                     [use](const MovingMask& mask) { return mask.shape.use == use; });
}

std::vector<MaskShape> shapesAt(const Masks& masks, MaskShape::Use use, int frame) {
  std::vector<MaskShape> shapes;
  for (const MovingMask& mask : masks) {
    if (mask.shape.use == use) shapes.push_back(mask.at(frame));
  }
  return shapes;
}

MaskShape shrunk(MaskShape shape, int divisor) {
  for (MaskPoint& point : shape.points) point = {point[0] / divisor, point[1] / divisor};
  for (double& radius : shape.radii) radius /= divisor;
  shape.softPixels /= divisor;
  return shape;
}

double coverage(const MaskShape& shape, double x, double y) { return Row(shape, y).at(x); }

void joinRow(const MaskShape& shape, Depth depth, void* matte, int sampleStep, int width, double x,
             double y) {
  const Row row(shape, y);
  withSampleOf(depth, [&]<class Sample>(std::type_identity<Sample>) {
    const double white = static_cast<float>(maxOf(depth));
    auto* sample = static_cast<Sample*>(matte);
    for (int column = 0; column < width; ++column, sample += sampleStep) {
      const double held = white * row.at(x + column);
      const auto value = static_cast<Sample>(white > 1 ? std::floor(held + 0.5) : held);
      *sample = std::max(*sample, value);
    }
  });
}

}  // namespace orvanite
