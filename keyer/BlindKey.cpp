// SPDX-License-Identifier: BSD-3-Clause
#include "keyer/BlindKey.h"

#include <algorithm>
#include <cmath>
#include <string_view>

#include "base/Error.h"
#include "keyer/Chroma.h"
#include "keyer/CleanPlate.h"
#include "keyer/KeyMattes.h"
#include "keyer/KeyRegions.h"

namespace orvanite {
namespace {

// What a frame's sure screen may lie off the clean plate of the frames before: beyond it the camera
// has moved or the light has changed.
constexpr float sameScreen = 0.03f;

/// The clip that the engine makes of a screen range, in the encoding that is keyed in.
float clipOfRange(const BlindKey& key, float range) {
  const auto p = static_cast<std::size_t>(key.screen.primary);
  const auto m = static_cast<std::size_t>(key.screen.middle);
  // The engine shifts what it is given as the screen colour: light where it is handed light.
  const bool shiftsLight = key.mixing == Mixing::light;
  const auto value = [&](float v) { return shiftsLight ? v : valueOf(v, key.mixing); };
  float shifted = 0, own = 0;
  for (std::size_t c = 0; c < 3; ++c) {
    const float weight = c == p ? 1.0f : c == m ? -key.numbers.balance : key.numbers.balance - 1;
    const float colour = shiftsLight ? lightOfCode(key.screen.colour[c]) : key.screen.colour[c];
    const float moved = std::clamp(colour + (c == p ? -0.577f : 0.577f) * range, 0.0f, 1.0f);
    own += weight * value(colour);
    shifted += (weight + (c == p ? key.numbers.gain : 0.0f)) * value(moved);
  }
  return own > 0 ? std::clamp(1 - shifted / own, 0.0f, 0.5f) : 0.0f;
}

float rangeOfClip(const BlindKey& key) {
  float low = 0, high = 1;
  for (int round = 0; round < 24; ++round) {
    const float middle = 0.5f * (low + high);
    (clipOfRange(key, middle) < key.numbers.clip ? low : high) = middle;
  }
  return 0.5f * (low + high);
}

void makeMattes(BlindKey& key, const Look& look, const KeyRegions& regions) {
  key.garbage = key.wishes.garbage ? garbageMatte(look, key.plate, regions) : Plane();
  key.holdOut = key.wishes.holdOut && !key.clear ? holdOutMatte(look, key.plate, regions) : Plane();
}

/// Halfway from a colour to grey of its light: what the hold-out matte puts back where it keeps a
/// subject that has the screen's hue, by its own colour or by spill; nobody can tell which.
Rgb greyer(Rgb colour) {
  const float grey = 0.299f * colour[0] + 0.587f * colour[1] + 0.114f * colour[2];
  for (float& v : colour) v = 0.5f * (v + grey);
  return colour;
}

/// The engine orders the channels by the screen's colour that it is given.
void keepOrder(ScreenHue& screen, const Settings& given) {
  Rgb colour{};
  for (std::size_t c = 0; c < 3; ++c) {
    colour[c] = given.number("screen", static_cast<int>(c));
  }
  const ScreenHue order = hueOfColour(colour);
  screen.primary = order.primary;
  screen.middle = order.middle;
  screen.weakest = order.weakest;
}

Encoding encodingOf(const Settings& settings) {
  return settings.choice("colourspace") == "linear" ? Encoding::light : Encoding::codes;
}

constexpr std::string_view mixingNames[] = {"codes", "video", "light", "log"};

std::string_view nameOf(Mixing mixing) { return mixingNames[static_cast<std::size_t>(mixing)]; }

Mixing fixedMixing(const Settings& settings, Encoding encoding) {
  if (encoding == Encoding::light) return Mixing::light;
  const std::string_view space = settings.choice("colourspace");
  return space == "log" ? Mixing::log : space == "video" ? Mixing::video : Mixing::codes;
}

}  // namespace

std::optional<Mixing> mixingOf(const Settings& settings) {
  const std::string_view text = settings.choice("estimate");
  for (const Mixing mixing : {Mixing::codes, Mixing::video, Mixing::light, Mixing::log}) {
    if (text == nameOf(mixing)) return mixing;
  }
  return std::nullopt;
}

bool keysBesideEstimates(const Settings& settings, const Inputs& inputs) {
  return mixingOf(settings) && settings.toggle("useReference") && !inputs.reference;
}

bool findsEstimates(const Settings& settings, const Inputs& inputs) {
  if (settings.given("estimate")) return keysBesideEstimates(settings, inputs);
  return settings.toggle("useReference") && !inputs.reference;
}

BlindKey findKey(const Plate& plate, const Settings& given, const KeyWishes& wishes,
                 const RowLoop& rows) {
  const Recycling recycling;
  BlindKey key;
  key.settings = given;
  key.wishes = wishes;
  key.width = plate.width;
  key.height = plate.height;
  key.encoding = encodingOf(given);
  Look look = lookAt(plate, key.encoding, rows);
  key.screen = screenHue(look);
  if (key.screen.confidence < leastConfidence) {
    throw Error(Fault::failure, "auto", "expected a screen of one colour in the plate, found none");
  }
  if (given.given("screen")) keepOrder(key.screen, given);
  key.plate = rigidPlate(look, key.screen);
  estimateClean(key.plate, look, key.screen);
  if (wishes.lead) key.lead = chromaLead(plate, look, key.plate.sure);
  const KeyRegions regions = keyRegions(look, key.screen, key.plate);
  key.vote = mixingOf(look, key.plate, regions);
  key.mixing = fixedMixing(given, key.encoding);
  if (const auto asked = mixingOf(given)) {
    key.mixing = *asked;
  } else if (wishes.mixing && key.mixing == Mixing::video) {
    key.mixing = key.vote.mixing;
  }
  key.clear = isClear(look, key.plate, regions);
  makeMattes(key, look, regions);
  key.numbers = key.clear ? clearNumbers
                          : fitKey(look, key.screen, key.plate, regions, key.holdOut, key.mixing);

  Settings& to = key.settings;
  const bool inLight = key.encoding == Encoding::light;
  const auto putColour = [&](const char* name, Rgb colour) {
    if (given.given(name)) return;
    if (inLight) {
      for (float& v : colour) v = lightOfCode(v);
    }
    to.setNumbers(name, static_cast<double>(colour[0]), static_cast<double>(colour[1]),
                  static_cast<double>(colour[2]));
  };
  const auto put = [&](const char* name, float value) {
    if (!given.given(name)) to.setNumber(name, static_cast<double>(value));
  };
  to.setText("estimate", nameOf(key.mixing));
  putColour("screen", key.screen.colour);
  put("screenRange", rangeOfClip(key));
  for (const char* name : {"shadowBalance", "midtoneBalance", "highlightBalance"}) {
    put(name, key.numbers.balance);
  }
  for (const char* name : {"shadowGain", "midtoneGain", "highlightGain"}) {
    put(name, key.numbers.gain);
  }
  putColour("replace", greyer(key.screen.colour));
  put("refine", 1);
  for (const Parameter& parameter : parameters()) {
    if (to.text(parameter.name) == given.text(parameter.name) &&
        to.given(parameter.name) == given.given(parameter.name)) {
      continue;
    }
    key.set.emplace_back(parameter.name);
  }
  return key;
}

void BlindKey::writeCleanPlate(const OtileImage& picture, Depth depth) const {
  writeStretched(plate.clean, encoding, width, height, picture, depth);
}

void BlindKey::writeMatte(const Plane& matte, const OtileImage& picture, Depth depth) const {
  const Plane& shown = matte.size() > 0 ? matte : Plane(1, 1);
  writeStretched({shown, shown, shown}, Encoding::codes, width, height, picture, depth);
}

bool BlindKey::see(const Plate& frame, const RowLoop& rows) {
  const Recycling recycling;
  Look look = lookAt(frame, encoding, rows);
  if (!steady || frame.width != width || frame.height != height) return steady = false;
  ScreenPlate seen = rigidPlate(look, screen);
  if (distanceOf(seen.sure, look, plate.clean) > sameScreen) return steady = false;
  takeIn(plate, seen.sure, look);
  estimateClean(plate, look, screen);
  return true;
}

bool BlindKey::suits(const Settings& given) const {
  if (encoding != encodingOf(given)) return false;
  if (!given.given("screen")) return std::find(set.begin(), set.end(), "screen") != set.end();
  ScreenHue order;
  keepOrder(order, given);
  return order.primary == screen.primary && order.middle == screen.middle;
}

BlindKey BlindKey::carriedTo(const Plate& frame, const RowLoop& rows) const {
  const Recycling recycling;
  BlindKey key;
  key.screen = screen;
  key.settings = settings;
  key.set = set;
  key.mixing = mixing;
  key.vote = vote;
  key.numbers = numbers;
  key.clear = clear;
  key.lead = lead;
  key.encoding = encoding;
  key.wishes = wishes;
  key.width = frame.width;
  key.height = frame.height;
  Look look = lookAt(frame, encoding, rows);
  ScreenPlate own = rigidPlate(look, screen);
  key.steady = steady && frame.width == width && frame.height == height &&
               distanceOf(own.sure, look, plate.clean) <= sameScreen;
  if (key.steady) {
    key.plate = plate;
    key.plate.sure = own.sure;
  } else {
    key.plate = own;
    estimateClean(key.plate, look, screen);
  }
  makeMattes(key, look, keyRegions(look, screen, key.plate));
  return key;
}

}  // namespace orvanite
