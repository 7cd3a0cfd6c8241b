// SPDX-License-Identifier: BSD-3-Clause
//
// The light that the scene is made of, and its two measures.
//
// energy  what lamps give and surfaces reflect: shading is done in it
// light   energy raised to 0.6, the tone of the pictures. Matte, spill and screen are mixed in
//         light, and light is what an OpenEXR file holds.
// code    the video encoding of light: the BT.709 transfer function of light raised to 5/3, so of
//         energy. This is how the engine reads "video", and a screen shows energy as it was shaded.
#pragma once

#include "examples/plate/Arithmetic.h"

namespace orvanite::plate {

/// Light (1.0 is white) to a video code in 0..1 for light in 0..1.
inline float encodeVideo(float light) {
  // 0.0898: the light whose energy is the function's knee, 0.018; 0.75 is 5/3 x 0.45.
  return light < 0.0898007f ? 4.5f * power(light, 5.0 / 3) : 1.099f * power(light, 0.75) - 0.099f;
}
inline float energyOfCode(float code) {
  return code <= 0.081f ? code / 4.5f : power((code + 0.099f) / 1.099f, 1 / 0.45);
}
inline V3 energyOfCode(V3 code) {
  return {energyOfCode(code.x), energyOfCode(code.y), energyOfCode(code.z)};
}
inline V3 lightOfEnergy(V3 e) { return {power(e.x, 0.6), power(e.y, 0.6), power(e.z, 0.6)}; }
inline V3 lightOfCode(V3 code) { return lightOfEnergy(energyOfCode(code)); }
/// Energy of any brightness to light below 1: straight in the shadows, rolled off above.
inline V3 exposed(V3 e) {
  const auto roll = [](float v) {
    return v < 0.35f ? v : 0.35f + 0.65f * (1 - decay((v - 0.35f) / 0.65f));
  };
  return lightOfEnergy({roll(e.x), roll(e.y), roll(e.z)});
}

// The lamps: a warm key from the front right, a warm rim from behind, a cool sky.
inline const V3 keyDirection = normal({0.62f, 0.46f, 0.64f});
inline const V3 rimDirection = normal({0.55f, 0.40f, -0.62f});
inline const V3 leftRimDirection = normal({-0.80f, 0.35f, -0.30f});
inline const V3 keyEnergy = {1.30f, 1.12f, 0.92f};
inline const V3 rimEnergy = {1.10f, 0.80f, 0.50f};
inline const V3 leftRimEnergy = {0.40f, 0.50f, 0.66f};
inline const V3 skyEnergy = {0.22f, 0.25f, 0.31f};

/// What one layer gives at one place: colours multiplied by the matte.
struct Layer {
  V3 colour;  ///< light of the thing itself
  V3 spill;   ///< light of the screen that the thing throws back
  float matte = 0;
};
inline void putOver(Layer& below, const Layer& above) {
  const float through = 1 - above.matte;
  below.colour = below.colour * through + above.colour;
  below.spill = below.spill * through + above.spill;
  below.matte = below.matte * through + above.matte;
}

}  // namespace orvanite::plate
