// SPDX-License-Identifier: BSD-3-Clause
//
// Screen, studio and landscape.
#include "examples/plate/Backdrop.h"

namespace orvanite::plate {

namespace {

// The screen's right border, slightly slack.
float border(float y) { return 1.715f + 0.012f * y + 0.006f * sineOfTurns(0.8f * y + 0.1f); }

V3 studioAt(float x, float y, float pixel) {
  V3 code = mix(V3{0.20f, 0.20f, 0.21f}, V3{0.31f, 0.30f, 0.29f}, ramp(-1, 1, y));
  const float stand = 1.752f - 0.006f * y;
  const float pole = clamp01((0.010f - magnitude(x - stand)) / pixel + 0.5f);
  const float shine = decay(square((x - stand + 0.003f) / 0.003f));
  return mix(code, V3{0.07f, 0.07f, 0.075f} + V3{0.5f, 0.5f, 0.5f} * shine, pole);
}

}  // namespace

V3 screenCode(ScreenColour screen) {
  return screen == ScreenColour::green ? V3{0.165f, 0.640f, 0.225f} : V3{0.120f, 0.260f, 0.700f};
}

V3 screenAt(const Options& options, float x, float y, float pixel) {
  static const V3 even[2] = {lightOfCode(screenCode(ScreenColour::green)),
                             lightOfCode(screenCode(ScreenColour::blue))};
  const V3 base = even[options.screen == ScreenColour::blue ? 1 : 0];
  if (options.difficulty == Difficulty::clean) return base;
  const bool hard = options.difficulty == Difficulty::hard;
  // Two lamps, one nearer than the other, and the floor's fall-off.
  const float left = decay(square((x + 0.95f) / 1.5f) + square((y - 0.45f) / 1.3f));
  const float right = decay(square((x - 1.25f) / 1.3f) + square((y - 0.15f) / 1.4f));
  const float lamps = 0.85f + 0.17f * left + 0.13f * right;
  float light = mix(1.0f, lamps, hard ? 2.6f : 1.0f);
  // Cloth: long soft creases.
  const float bend = x + 0.05f * sineOfTurns(0.3f * y) + 0.04f * noise(x * 2, y * 1.5f, 61);
  const float crease =
      noise(bend * 7, y * 0.45f, 62) + 0.6f * noise(bend * 17, y * 0.8f, 63) - 0.8f;
  light *= 1 + (hard ? 0.16f : 0.025f) * crease;
  light *= 1 + 0.02f * (clouds(x * 30, y * 30, 64) - 0.5f);
  light = most(light, 0.12f);
  // The stronger lamp is a little warmer, and the colour pales where it is bright.
  V3 cloth = base * light + V3{0.020f, 0.016f, 0.002f} * (left - 0.4f);
  cloth = {most(cloth.x, 0.01f), most(cloth.y, 0.01f), most(cloth.z, 0.01f)};
  const float inside = clamp01((border(y) - x) / pixel + 0.5f);
  const float hem = decay(square((x - border(y) + 0.008f) / 0.006f));
  cloth = cloth * (1 - 0.35f * hem);
  return inside < 1 ? mix(lightOfCode(studioAt(x, y, pixel)), cloth, inside) : cloth;
}

float garbageAt(float x) { return ramp(1.673f, 1.684f, x); }

V3 landscapeAt(const Options& options, float x, float y) {
  const float drift = 0.0006f * static_cast<float>(options.frame - 1);
  const float sunX = 0.86f, sunY = 0.16f;
  const float water = -0.42f;
  const bool mirrored = y < water;
  const float ripple = mirrored
                           ? 0.012f * (noise(x * 5, (y - water) * 90 + drift * 160, 81) - 0.5f) *
                                 (1 + 3 * (water - y))
                           : 0;
  const float height = mirrored ? 2 * water - y : y;
  const float px = x + ripple * 2;
  const float h = height + ripple;
  // Sky, in video codes from the horizon upwards.
  V3 sky = mix(V3{0.98f, 0.70f, 0.42f}, V3{0.90f, 0.52f, 0.42f}, ramp(-0.15f, 0.22f, h));
  sky = mix(sky, {0.58f, 0.42f, 0.52f}, ramp(0.10f, 0.60f, h));
  sky = mix(sky, {0.22f, 0.27f, 0.45f}, ramp(0.40f, 1.15f, h));
  const float distance2 = square(px - sunX) + square((h - sunY) * 1.1f);
  const float cloud = ramp(0.46f, 0.72f, clouds(px * 1.3f + 7 + drift, h * 5.2f + 0.5f * px, 91)) *
                      ramp(0.02f, 0.3f, h);
  const V3 lit = mix(V3{0.55f, 0.38f, 0.48f}, V3{1.0f, 0.76f, 0.52f}, decay(distance2 * 1.3f));
  sky = mix(sky, lit, 0.75f * cloud);
  sky = sky + V3{0.30f, 0.20f, 0.08f} * decay(distance2 * 5) +
        V3{0.5f, 0.42f, 0.25f} * decay(distance2 * 90);
  V3 code = sky;
  for (int i = 0; i < 4; ++i) {
    const auto n = static_cast<float>(i);
    if (h > 0.32f - 0.14f * n) break;  // above this ridge and all nearer ones
    const float frequency = 1.1f + 0.55f * n;
    const float ridge = 0.10f - 0.135f * n +
                        (0.34f - 0.055f * n) * (clouds(px * frequency + 11 * n + 3, 2.5f * n,
                                                       static_cast<std::uint32_t>(100 + i)) -
                                                0.42f) +
                        0.010f * n * (noise(px * 60, n, 120) - 0.5f);
    const float solid = ramp(0.004f, -0.004f, h - ridge);
    const float shoulder = 0.10f - 0.135f * n + 0.03f * (noise(px * 1.2f, n, 121) - 0.5f);
    V3 tone = mix(V3{0.62f, 0.42f, 0.46f}, V3{0.10f, 0.115f, 0.17f}, n / 3);
    tone = tone + V3{0.28f, 0.13f, 0.02f} * (decay(square(px - sunX) * 1.6f) * (1 - 0.28f * n));
    const float mist = ramp(0.02f, -0.24f, h - shoulder) * (0.55f - 0.13f * n);
    tone =
        mix(tone, mix(V3{0.70f, 0.52f, 0.50f}, V3{0.95f, 0.66f, 0.44f}, decay(square(px - sunX))),
            mist);
    code = mix(code, tone, solid);
  }
  if (mirrored) {
    code = code * 0.86f + V3{0.02f, 0.015f, 0.03f};
    const float glitter = decay(square((px - sunX) / (0.16f + 0.5f * (water - y)))) *
                          ramp(0.42f, 0.80f, noise(x * 9, y * 120 + drift * 300, 82));
    code = code + V3{0.42f, 0.26f, 0.12f} * glitter;
    code = mix(code, {0.07f, 0.09f, 0.14f}, 0.40f * ramp(0.1f, 0.7f, water - y));
  }
  // Mist lies on the shore.
  code = mix(code, {0.86f, 0.63f, 0.52f},
             0.45f * decay(square((y - water - 0.01f) / (mirrored ? 0.012f : 0.05f))));
  return lightOfCode({clamp01(code.x), clamp01(code.y), clamp01(code.z)});
}

}  // namespace orvanite::plate
