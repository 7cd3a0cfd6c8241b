// SPDX-License-Identifier: BSD-3-Clause
//
// Veil, glass, ball and grass, each from a formula of its own.
#include "examples/plate/Airy.h"

namespace orvanite::plate {

namespace {

constexpr float glassX = 0.80f, glassFoot = -0.518f, glassHeight = 0.40f;

float glassRadius(float h) {  // h from the foot
  const float body = 0.112f * decay(square((h - 0.115f) / 0.115f));
  const float lip = 0.045f * square(ramp(0.27f, glassHeight + 0.03f, h));
  return 0.042f + body * 0.85f + lip + 0.03f * ramp(0.03f, 0.0f, h);
}

}  // namespace

Airy::Airy(const Options& options, V3 screenLight, float pixelWidth)
    : screenTint(screenLight),
      spillStrength(options.difficulty == Difficulty::hard ? 1.7f : 1.0f),
      pixel(pixelWidth),
      time(static_cast<float>(options.frame - 1) / 24) {}

Layer Airy::ribbon(float x, float y, int which) const {
  const auto n = static_cast<float>(which);
  const float s = (-0.40f - x) / 1.45f;  // 0 at the neck, 1 at the frame's edge
  Layer layer;
  if (s <= 0) return layer;
  const float blow = sineOfTurns(0.75f * s - 0.55f * time + 0.23f * n);
  const float middle = -0.44f - 0.10f * s - 0.16f * s * (n - 0.5f) + (0.025f + 0.085f * s) * blow -
                       0.13f * ramp(0.0f, 0.35f, s) * (0.6f + 0.8f * n);
  const float half = 0.055f + 0.235f * ramp(0.0f, 0.95f, s) * (1 - 0.25f * n);
  float v = (y - middle) / half;
  v += 0.07f * s * sineOfTurns(1.9f * s - 0.7f * time + 0.4f * n);
  const float cover = clamp01((1 - magnitude(v)) * half / pixel + 0.5f);
  if (cover <= 0) return layer;
  // Folds run along the ribbon; where the cloth turns edge on, more threads lie in the way.
  const float phase = v * (1.15f + 0.4f * n) +
                      0.33f * sineOfTurns(0.9f * s - 0.6f * time + 0.1f * n) +
                      0.16f * sineOfTurns(1.7f * s + 0.5f * v) + 0.5f * n;
  const float slope = 0.75f * cosineOfTurns(phase) + 0.30f * cosineOfTurns(2.3f * phase + 0.4f * s);
  const float hem = decay(square((1 - magnitude(v)) * half / 0.006f));
  const float threads = 0.8f + 3.6f * square(square(slope)) + 0.7f * square(slope) + 1.6f * hem +
                        2.6f * ramp(0.22f, 0.0f, s);
  const float matte = 1 - power(1 - 0.20f, static_cast<double>(threads));
  const V3 n3 = normal({0.25f * blow, slope, 1.1f});
  const float lit =
      0.30f + 0.62f * clamp01(dot(n3, keyDirection)) + 0.22f * clamp01(dot(n3, leftRimDirection));
  const V3 albedo = {0.88f, 0.50f, 0.34f};
  layer.matte = matte * cover;
  layer.colour = exposed(albedo * (keyEnergy * lit + skyEnergy * 0.4f) * 0.85f) * layer.matte;
  layer.spill = screenTint * (0.050f * spillStrength * layer.matte);
  return layer;
}

Layer Airy::veil(float x, float y) const {
  Layer layer = ribbon(x, y, 1);
  putOver(layer, ribbon(x, y, 0));
  return layer;
}

Layer Airy::glassAt(float x, float y) const {
  Layer layer;
  const float h = y - glassFoot;
  const float dx = x - glassX;
  const float sag = 0.012f;  // how far the camera looks down into rings
  float matte = 0;
  V3 colour;  // energy, times the matte
  const auto add = [&](float m, V3 energy) {
    colour = colour * (1 - m) + energy * m;
    matte = matte * (1 - m) + m;
  };
  const float water = 0.215f;
  if (h > -0.012f && h < glassHeight) {
    const float r = glassRadius(most(h, 0));
    const float u = dx / r;
    const float foot = h < 0 ? 1 - square(h / 0.012f) : 1;
    if (u * u < foot) {
      const float across = std::sqrt(1 - u * u);
      const float surface = water + sag * 0.8f * std::sqrt(most(0, 1 - u * u));
      if (h < surface && h > 0.02f) {
        const float depth = across * (h < 0.045f ? (h - 0.02f) / 0.025f : 1);
        add(0.26f * depth, V3{0.52f, 0.60f, 0.62f} * (0.45f + 0.4f * (h / water)));
      }
      if (magnitude(h - water) < sag * 0.8f * across) add(0.20f, {0.75f, 0.80f, 0.82f});
      // The wall is seen edge on at the rim.
      const float edge = square(square(square(u)));
      const float wall = 0.07f + 0.62f * edge * edge + 0.20f * edge;
      const float dark = ramp(0.93f, 0.985f, magnitude(u));
      add(clamp01(wall), mix(V3{0.42f, 0.46f, 0.48f}, V3{0.10f, 0.11f, 0.12f}, dark));
      if (h < 0.022f) add(0.42f, V3{0.50f, 0.54f, 0.56f} * (0.4f + 0.6f * across));
      // A soft box to the left, a strip to the right, the rim light.
      const float box = ramp(-0.72f, -0.66f, u) * ramp(-0.34f, -0.42f, u) * ramp(0.035f, 0.05f, h) *
                        ramp(0.36f, 0.34f, h);
      const float bar = 1 - 0.8f * ramp(0.012f, 0.006f, magnitude(h - 0.15f));
      add(0.70f * box * bar, {0.95f, 0.97f, 1.0f});
      const float strip = ramp(0.66f, 0.70f, u) * ramp(0.82f, 0.78f, u) * ramp(0.03f, 0.06f, h);
      add(0.42f * strip, {1.0f, 0.90f, 0.76f});
    }
  }
  // The lip, a ring seen from slightly above.
  const float lipRadius = glassRadius(glassHeight);
  const float ring = std::sqrt(square(dx / lipRadius) + square((h - glassHeight) / (sag * 1.1f)));
  const float lip =
      ramp(0.20f, 0.06f, magnitude(ring - 1) * (0.35f + 0.65f * square(dx / lipRadius)) * 2.2f);
  if (magnitude(h - glassHeight) < 0.03f && magnitude(dx) < lipRadius * 1.05f) {
    add(0.75f * lip, mix(V3{0.45f, 0.48f, 0.5f}, V3{1, 1, 1}, ramp(0.0f, -0.8f, dx / lipRadius)));
  }
  if (matte > 0) {
    layer.matte = matte;
    layer.colour = exposed(colour * (1.05f / matte)) * matte;
    layer.spill = screenTint * (0.03f * spillStrength * matte);
  }
  return layer;
}

Layer Airy::glass(float x, float y) const {
  Layer sum;
  if (magnitude(x - glassX) > 0.25f || magnitude(y - glassFoot - 0.2f) > 0.25f) return sum;
  for (int i = 0; i < 16; ++i) {
    const float px = (static_cast<float>(i % 4) - 1.5f) * 0.25f,
                py = (static_cast<float>(i / 4) - 1.5f) * 0.25f;
    const Layer one = glassAt(x + px * pixel, y + py * pixel);
    sum.matte += one.matte;
    sum.colour = sum.colour + one.colour;
    sum.spill = sum.spill + one.spill;
  }
  return {sum.colour * 0.0625f, sum.spill * 0.0625f, sum.matte * 0.0625f};
}

Layer Airy::ballAt(float x, float y, float turn) const {
  constexpr float radius = 0.105f;
  const V3 centre = {1.16f + 0.27f * cosineOfTurns(turn), 0.50f + 0.22f * sineOfTurns(turn), 0.2f};
  Layer layer;
  const float dx = (x - centre.x) / radius, dy = (y - centre.y) / radius;
  const float r2 = dx * dx + dy * dy;
  if (r2 >= 1) return layer;
  const V3 n = {dx, dy, std::sqrt(1 - r2)};
  const float spin = turn * 0.7f + 0.12f;
  const float c = cosineOfTurns(spin), s = sineOfTurns(spin);
  const V3 q = {n.x * c - n.y * s, n.x * s + n.y * c, n.z};
  const float seam = magnitude(q.z - 0.25f - 0.62f * (q.x * q.x - q.y * q.y) - 0.18f * q.x);
  V3 albedo = {0.78f, 0.17f, 0.075f};
  albedo = albedo * (0.88f + 0.24f * noise(q.x * 34, q.y * 34, 41));
  albedo = mix(albedo, {0.80f, 0.80f, 0.76f}, ramp(0.075f, 0.045f, seam));
  const float wrapped = clamp01((dot(n, keyDirection) + 0.25f) / 1.25f);
  const float rim = ramp(0.1f, 0.7f, dot(n, rimDirection)),
              left = ramp(0.0f, 0.7f, dot(n, leftRimDirection));
  const V3 e = albedo * (keyEnergy * wrapped + skyEnergy * (0.7f + 0.4f * n.y) +
                         leftRimEnergy * left + rimEnergy * rim * 0.6f) +
               skyEnergy * (0.35f * square(1 - n.z));
  layer.matte = 1;
  layer.colour = exposed(e);
  layer.spill = screenTint * ((0.02f + 0.13f * square(1 - n.z)) * spillStrength * 0.6f);
  return layer;
}

Layer Airy::flyingBall(float x, float y) const {
  Layer sum;
  if (magnitude(x - 1.16f) > 0.40f || magnitude(y - 0.50f) > 0.35f) return sum;
  // The shutter stays open for the whole frame: an instant for each of 32 places in the pixel.
  const float open = time * 1.15f + 0.22f;
  constexpr int instants = 32;
  for (int i = 0; i < instants; ++i) {
    const float t = (static_cast<float>(i) + unitAt(static_cast<int>(x / pixel + 4000),
                                                    static_cast<int>(y / pixel + 4000), 5)) /
                    instants;
    const float px = (static_cast<float>(i * 5 % instants) + 0.5f) / instants - 0.5f;
    const float py = (static_cast<float>(i * 13 % instants) + 0.5f) / instants - 0.5f;
    const Layer one = ballAt(x + px * pixel, y + py * pixel, open + 0.060f * t);
    sum.matte += one.matte;
    sum.colour = sum.colour + one.colour;
    sum.spill = sum.spill + one.spill;
  }
  return {sum.colour * (1.0f / instants), sum.spill * (1.0f / instants),
          sum.matte * (1.0f / instants)};
}

std::vector<Segment> Airy::grass() const {
  std::vector<Segment> all;
  Dice dice(501);
  const auto line = [&](V3 a, V3 b, float halfWidth, V3 energy, float density) {
    Segment s{};
    s.x0 = a.x;
    s.y0 = a.y;
    s.x1 = b.x;
    s.y1 = b.y;
    s.depth = -1;
    s.halfWidth = halfWidth;
    s.density = density;
    s.colour = exposed(energy);
    s.spill = screenTint * (0.05f * spillStrength);
    all.push_back(s);
  };
  constexpr int stems = 7;
  for (int k = 0; k < stems; ++k) {
    const float lean = (static_cast<float>(k * 3 % stems) / (stems - 1) - 0.5f) * 2;
    const float tall = 0.62f + 0.20f * dice.unit() - 0.10f * lean * lean;
    const float sway = 0.02f * sineOfTurns(0.4f * time + 0.13f * static_cast<float>(k));
    const V3 tone = mix(V3{0.70f, 0.52f, 0.33f}, V3{0.82f, 0.72f, 0.55f}, dice.unit());
    const auto stemAt = [&](float t) {
      return V3{glassX + 0.02f * lean + (0.30f * lean - 0.03f) * t * t + sway * t * t * 2 -
                    0.02f * lean * t,
                glassFoot + 0.03f + tall * t - 0.10f * magnitude(lean) * t * t * t, 0};
    };
    for (int i = 0; i < 24; ++i) {
      line(stemAt(static_cast<float>(i) / 24), stemAt(static_cast<float>(i + 1) / 24), 0.0032f,
           tone * 0.55f, 1);
    }
    for (int i = 0; i < 430; ++i) {
      const float t = 0.60f + 0.41f * dice.unit();
      const float body = ramp(0.58f, 0.74f, t) * ramp(1.10f, 0.86f, t);
      V3 p = stemAt(t);
      const V3 up = normal(stemAt(t + 0.02f) - stemAt(t - 0.02f));
      const float side = dice.sided();
      V3 d = normal(up + V3{-up.y, up.x, 0} * (1.1f * side));
      const float step = 0.0145f * (0.35f + body) * (0.6f + 0.6f * dice.unit());
      const float light = 0.55f + 0.40f * clamp01(0.5f + 0.5f * side * (lean > 0 ? 1.0f : 1.0f)) +
                          0.25f * dice.unit();
      for (int j = 0; j < 5; ++j) {
        const V3 q = p + d * step;
        line(p, q, 0.0013f * (1 - 0.17f * static_cast<float>(j)), tone * light, 0.75f);
        d = normal(d + V3{-0.10f + 0.18f * dice.sided(), -0.17f, 0});
        p = q;
      }
    }
  }
  return all;
}

}  // namespace orvanite::plate
