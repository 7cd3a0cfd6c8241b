// SPDX-License-Identifier: BSD-3-Clause
//
// How a key's pixels mix, and which balance, gain and range suit them: judged without knowing the
// truth, on pixels whose matte is known all the same.
#pragma once

#include <vector>

#include "keyer/KeyRegions.h"

namespace orvanite {

/// What mixes at the subject's edges.
enum class Mixing {
  codes,  // the codes themselves, as a compositor that knows no light mixes
  video,  // between the two, as the engine's video encoding takes it; for what nobody can tell
  light,  // light, as lenses and motion do
  log     // light that the plate holds as densities
};

/// A code as the value that mixes.
float valueOf(float code, Mixing mixing);

/// What the edges say about mixing.
struct MixingVote {
  Mixing mixing = Mixing::video;  // video, which lies between, where nothing is sure
  float slope = 0;                // 0 codes, 1 light
  float spread = 0;               // how far the two would lie apart, in codes
  int samples = 0;
};
MixingVote mixingOf(const Look& look, const ScreenPlate& plate, const KeyRegions& regions);

/// The key's numbers: the same for all three bands.
struct KeyNumbers {
  float balance = 0.5f;
  float gain = 0;
  float clip = 0;  // how much of the matte's ends becomes 0 and 1
};

/// Those for a subject that shows the screen nearly everywhere: as little as can be is asked of
/// what would be its solid parts.
inline constexpr KeyNumbers clearNumbers{.balance = 0.5f, .gain = 0, .clip = 0.01f};

/// What a key of these numbers makes of one pixel.
struct KeyedPixel {
  float matte = 0;
  Rgb colour{};  // unmultiplied
};
float keyShare(const Rgb& pixel, const Rgb& screen, const ScreenHue& hue, KeyNumbers numbers);
KeyedPixel keyPixel(const Rgb& pixel, const Rgb& screen, const ScreenHue& hue, KeyNumbers numbers);

/// A pixel whose matte is known; values that mix, not codes.
struct TrialPixel {
  Rgb colour{}, screen{}, subject{};
  float matte = 0;
};

/// The numbers that do best on pixels whose matte is known.
KeyNumbers fitKey(const Look& look, const ScreenHue& hue, const ScreenPlate& plate,
                  const KeyRegions& regions, const Plane& held, Mixing mixing);

}  // namespace orvanite
