// SPDX-License-Identifier: BSD-3-Clause
//
// First across, then down. Enlarged by a Blackman-Harris window over three pixels of the picture,
// made smaller by Lanczos of three lobes; beyond its edge the outermost pixels go on. No function
// of a C library decides a weight: those differ in their last bits.
#include "keyer/Fitter.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "engine/colour/Encoding.h"
#include "engine/colour/Fused.h"
#include "engine/colour/Power.h"

namespace orvanite {
namespace {

std::size_t at(int index) { return static_cast<std::size_t>(index); }

/// sin(pi x), by its series within a quarter turn.
double sineOfHalfTurns(double x) {
  constexpr double pi = 3.14159265358979323846;
  x -= 2 * std::round(x / 2);
  if (x > 0.5) x = 1 - x;
  if (x < -0.5) x = -1 - x;
  const double square = pi * x * (pi * x);
  double sum = 1;
  for (int n = 20; n > 0; n -= 2) sum = 1 - sum * square / (n * (n + 1));
  return pi * x * sum;
}

double cosineOfHalfTurns(double x) { return sineOfHalfTurns(x + 0.5); }

/// A window over -1..1, by its minimum of four terms.
double blackmanHarris(double t) {
  return 0.35875 + 0.48829 * cosineOfHalfTurns(t) + 0.14128 * cosineOfHalfTurns(2 * t) +
         0.01168 * cosineOfHalfTurns(3 * t);
}

/// Three lobes over -1..1.
double lanczos(double t) {
  constexpr double pi = 3.14159265358979323846;
  if (std::abs(t) < 1e-9) return 1;
  return sineOfHalfTurns(3 * t) * sineOfHalfTurns(t) / (3 * (pi * t) * (pi * t));
}

}  // namespace

Box placeOf(int width, int height, double aspect, int frameWidth, int frameHeight, Fit fit) {
  double across = width, down = height;
  if (fit == Fit::stretch) {
    across = frameWidth;
    down = frameHeight;
  } else if (fit != Fit::none) {
    const double wide = frameWidth / (width * aspect);
    const double high = static_cast<double>(frameHeight) / height;
    const double scale = fit == Fit::fill ? std::max(wide, high) : std::min(wide, high);
    across = width * aspect * scale;
    down = height * scale;
  }
  const int columns = std::max(1, static_cast<int>(std::lround(across)));
  const int rows = std::max(1, static_cast<int>(std::lround(down)));
  const auto half = [](int room) { return room >= 0 ? room / 2 : -((1 - room) / 2); };
  return {half(frameWidth - columns), half(frameHeight - rows), columns, rows};
}

float toLight(float value, const std::string& encoding) {
  if (encoding == "linear") return value;
  if (encoding == "log") return toLinear(value, logSpace);
  return value <= 0.04045f ? value / 12.92f : power((value + 0.055f) / 1.055f, 2.4f);
}

float fromLight(float light, const std::string& encoding) {
  if (encoding == "linear") return light;
  if (encoding == "log") return fromLinear(light, logSpace);
  return light <= 0.0031308f ? light * 12.92f : fused(1.055f, power(light, 1 / 2.4f), -0.055f);
}

Fitter::Axis::Axis(int from, int to, int place, int frame, bool scaled, bool enlarges)
    : start(std::max(0, place)) {
  const double ratio = static_cast<double>(to) / from;
  const double radius = (enlarges ? 1.5 : 3.0) / std::min(1.0, ratio);  // pixels of the picture
  std::vector<double> shares;
  begins.push_back(0);
  for (int i = start - place; i < std::min(to, frame - place); ++i) {
    const double middle = (i + 0.5) / ratio;
    const int low = scaled ? static_cast<int>(std::ceil(middle - radius - 0.5)) : i;
    const int high = scaled ? static_cast<int>(std::floor(middle + radius - 0.5)) : i;
    const auto inside = [from](int j) { return std::clamp(j, 0, from - 1); };
    shares.assign(at(inside(high) - inside(low) + 1), 0);
    double sum = 0;
    for (int j = low; j <= high; ++j) {
      const double t = (j + 0.5 - middle) / radius;
      const double share = !scaled ? 1 : enlarges ? blackmanHarris(t) : lanczos(t);
      shares[at(inside(j) - inside(low))] += share;
      sum += share;
    }
    first.push_back(inside(low));
    for (const double share : shares) weights.push_back(static_cast<float>(share / sum));
    begins.push_back(static_cast<int>(weights.size()));
    most = std::max(most, static_cast<int>(shares.size()));
  }
}

Fitter::Fitter(int width, int height, const Box& place, int frameWidth, int frameHeight,
               std::string from, std::string to)
    : frameWidth_(frameWidth),
      scales_(width != place.width || height != place.height),
      decodes_(scales_ || from != to),
      enlarges_(width < place.width || height < place.height),
      from_(std::move(from)),
      to_(std::move(to)),
      columns_(width, place.width, place.x, frameWidth, scales_, enlarges_),
      rows_(height, place.height, place.y, frameHeight, scales_, enlarges_),
      line_(4 * at(width)),
      lines_(at(rows_.most), std::vector<float>(4 * columns_.first.size())),
      held_(at(rows_.most), -1) {}

// A row of the picture, as wide as the frame shows it. Those that make one row lie side by side:
// they are held in turn.
const float* Fitter::across(int row, const Rows& read) {
  const std::size_t slot = at(row) % lines_.size();
  if (held_[slot] == row) return lines_[slot].data();
  held_[slot] = row;
  read(row, line_.data());
  for (std::size_t i = 0; i < line_.size() && decodes_; ++i) {
    if (i % 4 != 3) line_[i] = toLight(line_[i], from_);
  }
  float* out = lines_[slot].data();
  for (std::size_t x = 0; x < columns_.first.size(); ++x, out += 4) {
    const float* pixel = line_.data() + 4 * at(columns_.first[x]);
    std::fill_n(out, 4, 0.0f);
    for (int k = columns_.begins[x]; k < columns_.begins[x + 1]; ++k, pixel += 4) {
      for (int c = 0; c < 4; ++c) out[c] += columns_.weights[at(k)] * pixel[c];
    }
  }
  return lines_[slot].data();
}

void Fitter::row(int y, const Rows& read, float* to) {
  std::fill_n(to, 4 * at(frameWidth_), 0.0f);
  if (y < rows_.start || at(y - rows_.start) >= rows_.first.size()) return;
  const std::size_t own = at(y - rows_.start), samples = 4 * columns_.first.size();
  float* const out = to + 4 * at(columns_.start);
  for (int k = rows_.begins[own]; k < rows_.begins[own + 1]; ++k) {
    const float weight = rows_.weights[at(k)];
    const float* const line = across(rows_.first[own] + k - rows_.begins[own], read);
    for (std::size_t s = 0; s < samples; ++s) out[s] += weight * line[s];
  }
  for (std::size_t s = 0; s < samples && decodes_; ++s) {
    if (s % 4 != 3) out[s] = fromLight(out[s], to_);
  }
}

}  // namespace orvanite
