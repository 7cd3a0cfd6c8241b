// SPDX-License-Identifier: BSD-3-Clause
//
// The keying equations over real numbers: double precision, no tables, no fixed point. Every value
// is a span. With the grain off, spans are single numbers: the ideal result. With it on, each
// rounding that the engine does widens the span by the most that it can move the value, so that
// the engine's result provably lies inside:
//
//   integer keyer (work = 1/16383, key = 1/4096, code = 1/max)
//     rounding, x + 0.5 truncated        -0.5 .. +0.5; 0 .. +1.5 where x is negative (-1.4 gives 0)
//     a truncated division or shift      -1 .. 0
//     inner knots of a key curve         moved down by less than one code: position 0 .. +1
//     a key curve between two positions  no steeper than its largest control difference
//   float keyer
//     a half, input or table entry       2^-11 of itself, and 2^-25 below the normal range
//     knots                              2^-11 of themselves
//   both: single precision              2^-20 of the value after each step, which covers the few
//                                       operations of 2^-24 each, and 2^-21 where floats cancel
//
// Divisions by a small matte widen spans without limit; the test counts how many stay narrow.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>

#include "tests/engine/Pixel.h"

namespace continuous {

struct Span {
  double low = 0, high = 0;
};

inline Span exactly(double v) { return {v, v}; }
inline Span operator+(Span a, Span b) { return {a.low + b.low, a.high + b.high}; }
inline Span operator-(Span a, Span b) { return {a.low - b.high, a.high - b.low}; }
inline Span operator*(Span a, Span b) {
  const double corners[] = {a.low * b.low, a.low * b.high, a.high * b.low, a.high * b.high};
  return {*std::min_element(corners, corners + 4), *std::max_element(corners, corners + 4)};
}
inline Span clamped(Span s, double low, double high) {
  return {std::clamp(s.low, low, high), std::clamp(s.high, low, high)};
}
inline Span greater(Span a, Span b) { return {std::max(a.low, b.low), std::max(a.high, b.high)}; }

/// The image of a span under a monotone function, rising or falling.
template <class Function>
Span through(Span s, Function f) {
  const double a = f(s.low), b = f(s.high);
  return {std::min(a, b), std::max(a, b)};
}

/// a x first + (1 - a) x second, exact at the corners as it is linear in each.
inline Span mixed(Span a, Span first, Span second) {
  Span out = {INFINITY, -INFINITY};
  for (double m : {a.low, a.high}) {
    out.low = std::min(out.low, m * first.low + (1 - m) * second.low);
    out.high = std::max(out.high, m * first.high + (1 - m) * second.high);
  }
  return out;
}

inline double toLinear(double v, int space) {
  if (space == 1) return std::pow(10.0, (v - 1) * 2.04);
  if (space == 2) {
    v = std::max(v, 0.0);
    return std::pow(v <= 0.081 ? v / 4.5 : std::pow((v + 0.099) / 1.099, 1 / 0.45), 0.6);
  }
  return v;
}

inline double fromLinear(double v, int space) {
  if (space == 1) return v <= 0 ? 0 : 1 + std::log10(v) / 2.04;
  if (space == 2) {
    const double t = std::pow(std::max(v, 0.0), 1 / 0.6);
    return t < 0.018 ? 4.5 * t : 1.099 * std::pow(t, 0.45) - 0.099;
  }
  return v;
}

class Model {
 public:
  /// Parameters inside their ranges, with a usable screen; grain widens the spans.
  Model(const Parameters& parameters, bool isFloat, bool withGrain)
      : p(parameters), floats(isFloat), grain(withGrain) {
    double light[3], least = INFINITY;
    for (int c = 0; c < 3; ++c) least = std::min(least, light[c] = linear(p.neutral[c]));
    for (int c = 0; c < 3; ++c) {
      scale[c] = least / light[c];
      screen[c] = scale[c] * linear(p.screen[c]);
      midpoint[c] = scale[c] * linear(p.mp[c]);
    }
    primary = static_cast<int>(std::max_element(screen, screen + 3) - screen);
    const int weakest = static_cast<int>(std::min_element(screen, screen + 3) - screen);
    const int middle = 3 - primary - weakest;
    const double balance = p.balance[1];
    const double difference = (1 - balance) * (screen[primary] - screen[weakest]) +
                              balance * (screen[primary] - screen[middle]);
    const double lead = p.ref ? 1 : screen[primary] / difference;
    const double shadows = p.balance[0] - balance, highlights = p.balance[2] - balance;
    setCurve(primary, lead * scale[primary], p.gain[0], p.gain[1], p.gain[2]);
    setCurve(middle, -lead * balance * scale[middle], shadows, 0, highlights);
    setCurve(weakest, -lead * (1 - balance) * scale[weakest], -shadows, 0, -highlights);
    findClip();
  }

  /// The values of one output pixel, 1.0 for white; inputs in the same measure.
  std::array<Span, 4> key(const orvanite::Choices& choices, const Inputs<double>& in) const {
    Span colour[3];
    Span k = exactly(0), plate = exactly(0);
    for (std::size_t c = 0; c < 3; ++c) {
      const int channel = static_cast<int>(c);
      colour[c] = floats ? single(exactly(scale[c] * linear(in.fg[c])))
                         : roundedWork(exactly(scale[c] * linear(in.fg[c])));
      k = k + share(channel, exactly(in.fg[c]), p.fgMax, false);
      if (choices.ref) plate = plate + share(channel, exactly(in.ref[c]), p.refMax, true);
    }
    const Span s = choices.ref ? amountOf(k, plate) : amountOf(k);
    for (std::size_t c = 0; c < 3; ++c) {
      const Span screenColour = choices.ref ? roundedWork(exactly(scale[c] * linear(in.ref[c])))
                                : floats    ? exactly(screen[c])
                                            : roundedWork(exactly(screen[c]));
      const Span removed = colour[c] - halfUp(s * screenColour, work());
      colour[c] = {std::max(0.0, removed.low), std::max(0.0, removed.high)};
      colour[c] = single(colour[c]);
    }
    Span a = clamped(exactly(1) - s, 0, 1);
    if (choices.hold) holdOut(colour, a, in.hold);
    unpremultiply(colour, a);
    grade(colour, 0, false);
    a = clip(a);
    if (choices.garbage) {
      const Span kept = exactly(1) - halfUp(exactly(in.garbage), keyUnit());
      a = single(a * kept);
      a.high += keyUnit();
    }
    return output(choices, in, colour, a);
  }

 private:
  double linear(double v) const { return toLinear(v, p.colourspace); }
  double work() const { return grain && !floats ? 1.0 / 16383 : 0; }
  double keyUnit() const { return grain && !floats ? 1.0 / 4096 : 0; }
  double code(int max) const { return grain && !floats ? 1.0 / max : 0; }

  /// Single precision's own error. Floats cancel, with operands about 1.
  Span single(Span s) const {
    const double part = grain ? 0x1p-20 : 0;
    const double least = grain && floats ? 0x1p-21 : 0;
    return {s.low - std::fabs(s.low) * part - least, s.high + std::fabs(s.high) * part + least};
  }
  static Span halfUp(Span s, double unit) { return {s.low - 0.5 * unit, s.high + 0.5 * unit}; }
  Span roundedTo(Span s, double unit) const {
    s = single(s);
    return {s.low - (s.high > 0 ? 0.5 : 0) * unit, s.high + (s.low < 0 ? 1.5 : 0.5) * unit};
  }
  Span roundedWork(Span s) const { return roundedTo(s, work()); }
  Span roundedKey(Span s) const { return roundedTo(s, keyUnit()); }
  Span half(Span s) const {
    if (!grain || !floats) return s;
    const double e = 0x1p-11;
    return {s.low - std::fabs(s.low) * e - 0x1p-25, s.high + std::fabs(s.high) * e + 0x1p-25};
  }

  void setCurve(int c, double base, double shadow, double midtone, double highlight) {
    const double values[] = {base + shadow,
                             base + shadow,
                             base + (shadow + midtone) / 2,
                             base + midtone,
                             base + (midtone + highlight) / 2,
                             base + highlight,
                             base + highlight,
                             base + highlight};
    std::copy_n(values, 8, controls[c]);
    bases[c] = base;
  }

  /// Where x lies among the knots: whole numbers at the knots, 0..4.
  static double position(double x, const double* knots) {
    if (x <= 0) return 0;
    for (int i = 1; i <= 4; ++i)
      if (x < knots[i]) return i - 1 + (x - knots[i - 1]) / (knots[i] - knots[i - 1]);
    return 4;
  }

  static double curve(double position, const double* p) {
    const int segment = std::min(static_cast<int>(position), 4);
    const double t = position - segment;
    const double* q = p + segment;
    const double u = 1 - t;  // the basis of a uniform cubic B-spline
    return (u * u * u * q[0] + (3 * t * t * t - 6 * t * t + 4) * q[1] +
            (3 * u * u * u - 6 * u * u + 4) * q[2] + t * t * t * q[3]) /
           6;
  }

  /// A channel's contribution to the projection (floats: to the screen amount) at values x.
  Span share(int c, Span x, int max, bool plate) const {
    const double e = midpoint[c];
    double knots[5];
    Span at;
    if (floats) {
      const double top = std::clamp(5 * e, 1.0, 65504.0);
      const double places[] = {0, e / 2, e, (top + e) / 2, top};
      std::copy_n(places, 5, knots);
      x = half(x);
      x.low = std::max(0.0, x.low);
      const double knotError = grain ? 0x1p-11 : 0;
      at = {x.low * (1 - knotError), x.high * (1 + knotError)};
    } else {
      const double n = max + 1;
      const double places[] = {0, n * e / 2, n * e, n * (e + 1) / 2, n};
      std::copy_n(places, 5, knots);
      at = {x.low * max, x.high * max};
      if (grain) at = {at.low - 0.01, at.high + 1};
    }
    const Span place = {position(at.low, knots), position(at.high, knots)};
    double flat[8];
    std::fill_n(flat, 8, bases[c]);
    const double* values = plate && c == primary ? flat : controls[c];
    double steepest = 0;
    for (int i = 0; i < 7; ++i) steepest = std::max(steepest, std::fabs(values[i + 1] - values[i]));
    const double middle = curve((place.low + place.high) / 2, values);
    const double reach = steepest * (place.high - place.low) / 2;
    const Span weight = {middle - reach, middle + reach};
    const Span light = single({linear(x.low), linear(x.high)});
    const Span product = single(weight * light);
    if (floats) return half(single(exactly(1 / screen[primary]) * product));
    return roundedKey(clamped(product, -8, 32767.0 / 4096));
  }

  Span amountOf(Span k) const {
    if (floats) return clamped(single(k), 0, 1);
    const Span read = clamped(k, 0, 4095.0 / 4096);
    return clamped(roundedKey(exactly(1 / screen[primary]) * read), 0, 4);
  }

  Span amountOf(Span k, Span plate) const {
    const double low = std::max(0.0, k.low) / plate.high - keyUnit();
    return clamped({low, std::max(0.0, k.high) / plate.low}, 0, 4);
  }

  void findClip() {
    Span k = exactly(0), plate = exactly(0);
    for (int c = 0; c < 3; ++c) {
      const double step = 0.577 * p.screenRange;
      const double moved = p.screen[c] + (c == primary ? -step : step);
      const double limit = floats ? INFINITY : 1;
      Span v = clamped(halfUp(exactly(std::max(0.0, moved)), code(p.fgMax)), 0, limit);
      k = k + share(c, single(v), p.fgMax, false);
      if (p.ref) {
        const Span s = clamped(halfUp(exactly(p.screen[c]), code(p.refMax)), 0, 1);
        plate = plate + share(c, s, p.refMax, true);
      }
    }
    const Span amount = p.ref ? amountOf(k, plate) : amountOf(k);
    clipLow = clamped(exactly(1) - amount, 0, floats ? 0.499 : 0.5);
  }

  static double clipped(double a, double low) {
    if (a < low) return 0;
    if (a >= 1 - low && a > 0.5) return 1;
    return low < 0.5 ? std::min(1.0, (a - low) / (1 - 2 * low)) : 0;
  }

  /// Monotone in the matte, and in the clip point: falling below 0.5, rising above.
  Span clip(Span a) const {
    Span out = {1, 0};
    for (double m : {a.low, a.high})
      for (double low : {clipLow.low, clipLow.high}) {
        out.low = std::min(out.low, clipped(m, low));
        out.high = std::max(out.high, clipped(m, low));
      }
    return clamped(roundedKey(out), 0, 1);
  }

  void holdOut(Span* colour, Span& a, double sample) const {
    const Span hold = halfUp(exactly(sample), keyUnit());
    Span h = single((exactly(1) - a) * hold);
    h.low = std::max(0.0, h.low - keyUnit());
    for (int c = 0; c < 3; ++c) {
      const double replace = scale[c] * linear(p.replace[c]);
      const Span added = h * (floats ? exactly(replace) : roundedWork(exactly(replace)));
      colour[c] = single(colour[c] + added);
      colour[c].low = std::max(0.0, colour[c].low - work());
      if (!floats) colour[c] = clamped(colour[c], 0, 1);
    }
    a = {a.low + (1 - a.low) * hold.low - keyUnit(), a.high + (1 - a.high) * hold.high};
    a = clamped(single(a), 0, 1);
  }

  void unpremultiply(Span* colour, Span& a) const {
    if (floats) {
      for (int c = 0; c < 3; ++c) {
        if (a.low > 0)
          colour[c] = single({colour[c].low / a.high, colour[c].high / a.low});
        else if (a.high > 0)
          colour[c].high = colour[c].high > 0 ? 1e30 : 0;
      }
      return;
    }
    const Span most = greater(greater(colour[0], colour[1]), colour[2]);
    const Span divisor = greater(most, a);
    for (int c = 0; c < 3; ++c) {
      const Span v = colour[c];
      const double low = divisor.high > 0 ? v.low / divisor.high - work() : 0;
      const double high = v.high <= 0 ? 0 : v.high / std::max(divisor.low, v.high);
      const double highest = v.high <= 0 ? 0 : divisor.low > 0 ? v.high / divisor.low : 1;
      colour[c] = clamped({low, std::max(high, highest)}, 0, 1);
    }
    a = {std::max(most.low - keyUnit(), a.low), divisor.high};
    a = clamped(a, 0, 1);
  }

  /// Grading of a set, then its saturation. Background colours come in as plain light.
  void grade(Span* colour, int set, bool background) const {
    for (int c = 0; c < 3; ++c) {
      colour[c] = single(through(colour[c], [&](double v) {
        const double light = std::max(0.0, background ? v : v / scale[c]);
        return scale[c] *
               (p.exposure[set][c] * std::pow(light, 1.0 / p.gamma[set][c]) + p.offset[set][c]);
      }));
      if (!floats) colour[c] = roundedWork(clamped(colour[c], 0, 1));
    }
    if (p.saturation[set] == 1.0f) return;
    const double luma[] = {0.299, 0.587, 0.114}, saturation = p.saturation[set];
    Span out[3];
    for (int r = 0; r < 3; ++r) {
      for (int k = 0; k < 3; ++k) {
        const double ideal =
            scale[r] / scale[k] * ((1 - saturation) * luma[k] + (r == k ? saturation : 0));
        out[r] = out[r] + roundedKey(exactly(ideal)) * colour[k];
      }
      out[r] = single(halfUp(out[r], work()));
      out[r] = clamped(out[r], 0, floats ? INFINITY : 1);
    }
    std::copy_n(out, 3, colour);
  }

  std::array<Span, 4> output(const orvanite::Choices& choices, const Inputs<double>& in,
                             const Span* colour, Span a) const {
    std::array<Span, 4> out;
    if (p.view == 2) {
      out.fill(halfUp(a, code(p.dstMax)));
      return out;
    }
    Span below[3];
    for (std::size_t c = 0; c < 3; ++c) {
      if (p.view == 0) below[c] = single(exactly(linear(in.bg[c])));
      if (p.view == 1) below[c] = roundedWork(exactly(scale[c] * linear(p.background[c])));
    }
    if (p.view == 0) grade(below, 1, true);
    for (std::size_t c = 0; c < 3; ++c) {
      Span shown = colour[c];
      if (p.view == 0 || p.view == 1) shown = single(halfUp(mixed(a, colour[c], below[c]), work()));
      // A logarithm falls without end towards 0, and at 0 it is 0.
      const bool atZero = p.colourspace == 1 && shown.low <= 0 && shown.high > 0;
      shown = through(shown, [&](double v) { return fromLinear(v / scale[c], p.colourspace); });
      if (atZero) shown.low = -INFINITY;
      if (!floats) shown = clamped(shown, 0, 1);
      out[c] = single(halfUp(single(shown), code(p.dstMax)));
    }
    if (p.view == 0 && choices.alpha) {
      a = {a.low + (1 - a.low) * in.bg[3] - keyUnit(), a.high + (1 - a.high) * in.bg[3]};
    }
    out[3] = halfUp(single(a), code(p.dstMax));
    return out;
  }

  Parameters p;
  bool floats, grain;
  double scale[3] = {}, screen[3] = {}, midpoint[3] = {};
  double controls[3][8] = {}, bases[3] = {};
  int primary = 0;
  Span clipLow;
};

}  // namespace continuous
