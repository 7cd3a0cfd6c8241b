// SPDX-License-Identifier: BSD-3-Clause
//
// Distance fields and shading of the solid things. A field may overstate a distance slightly
// (ellipsoids, smooth unions), so the march takes nine tenths of each.
#include "examples/plate/Sculpture.h"

namespace orvanite::plate {

namespace {

enum Which {
  bustSkin,
  bustCloth,
  neckScarf,
  plinthA,
  plinthB,
  plinthC,
  pear,
  stalk,
  glazedJar,
  earBead
};
constexpr unsigned personThings =
    1u << bustSkin | 1u << bustCloth | 1u << neckScarf | 1u << earBead;
constexpr unsigned stillThings =
    1u << plinthA | 1u << plinthB | 1u << plinthC | 1u << pear | 1u << stalk | 1u << glazedJar;
constexpr V3 beadPlace = {-0.045f, -0.262f, 0.345f};
constexpr float reach = 0.0008f;  // a march that comes this near has arrived

float ellipsoid(V3 p, V3 centre, V3 radii) {
  const V3 q = p - centre, inverse = {1 / radii.x, 1 / radii.y, 1 / radii.z};
  const V3 scaled = q * inverse;
  const float k0 = length(scaled), k1 = length(scaled * inverse);
  return k1 > 0 ? k0 * (k0 - 1) / k1 : -least(radii.x, least(radii.y, radii.z));
}
float ball(V3 p, V3 centre, float radius) { return length(p - centre) - radius; }
float rod(V3 p, V3 a, V3 b, float radiusA, float radiusB) {
  const V3 pa = p - a, ba = b - a;
  const float t = clamp01(dot(pa, ba) / dot(ba, ba));
  return length(pa - ba * t) - mix(radiusA, radiusB, t);
}
float join(float a, float b, float k) {
  const float h = most(k - magnitude(a - b), 0) / k;
  return least(a, b) - h * h * k * 0.25f;
}
float carve(float a, float b, float k) { return -join(-a, b, k); }
float drum(V3 p, V3 centre, float radius, float halfHeight, float round) {
  const V3 q = p - centre;
  const float dx = std::sqrt(q.x * q.x + q.z * q.z) - radius + round;
  const float dy = magnitude(q.y) - halfHeight + round;
  const float ox = most(dx, 0), oy = most(dy, 0);
  return least(most(dx, dy), 0) + std::sqrt(ox * ox + oy * oy) - round;
}

float headDistance(V3 p) {
  const V3 m = {p.x, p.y, magnitude(p.z)};
  float d = ellipsoid(p, skullCentre, skullRadii);
  d = join(d, ellipsoid(p, {0.14f, -0.08f, 0}, {0.25f, 0.36f, 0.265f}), 0.12f);
  d = join(d, rod(m, {-0.06f, -0.22f, 0.20f}, {0.25f, -0.405f, 0.045f}, 0.075f, 0.075f), 0.12f);
  d = join(d, ellipsoid(m, {0.235f, -0.135f, 0.15f}, {0.10f, 0.095f, 0.09f}), 0.10f);  // cheek
  d = join(d, ball(p, {0.305f, -0.412f, 0}, 0.068f), 0.10f);                           // chin
  d = join(d, rod(m, {0.365f, 0.075f, 0.03f}, {0.285f, 0.085f, 0.17f}, 0.03f, 0.03f), 0.07f);
  d = carve(d, ball(m, {0.405f, 0.005f, 0.135f}, 0.070f), 0.07f);   // orbit
  d = join(d, ball(m, {0.268f, -0.002f, 0.118f}, 0.083f), 0.025f);  // lid
  d = join(d, rod(p, {0.366f, 0.050f, 0}, {0.447f, -0.125f, 0}, 0.022f, 0.034f), 0.060f);
  d = join(d, ball(p, {0.456f, -0.131f, 0}, 0.031f), 0.03f);
  d = join(d, ball(m, {0.400f, -0.152f, 0.042f}, 0.027f), 0.045f);  // wing
  d = join(d, rod(p, {0.425f, -0.160f, 0}, {0.372f, -0.215f, 0}, 0.020f, 0.026f),
           0.040f);  // columella
  d = join(d, ellipsoid(p, {0.345f, -0.255f, 0}, {0.055f, 0.055f, 0.10f}), 0.06f);
  float lips = ellipsoid(p, {0.372f, -0.264f, 0}, {0.038f, 0.021f, 0.085f});
  lips = join(lips, ellipsoid(p, {0.362f, -0.310f, 0}, {0.040f, 0.027f, 0.072f}), 0.010f);
  d = join(d, lips, 0.022f);
  // The neck leans forward into the jaw.
  d = join(d, rod(p, {-0.10f, -0.25f, 0}, {-0.21f, -0.95f, 0}, 0.175f, 0.19f), 0.10f);
  return d;
}

float clothDistance(V3 p) {
  p.y -= 0.045f;
  float d = rod(p, {-0.72f, -1.10f, -0.02f}, {0.36f, -1.13f, -0.02f}, 0.155f, 0.155f);
  d = join(d, ellipsoid(p, {-0.19f, -1.55f, 0.02f}, {0.52f, 0.62f, 0.34f}), 0.22f);
  d = join(d, rod(p, {-0.76f, -1.15f, 0}, {-0.86f, -2.0f, 0.05f}, 0.145f, 0.13f), 0.10f);
  d = join(d, rod(p, {0.41f, -1.18f, 0}, {0.47f, -2.0f, 0.05f}, 0.145f, 0.13f), 0.10f);
  d = join(d, rod(p, {-0.62f, -1.03f, -0.02f}, {-0.20f, -0.88f, -0.04f}, 0.09f, 0.16f), 0.16f);
  d = join(d, rod(p, {0.26f, -1.06f, -0.02f}, {-0.16f, -0.88f, -0.04f}, 0.09f, 0.16f), 0.16f);
  // Folds that fall from the shoulders.
  const float fall = ramp(-0.95f, -1.5f, p.y);
  const float folds = sineOfTurns(p.x * 2.6f + 0.35f * sineOfTurns(p.y * 0.5f) + p.y * 0.28f);
  return d + fall * 0.012f * folds;
}

float scarfDistance(V3 p) {
  const V3 q = p - V3{-0.165f, -0.745f, 0};
  const float tilt = q.y + 0.22f * q.x;
  const float radial = std::sqrt(q.x * q.x + q.z * q.z) - 0.205f;
  float d = 1e9f;
  // Three turns of cloth, each creased.
  for (int i = 0; i < 3; ++i) {
    const auto n = static_cast<float>(i);
    const float dy =
        tilt - (0.085f - 0.085f * n) - 0.03f * sineOfTurns(q.x * (0.9f + 0.3f * n) + 0.3f * n);
    const float dr = radial - 0.022f * n;
    const float crease = 0.007f * sineOfTurns(dy * 11 + q.x * 2.2f + 0.21f * n);
    d = join(d, std::sqrt(dr * dr * 1.3f + dy * dy) - 0.072f + crease, 0.025f);
  }
  return d * 0.85f;
}

}  // namespace

float beforeHairline(V3 p) {
  if (p.y > 0.02f) return p.x - (0.045f + 0.56f * p.y);
  return p.x - (0.045f + 0.50f * (p.y - 0.02f));
}

Sculpture::Sculpture(const Options& options, V3 screenLight) : screenTint(screenLight) {
  const float time = static_cast<float>(options.frame - 1) / 24;
  const float sway = sineOfTurns(time * 0.22f);
  bust.place = {-0.33f + 0.018f * sway, 0.235f + 0.006f * cosineOfTurns(time * 0.31f), 0};
  bust.scale = 0.86f;
  const float turn = 0.062f + 0.004f * sway;  // turns
  bust.cosine = cosineOfTurns(turn);
  bust.sine = sineOfTurns(turn);
  blue = options.screen == ScreenColour::blue;
  spillStrength = options.difficulty == Difficulty::hard ? 1.7f : 1.0f;
  const float s = bust.scale;
  bounds[bustSkin] = {bust.place + V3{-0.05f, -0.22f, 0} * s, 0.95f * s};
  bounds[bustCloth] = {bust.place + V3{-0.19f, -1.5f, 0} * s, 0.98f * s};
  bounds[neckScarf] = {bust.place + V3{-0.165f, -0.80f, 0} * s, 0.42f * s};
  bounds[plinthA] = {{0.80f, -1.02f, 0}, 0.58f};
  bounds[plinthB] = {{1.17f, -1.05f, 0.30f}, 0.46f};
  bounds[plinthC] = {{1.45f, -0.98f, -0.05f}, 0.60f};
  bounds[pear] = {{1.17f, -0.60f, 0.30f}, 0.26f};
  bounds[stalk] = {{1.19f, -0.40f, 0.30f}, 0.14f};
  bounds[glazedJar] = {{1.45f, -0.30f, -0.05f}, 0.30f};
  bounds[earBead] = {bust.toScene(beadPlace), 0.05f};
}

float Sculpture::distanceTo(int which, V3 p) const {
  switch (which) {
    case bustSkin:
      return headDistance(bust.toHead(p)) * bust.scale;
    case bustCloth:
      return clothDistance((p - bust.place) * (1 / bust.scale)) * bust.scale;
    case neckScarf:
      return scarfDistance((p - bust.place) * (1 / bust.scale)) * bust.scale;
    case plinthA:
      return drum(p, {0.80f, -1.02f, 0}, 0.21f, 0.50f, 0.015f);
    case plinthB:
      return drum(p, {1.17f, -1.15f, 0.30f}, 0.19f, 0.35f, 0.015f);
    case plinthC:
      return drum(p, {1.45f, -1.02f, -0.05f}, 0.20f, 0.53f, 0.015f);
    case pear: {
      const float body = ball(p, {1.17f, -0.675f, 0.30f}, 0.132f);
      return join(body, ball(p, {1.185f, -0.505f, 0.30f}, 0.066f), 0.14f);
    }
    case stalk:
      return rod(p, {1.187f, -0.45f, 0.30f}, {1.222f, -0.365f, 0.31f}, 0.007f, 0.011f);
    case glazedJar: {
      const V3 c = {1.45f, -0.345f, -0.05f};
      float d = ellipsoid(p, c, {0.165f, 0.15f, 0.165f});
      d = join(d, drum(p, c + V3{0, -0.125f, 0}, 0.09f, 0.022f, 0.008f), 0.04f);
      d = join(d, drum(p, c + V3{0, 0.165f, 0}, 0.060f, 0.045f, 0.006f), 0.05f);
      d = join(d, drum(p, c + V3{0, 0.212f, 0}, 0.078f, 0.012f, 0.010f), 0.01f);
      return d;
    }
    default:
      return ball(p, bust.toScene(beadPlace), 0.020f);
  }
}

Sculpture::Field Sculpture::nearest(V3 p, unsigned among) const {
  Field field;
  for (int i = 0; i < things; ++i) {
    if (!(among >> i & 1)) continue;
    // A thing whose bound is farther than the best so far cannot win.
    const V3 q = p - bounds[i].centre;
    const float far = field.distance + bounds[i].radius;
    if (far < 1e8f && dot(q, q) > far * far) continue;
    const float d = distanceTo(i, p);
    if (d < field.distance) field = {d, i};
  }
  return field;
}

float Sculpture::shadow(V3 p, V3 towards, unsigned among) const {
  float lit = 1, t = 0.02f;
  for (int i = 0; i < 22 && t < 0.9f; ++i) {
    const float d = nearest(p + towards * t, among).distance;
    lit = least(lit, 9 * d / t);
    if (lit < 0.01f) return 0;
    t += d < 0.02f ? 0.02f : d > 0.15f ? 0.15f : d;
  }
  return lit * lit * (3 - 2 * lit);
}

Sculpture::Hit Sculpture::look(float x, float y) const {
  unsigned seen = 0;
  float start = -10, end = 10;
  for (int i = 0; i < things; ++i) {
    const float dx = x - bounds[i].centre.x, dy = y - bounds[i].centre.y;
    const float r2 = square(bounds[i].radius) - dx * dx - dy * dy;
    if (r2 <= 0) continue;
    seen |= 1u << i;
    const float half = std::sqrt(r2);
    start = most(start, bounds[i].centre.z + half);
    end = least(end, bounds[i].centre.z - half);
  }
  Hit hit;
  if (!seen) return hit;
  float z = start;
  for (int i = 0; i < 90 && z > end; ++i) {
    const Field field = nearest({x, y, z}, seen);
    if (field.distance < reach) {
      static constexpr Thing names[things] = {
          Thing::skin,   Thing::cloth, Thing::scarf, Thing::plinth, Thing::plinth,
          Thing::plinth, Thing::fruit, Thing::stalk, Thing::jar,    Thing::bead};
      hit.thing = names[field.which];
      hit.depth = z;
      hit.layer = shade(field.which, {x, y, z},
                        (personThings >> field.which & 1) ? personThings : stillThings);
      return hit;
    }
    z -= 0.9f * field.distance;
  }
  return hit;
}

Layer Sculpture::shade(int which, V3 p, unsigned among) const {
  constexpr float e = 0.0025f;
  const auto at = [&](float dx, float dy, float dz) {
    return distanceTo(which, {p.x + dx, p.y + dy, p.z + dz});
  };
  const float a = at(e, -e, -e), b = at(-e, -e, e), c = at(-e, e, -e), d = at(e, e, e);
  V3 n = normal({a - b - c + d, -a - b + c + d, -a + b - c + d});

  // What it is made of: albedo in energy, how light wraps round it, its gloss.
  V3 albedo = {0.4f, 0.4f, 0.4f}, wrap = {0, 0, 0};
  float gloss = 0.03f, sharpness = 20, occlusion = 1, rimScale = 0.35f;
  switch (which) {
    case bustSkin: {
      const V3 q = bust.toHead(p);
      const float side = magnitude(q.z);
      albedo = {0.66f, 0.385f, 0.275f};
      const float mottle = clouds(p.x * 42, p.y * 42, 3) - 0.5f;
      albedo = albedo * (1 + 0.07f * mottle);
      // Blood under cheek, nose and ear.
      const float blush = 0.9f * decay(square(length(q - V3{0.26f, -0.135f, 0.19f}) / 0.10f)) +
                          0.6f * decay(square(length(q - V3{0.47f, -0.15f, 0}) / 0.05f));
      albedo = albedo * V3{1, 1 - 0.22f * least(blush, 1), 1 - 0.20f * least(blush, 1)};
      // The lips end where the line between them turns back into the cheek.
      const float corner = 1 - ramp(0.070f, 0.092f, side);
      const float upper =
          0.258f - 0.012f * ramp(0.0f, 0.03f, side) + 0.022f * ramp(0.03f, 0.09f, side);
      const float mouth = ramp(-upper + 0.012f, -upper - 0.006f, q.y) *
                          ramp(-0.338f, -0.324f, q.y) * corner * ramp(0.30f, 0.33f, q.x);
      albedo = mix(albedo, {0.50f, 0.135f, 0.125f}, 0.85f * mouth);
      const float part =
          decay(square((q.y + 0.2855f + 0.010f * ramp(0.03f, 0.09f, side)) / 0.0045f)) *
          (1 - ramp(0.080f, 0.10f, side)) * ramp(0.28f, 0.31f, q.x);
      albedo = albedo * (1 - 0.70f * part);
      const float nostril =
          decay(square((q.x - 0.412f) / 0.020f) + square((q.y + 0.178f) / 0.010f));
      albedo = albedo * (1 - 0.75f * nostril);
      // Shadow on the lid.
      const float lid = decay(square(length(q - V3{0.31f, 0.040f, 0.135f}) / 0.055f));
      albedo = mix(albedo, {0.40f, 0.20f, 0.155f}, 0.55f * lid);
      // Scalp under the hair.
      const float hair = ramp(0.035f, -0.05f, beforeHairline(q)) * ramp(-0.36f, -0.24f, q.y);
      albedo = mix(albedo, {0.060f, 0.026f, 0.014f}, hair);
      wrap = {0.30f, 0.14f, 0.09f};
      gloss = mix(0.055f + 0.10f * mouth, 0.01f, hair);
      sharpness = 26;
      break;
    }
    case bustCloth: {
      const float weave = noise(p.x * 260, p.y * 260, 9) - 0.5f;
      const V3 q = (p - bust.place) * (1 / bust.scale);
      const float rib = sineOfTurns(q.x * 30 + 0.9f * sineOfTurns(q.x * 0.9f + 0.1f * q.y) +
                                    0.05f * noise(q.x * 9, q.y * 90, 8));
      albedo = (blue ? V3{0.235f, 0.075f, 0.060f} : V3{0.050f, 0.070f, 0.135f}) *
               (1 + 0.25f * weave + 0.30f * rib);
      n = normal(
          n +
          V3{0.16f * cosineOfTurns(q.x * 30 + 0.9f * sineOfTurns(q.x * 0.9f + 0.1f * q.y)), 0, 0});
      wrap = {0.12f, 0.12f, 0.12f};
      gloss = 0.02f;
      sharpness = 6;
      break;
    }
    case neckScarf: {
      const float weave = noise(p.x * 200, p.y * 200, 11) - 0.5f;
      albedo = V3{0.68f, 0.33f, 0.21f} * (1 + 0.10f * weave);
      wrap = {0.25f, 0.18f, 0.15f};
      break;
    }
    case plinthA:
      albedo = {0.48f, 0.48f, 0.48f};
      break;
    case plinthB:
      albedo = {0.18f, 0.18f, 0.18f};
      break;
    case plinthC:
      albedo = {0.70f, 0.70f, 0.69f};
      break;
    case pear: {
      const float speck = ramp(0.72f, 0.92f, noise(p.x * 150 + p.y * 40, p.y * 150 - p.x * 40, 21));
      const float flush = ramp(1.10f, 1.29f, p.x + 0.05f * clouds(p.x * 9, p.y * 9, 23));
      if (blue) {
        albedo = mix(V3{0.24f, 0.13f, 0.52f}, V3{0.34f, 0.10f, 0.40f}, flush);
      } else {
        albedo = mix(V3{0.30f, 0.50f, 0.06f}, V3{0.56f, 0.50f, 0.06f}, flush);
      }
      albedo = mix(albedo, {0.30f, 0.22f, 0.07f}, 0.20f * speck);
      gloss = 0.10f;
      sharpness = 40;
      wrap = {0.14f, 0.14f, 0.08f};
      break;
    }
    case stalk:
      albedo = {0.13f, 0.075f, 0.04f};
      break;
    case glazedJar: {
      const float drip = 0.020f * sineOfTurns(p.x * 3.1f) + 0.012f * sineOfTurns(p.x * 7.3f + 0.2f);
      const float glaze = ramp(-0.425f, -0.41f, p.y + drip);
      const V3 tint = blue ? V3{0.03f, 0.34f, 0.52f} : V3{0.02f, 0.33f, 0.27f};
      albedo = mix(V3{0.36f, 0.25f, 0.17f}, tint, glaze);
      gloss = mix(0.03f, 0.55f, glaze);
      sharpness = mix(12.0f, 90.0f, glaze);
      break;
    }
    default:  // the bead
      albedo = {0.75f, 0.72f, 0.66f};
      gloss = 0.6f;
      sharpness = 60;
  }

  for (int i = 1; i <= 3; ++i) {
    const float step = 0.035f * static_cast<float>(i);
    const float open = nearest(p + n * step, among).distance / step;
    occlusion *= mix(1.0f, clamp01(open), 0.42f);
  }
  const V3 eye = {0, 0, 1};
  const float facing = clamp01(n.z);
  const float fresnel = square(square(1 - facing));
  const auto lambert = [&](V3 l, V3 w) {
    const float cosine = dot(n, l);
    return V3{clamp01((cosine + w.x) / (1 + w.x)), clamp01((cosine + w.y) / (1 + w.y)),
              clamp01((cosine + w.z) / (1 + w.z))};
  };
  const float keyCosine = dot(n, keyDirection);
  const float keyLit = keyCosine > -0.3f ? shadow(p + n * 0.012f, keyDirection, among) : 0;
  // Light that has entered skin leaves it red at the edge of a shadow.
  const V3 keyShadow = which == bustSkin ? V3{mix(keyLit, std::sqrt(keyLit), 0.5f), keyLit,
                                              keyLit * (0.9f + 0.1f * keyLit)}
                                         : V3{keyLit, keyLit, keyLit};
  const float rimLit = ramp(0.0f, 0.5f, dot(n, rimDirection)) * (0.25f + 0.75f * occlusion);
  const float leftLit = ramp(0.0f, 0.6f, dot(n, leftRimDirection)) * occlusion;
  V3 in = keyEnergy * lambert(keyDirection, wrap) * keyShadow;
  in = in + skyEnergy * ((0.62f + 0.38f * n.y) * occlusion);
  in = in + V3{0.10f, 0.07f, 0.05f} * (clamp01(-n.y) * occlusion);  // from the floor
  in = in + leftRimEnergy * (0.9f * leftLit);
  V3 out = albedo * in;
  const float shine = gloss * (0.35f + 0.65f * fresnel);
  const V3 half = normal(keyDirection + eye);
  out = out + keyEnergy * (keyLit * shine * 2.2f *
                           power(clamp01(dot(n, half)), static_cast<double>(sharpness)));
  // A soft box reflected in glazes.
  const V3 mirrored = n * (2 * n.z) - eye;
  const float box = ramp(0.30f, 0.36f, mirrored.y) * ramp(0.80f, 0.74f, mirrored.y) *
                    ramp(-0.72f, -0.66f, mirrored.x) * ramp(-0.28f, -0.34f, mirrored.x);
  out = out + skyEnergy * (gloss * (0.25f + fresnel) * (0.5f + 0.5f * mirrored.y) * occlusion +
                           2.2f * gloss * gloss * box);
  out = out + rimEnergy * (rimLit * rimScale * (0.25f + 0.75f * fresnel) *
                           (albedo.x + albedo.y + albedo.z + 0.25f) * 0.6f);

  Layer layer;
  layer.matte = 1;
  layer.colour = exposed(out);
  // The screen glows from behind: it grazes the edges and fills what turns away from the lamps.
  const float back =
      spillStrength * (0.018f + 0.16f * square(1 - facing)) * (0.35f + 0.65f * occlusion);
  const V3 grey = V3{0.25f, 0.25f, 0.25f} + albedo * 0.6f;
  layer.spill = screenTint * grey * back;
  return layer;
}

}  // namespace orvanite::plate
