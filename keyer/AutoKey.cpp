// SPDX-License-Identifier: BSD-3-Clause
//
// Two sets of the plate's pixels are sure: those that are screen and those that are not. Mixed in
// light they also make edges whose matte is known. Keyed beside the screen's local colour they say
// how much of the matte's ends to clip; that is all that such a key has to be told. A key without a
// clean plate is then made to come as close to that one as its parameters allow.
#include "keyer/AutoKey.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>
#include <utility>

#include "base/Error.h"
#include "engine/colour/Encoding.h"
#include "keyer/CleanPlate.h"
#include "keyer/KeyTrial.h"
#include "keyer/ScreenHue.h"

namespace orvanite {
namespace {

// A screen whose light varies less than this is keyed with one colour.
constexpr float evenEnough = 0.97f;

/// What the search moves. `fraction` says which of the screen's pixels gives the screen colour: 0
/// the darkest, 1 the brightest.
struct Knob {
  std::string_view name;
  float low, high, step, start;
};
constexpr std::string_view fraction = "fraction";
constexpr float farthestRange = 0.25f;  // beyond it half of every soft edge is gone
constexpr Knob rangeKnob = {"screenRange", 0, farthestRange, 0.02f, 0};
// Gains below -0.5 leave the screen's colour in the edges, which the matte's error does not show.
constexpr std::array<Knob, 9> flatKnobs = {{{fraction, 0, 1, 0.1f, 0.5f},
                                            rangeKnob,
                                            {"shadowBalance", 0, 1, 0.16f, 0},
                                            {"midtoneBalance", 0, 1, 0.16f, 0},
                                            {"highlightBalance", 0, 1, 0.16f, 0},
                                            {"shadowGain", -0.5f, 1, 0.08f, 0},
                                            {"midtoneGain", -0.5f, 1, 0.08f, 0},
                                            {"highlightGain", -0.5f, 1, 0.08f, 0},
                                            {"midTonesAt", 0, 0.95f, 0.1f, 0.5f}}};

void setColour(Settings& settings, std::string_view name, const Rgb& c) {
  settings.setNumbers(name, std::min(c[0], 64.0f), std::min(c[1], 64.0f), std::min(c[2], 64.0f));
}

/// The tint of what looks neutral in the subject; white where nothing does. Greys that lean to the
/// screen carry its spill and say nothing about the light.
Rgb greyTint(const Screen& screen) {
  constexpr float nearGrey = 0.12f;  // spread of the channels over the largest
  constexpr float dark = 0.15f;
  constexpr float leastShare = 0.03f;
  std::array<double, 3> sum{};
  std::size_t count = 0;
  for (const Pixel& pixel : screen.foregroundPixels) {
    const Rgb& p = pixel.colour;
    const auto [low, high] = std::minmax({p[0], p[1], p[2]});
    const bool spilt = p[static_cast<std::size_t>(screen.primary)] == high;
    if (high < dark || high - low > nearGrey * high || spilt) continue;
    for (std::size_t c = 0; c < 3; ++c) sum[c] += static_cast<double>(p[c] / high);
    ++count;
  }
  if (static_cast<float>(count) < leastShare * static_cast<float>(screen.foregroundPixels.size()) ||
      count == 0) {
    return {1, 1, 1};
  }
  const double most = *std::max_element(sum.begin(), sum.end());
  return {static_cast<float>(sum[0] / most), static_cast<float>(sum[1] / most),
          static_cast<float>(sum[2] / most)};
}

Rgb meanOf(const std::vector<Pixel>& pixels) {
  std::array<double, 3> sum{};
  for (const Pixel& p : pixels) {
    for (std::size_t c = 0; c < 3; ++c) sum[c] += static_cast<double>(p.colour[c]);
  }
  const double count = static_cast<double>(std::max<std::size_t>(1, pixels.size()));
  return {static_cast<float>(sum[0] / count), static_cast<float>(sum[1] / count),
          static_cast<float>(sum[2] / count)};
}

/// The same plate gives the same key: chance from a fixed seed.
struct Chance {
  std::uint32_t state = 1;
  std::uint32_t next() {
    state = state * 1664525U + 1013904223U;
    return state >> 8;
  }
  float signedShare() { return static_cast<float>(next()) / 8388608.0f - 1; }
};

/// Steps every knob that was not given up and down, and several at a time, ever finer, for as long
/// as the error falls.
class Search {
 public:
  Search(const Settings& given, const Screen& screen, KeyTrial& trial)
      : given_(given), screen_(screen), trial_(trial) {}

  Settings best(Settings settings, const std::vector<Knob>& all) {
    std::vector<Knob> knobs;
    std::vector<float> values;
    for (const Knob& knob : all) {
      if (given_.given(knob.name == fraction ? "screen" : knob.name)) continue;
      knobs.push_back(knob);
      values.push_back(knob.name == fraction ? knob.start : settings.number(knob.name));
    }
    float error = trial_.error(settings);
    const auto keepBetter = [&](const Settings& next, const std::vector<float>& turned) {
      // Less than a thousandth better is chance.
      const float found = trial_.error(next);
      if (found >= 0.999f * error) return;
      error = found;
      values = turned;
      settings = next;
    };
    const auto turnedTo = [](const Knob& knob, float value) {
      return std::clamp(value, knob.low, knob.high);
    };
    for (float scale = 1; scale > 0.05f;) {
      const float before = error;
      for (std::size_t i = 0; i < knobs.size(); ++i) {
        for (const float sign : {1.0f, -1.0f}) {
          Settings next = settings;
          std::vector<float> turned = values;
          turned[i] = turnedTo(knobs[i], values[i] + sign * scale * knobs[i].step);
          turn(next, knobs[i], turned[i]);
          keepBetter(next, turned);
        }
      }
      // Knobs turned together find what no one of them finds: balances and gains pull at one edge.
      Chance chance;
      for (int trial = 0; trial < jointTrials && knobs.size() > 1; ++trial) {
        Settings next = settings;
        std::vector<float> turned = values;
        for (std::size_t i = 0; i < knobs.size(); ++i) {
          turned[i] = turnedTo(knobs[i], values[i] + chance.signedShare() * scale * knobs[i].step);
          turn(next, knobs[i], turned[i]);
        }
        keepBetter(next, turned);
      }
      if (error == before) scale /= 2;
    }
    return settings;
  }

 private:
  static constexpr int jointTrials = 240;  // at each scale

  void turn(Settings& settings, const Knob& knob, float value) const {
    if (knob.name == fraction) {
      setColour(settings, "screen", screen_.colourAtFraction(value));
    } else {
      settings.setNumber(knob.name, static_cast<double>(value));
    }
  }

  const Settings& given_;
  const Screen& screen_;
  KeyTrial& trial_;
};

float light(const Rgb& c) { return c[0] + c[1] + c[2]; }

/// The screen's own colour where a pixel surely shows it: the clean plate's, or in a shade that the
/// clean plate leaves out the pixel's.
Rgb screenAt(const CleanPlate& clean, const Pixel& screen) {
  constexpr float shade = 0.8f;
  const Rgb estimate = clean.at(screen.x, screen.y);
  return light(screen.colour) < shade * light(estimate) ? screen.colour : estimate;
}

/// Whether a pixel is screen in the shade: it lies in an even patch of the screen's hue, and a
/// subject's edges are not even.
bool inShade(const Plate& plate, const ScreenHue& hue, const Pixel& pixel) {
  constexpr float even = 0.15f;  // of the pixel's light
  const auto likeScreen = [&hue](const Rgb& c) {
    const HueOffset off = offsetOf(hue, hueOf(c[0], c[1], c[2]));
    return std::hypot(off.fuller, off.beside) < hueReach(hue) || isDarkScreen(hue, c);
  };
  if (!likeScreen(pixel.colour)) return false;
  const int away = std::max(2, std::max(plate.width, plate.height) / 200);
  for (const auto& [dx, dy] :
       {std::array{-1, 0}, std::array{1, 0}, std::array{0, -1}, std::array{0, 1}}) {
    const int x = pixel.x + dx * away;
    const int y = pixel.y + dy * away;
    if (x < 0 || y < 0 || x >= plate.width || y >= plate.height) continue;
    const Rgb beside = colourAt(plate, x, y);
    const float off = std::abs(light(beside) - light(pixel.colour));
    if (!likeScreen(beside) || off > even * light(pixel.colour)) return false;
  }
  return true;
}

/// Sure screen and sure foreground, as often as the plate has them, and mixes of the two.
/// `mixShare` is what edges weigh against all that is sure: more than they fill, for they are
/// looked at most.
std::vector<KnownPixel> surePixels(const Screen& screen, const CleanPlate& clean, int colourspace,
                                   float mixShare) {
  constexpr std::uint32_t count = 1500;  // of each kind
  const auto& back = screen.screenPixels;
  const auto& front = screen.foregroundPixels;
  const auto sure = static_cast<float>(back.size() + front.size());
  std::vector<KnownPixel> known;
  for (std::size_t i = 0; i < count; ++i) {
    const Pixel& b = back[i * back.size() / count];
    known.push_back(
        {b.colour, screenAt(clean, b), 0, static_cast<float>(back.size()) / sure / count});
  }
  if (front.empty()) return known;
  Chance chance;
  const auto pick = [&chance](const std::vector<Pixel>& from) -> const Pixel& {
    return from[chance.next() % from.size()];
  };
  for (std::size_t i = 0; i < count; ++i) {
    const Pixel& f = front[i * front.size() / count];
    known.push_back(
        {f.colour, clean.at(f.x, f.y), 1, static_cast<float>(front.size()) / sure / count});
  }
  for (std::size_t i = 0; i < count; ++i) {
    const float matte = (static_cast<float>(i) + 0.5f) / count;
    const Pixel& b = pick(back);
    const Pixel& f = pick(front);
    Rgb mixed{};
    for (std::size_t c = 0; c < 3; ++c) {  // light mixes, codes do not
      mixed[c] = fromLinear(matte * toLinear(f.colour[c], colourspace) +
                                (1 - matte) * toLinear(b.colour[c], colourspace),
                            colourspace);
    }
    known.push_back({mixed, screenAt(clean, b), matte, mixShare / count});
  }
  return known;
}

Rgb scaled(Rgb c, float scale) {
  for (float& v : c) v *= scale;
  return c;
}

std::vector<KnownPixel> scaled(std::vector<KnownPixel> pixels, float scale) {
  for (KnownPixel& p : pixels) {
    p.colour = scaled(p.colour, scale);
    p.screen = scaled(p.screen, scale);
  }
  return pixels;
}

/// Pixels of the plate with the mattes that a key beside the screen's local colour gives them, or 0
/// in its shade; the soft ones weigh half of all.
std::vector<KnownPixel> keyedPixels(const Plate& plate, const ScreenHue& hue,
                                    const CleanPlate& clean, const Settings& settings,
                                    float scale) {
  const std::vector<Pixel> samples = sampleGrid(plate, 20000);
  std::vector<KnownPixel> seen;
  seen.reserve(samples.size());
  for (const Pixel& p : samples) {
    seen.push_back({p.colour, clean.at(p.x, p.y), 0, 1});
  }
  KeyTrial trial(scaled(seen, scale), true);
  trial.error(settings);
  std::array<std::vector<KnownPixel>, 2> kinds;  // hard, soft
  for (std::size_t i = 0; i < seen.size(); ++i) {
    seen[i].matte = inShade(plate, hue, samples[i]) ? 0 : trial.matteOf(i);
    kinds[seen[i].matte > 0.03f && seen[i].matte < 0.97f ? 1 : 0].push_back(seen[i]);
  }
  constexpr std::array<float, 2> shares = {0.5f, 0.5f};
  constexpr std::size_t most = 4000;  // of either
  std::vector<KnownPixel> known;
  for (std::size_t kind = 0; kind < 2; ++kind) {
    const auto& all = kinds[kind];
    const std::size_t count = std::min(most, all.size());
    for (std::size_t i = 0; i < count; ++i) {
      known.push_back(all[i * all.size() / count]);
      known.back().weight = shares[kind] / static_cast<float>(count);
    }
  }
  return known;
}

}  // namespace

AutoKey autoKey(const Plate& plate, Settings& settings, CleanPlateUse use) {
  AutoKey result;
  result.screen = findScreen(plate);
  const Screen& screen = result.screen;
  if (!screen.found) {
    throw Error(Fault::failure, "auto", "expected a screen of one colour in the plate, found none");
  }
  result.cleanPlate = use == CleanPlateUse::always ||
                      (use == CleanPlateUse::whenUneven && plate.depth != Depth::floats &&
                       screen.evenness < evenEnough);
  const auto put = [&](Settings& to, std::string_view name, auto value) {
    if (settings.given(name)) return;
    if constexpr (std::is_same_v<decltype(value), Rgb>) {
      setColour(to, name, value);
    } else {
      to.setNumber(name, static_cast<double>(value));
    }
  };
  Settings next = settings;
  put(next, "screen", screen.colour);
  // A blue screen shines green as well, skin and hair do not lean from green to blue: so all on
  // green. Beside a green screen's green neither of the others is much.
  const double balance = screen.primary == 2 ? 1 : 0.5;
  for (const char* name : {"shadowBalance", "midtoneBalance", "highlightBalance"}) {
    put(next, name, balance);
  }
  put(next, "screenRange", 0.0);
  put(next, "fgBias", Rgb{0.9f, 0.9f, 0.9f});
  if (!screen.foregroundPixels.empty()) put(next, "replace", meanOf(screen.foregroundPixels));

  const CleanPlate clean(plate, screen);
  const int colourspace = static_cast<int>(next.number("colourspace"));
  // Float light may be of any brightness; codes, which the trial beside a local colour has, go up
  // to 1. That trial does not mind a brighter or darker plate.
  const float brightest = *std::max_element(screen.colour.begin(), screen.colour.end());
  const bool light =
      plate.depth == Depth::floats && colourspace != logSpace && colourspace != videoSpace;
  const float scale = light ? 0.6f / brightest : 1;
  Settings local = next;
  local.setText("useReference", "on");  // the trial's local colours, whatever is keyed beside later
  setColour(local, "screen",
            scaled({next.number("screen", 0), next.number("screen", 1), next.number("screen", 2)},
                   scale));
  // A key of one colour for an uneven screen clips the ends by itself. What it aims at need not
  // have them clipped as well, and shows it more of the edges.
  const float mixShare = result.cleanPlate ? 0.4f : 0.7f;
  KeyTrial sure(scaled(surePixels(screen, clean, colourspace, mixShare), scale), true);
  Search search(settings, screen, sure);
  local = search.best(local, {rangeKnob});
  if (!settings.given("fgBias")) {
    // Tinted greys are taken for grey unless the key loses by it: a subject may be beige.
    constexpr float worthIt = 1.05f;
    const Rgb bias = scaled(greyTint(screen), 0.9f);
    Settings tinted = local;
    setColour(tinted, "fgBias", bias);
    tinted = search.best(tinted, {rangeKnob});
    if (sure.error(tinted) < worthIt * sure.error(local)) {
      local = tinted;
      setColour(next, "fgBias", bias);
    }
  }
  put(next, "screenRange", std::clamp(local.number("screenRange") / scale, 0.0f, farthestRange));
  if (!result.cleanPlate) {
    KeyTrial flat(keyedPixels(plate, hueOfColour(screen.colour), clean, local, scale), false);
    next = Search(settings, screen, flat).best(next, {flatKnobs.begin(), flatKnobs.end()});
  }
  for (const Parameter& parameter : parameters()) {
    if (next.given(parameter.name) && !settings.given(parameter.name)) {
      result.set.emplace_back(parameter.name);
    }
  }
  settings = next;
  return result;
}

}  // namespace orvanite
