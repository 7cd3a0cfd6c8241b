// SPDX-License-Identifier: BSD-3-Clause
//
// What the node decides when a plug is read: size, channels, depth, background pixel, what it asks
// of its inputs, and, for the output image, every setting of its engine.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <type_traits>

#include "host/NRxOrvanite.h"
#include "platform/NRiGlobals.h"
#include "platform/NRiRound.h"

namespace {

// Channel bits: 1 alpha, 2 blue, 4 green, 8 red.
constexpr int alphaBit = 1;
constexpr int colourBits = 14;
constexpr int allBits = 15;

struct Triple {
  float r, g, b;
};

Triple rounded(NRiPlug* const (&plugs)[3]) {
  const float r = NRiRound(plugs[0]->asFloat(), 4);
  const float g = NRiRound(plugs[1]->asFloat(), 4);
  return {r, g, NRiRound(plugs[2]->asFloat(), 4)};
}

int clipOf(NRiPlug* clipMode) { return std::clamp(clipMode->asInt(), 0, 1); }

// A background component as an element: clamped to 0..K, then rounded to the nearest, ties to
// even, by the addition of 2^23, whose last place is 1.
template <class T>
T elementFrom(float value) {
  if constexpr (std::is_same_v<T, float>) {
    return value;
  } else {
    const auto top = static_cast<float>(static_cast<T>(~T{0}));
    const float scaled = value * top;
    const float clamped = scaled > 0.0f ? (scaled < top ? scaled : top) : 0.0f;
    return static_cast<T>(static_cast<std::uint32_t>(clamped + 8388608.0f));
  }
}

template <class T>
float componentFrom(T element) {
  if constexpr (std::is_same_v<T, float>) {
    return element;
  } else {
    return static_cast<float>(element) / static_cast<float>(static_cast<T>(~T{0}));
  }
}

// An input's identity as it stands within another. The letter of a channel without a name is a
// null, which would end the text there: it is written as \0, so that all of the identity counts.
std::string within(const NRiName& identity) {
  std::string text(identity.view());
  for (std::size_t at = 0; (at = text.find('\0', at)) != std::string::npos; at += 2) {
    text.replace(at, 1, "\\0");
  }
  return text;
}

}  // namespace

bool NRxOrvanite::connected(Input input) const {
  static const NRiName names[] = {NRiName("Fg"), NRiName("Bg"), NRiName("HoldOutMatte"),
                                  NRiName("GarbageMatte")};
  const auto* const plug = dynamic_cast<const NRiIPlug*>(getPlug(names[input]));
  return plug && plug->isConnected();
}

void NRxOrvanite::refreshImage() {
  if (!out_->image()->isUpToDate()) out_->image()->asVoid();
}

int NRxOrvanite::eval(NRiPlug* plug) {
  if (plug == out_->channels()) {
    evalChannels(plug);
  } else if (plug == out_->width()) {
    plug->set(inputs_[clipOf(clipMode_) ? kBg : kFg]->width()->asInt());
  } else if (plug == out_->height()) {
    plug->set(inputs_[clipOf(clipMode_) ? kBg : kFg]->height()->asInt());
  } else if (plug == out_->bPixel()) {
    evalBackground(plug);
  } else if (plug == out_->image()) {
    evalImage(plug);
  } else if (plug == out_->dod()) {
    evalDomain(plug);
  } else if (plug == outputDepth_) {
    evalDepth(plug);
  } else if (plug == inputDepth_) {
    // The constructor connected it, so nobody should ask.
    std::fputs("should never reach here!\n", stderr);
    int deepest = 0;
    for (int i = 0; i < getNbInputs(); ++i) {
      deepest = std::max(deepest, getInput(i)->bytes()->asInt());
    }
    plug->set(deepest);
  } else if (plug == inputs_[kBg]->requested()) {
    refreshImage();
    const int requested = out_->requested()->asInt();
    const int mask = output_->asString() == composite ? requested | allBits : requested;
    plug->set(inputs_[kBg]->channels()->asInt() & mask);
  } else if (plug == inputs_[kFg]->requested()) {
    refreshImage();
    const int requested = out_->requested()->asInt();
    plug->set(requested == 0 ? 0 : inputs_[kFg]->channels()->asInt() & colourBits);
  } else if (plug == inputs_[kHold]->requested()) {
    refreshImage();
    plug->set(matteRequest(hold_, kHold));
  } else if (plug == inputs_[kGarbage]->requested()) {
    refreshImage();
    plug->set(matteRequest(garbage_, kGarbage));
  }
  return NRiNadic::eval(plug);
}

int NRxOrvanite::matteRequest(const Matte& matte, Input input) {
  if (!matte.active || out_->requested()->asInt() == 0) return 0;
  const int bits = matte.element() == 0 ? alphaBit : colourBits;
  return inputs_[input]->channels()->asInt() & bits;
}

void NRxOrvanite::evalChannels(NRiPlug* plug) {
  refreshImage();
  int mask = 0;
  if (connected(kFg) || connected(kBg)) {
    const int foreground = inputs_[kFg]->channels()->asInt();
    const int background = inputs_[kBg]->channels()->asInt();
    const NRiName mode = output_->asString();
    if (lutFailed_) {
      mask = foreground;
    } else if (mode.view() == "status") {
      mask = allBits;
    } else {
      mask = foreground | alphaBit | (mode == composite ? background : 0);
    }
  }
  plug->set(mask);
}

void NRxOrvanite::evalDepth(NRiPlug* plug) {
  int depth = 0;
  for (const Input input : {kFg, kBg}) {
    if (connected(input)) depth = std::max(depth, inputs_[input]->bytes()->asInt());
  }
  if (depth == 0) {
    depth = 1;
    NRiPlug* const current = NRiGlobals::ref(NRiName("script.currentScript"), nriPointer, 1);
    if (const NRiNode* const script = current ? current->asPtr() : nullptr) {
      depth = script->getPlug(NRiName("defaultBytes"))->asInt();
    }
  }
  plug->set(depth);
}

// Pixels of its own has the result where what makes it has some: the foreground, a background that
// shows, mattes in use. Nothing else is asked for its domain.
void NRxOrvanite::evalDomain(NRiPlug* plug) {
  refreshImage();
  const bool counts[mostInputs] = {true, view_ == 0, hold_.active != 0, garbage_.active != 0};
  domain_ = {};
  for (int i = 0; i < mostInputs; ++i) {
    if (counts[i]) domain_ = domain_.unite(inputs_[i]->getDod());
  }
  plug->set(static_cast<void*>(&domain_));
}

int NRxOrvanite::getKeyView() {
  const NRiName mode = output_->asString();
  if (mode == composite) return 0;
  if (mode.view() == "compOnBlack") {
    orvanite_setBackground(engine_, 0, 0, 0);
    return 1;
  }
  if (mode.view() == "compOnReplace") {
    const Triple replace = rounded(replace_);
    orvanite_setBackground(engine_, replace.r, replace.g, replace.b);
    return 1;
  }
  if (mode.view() == "unpremultiplied") return 4;
  if (mode.view() == "status") return 5;
  return 0;
}

void NRxOrvanite::evalImage(NRiPlug* plug) {
  const Triple screen = rounded(screen_);
  const Triple bias = rounded(bias_);
  const Triple balance = rounded(balance_);  // shadow, midtone, highlight
  const Triple gain = rounded(gain_);
  const Triple replace = rounded(replace_);
  const Triple exposure = rounded(exposure_);
  const Triple gamma = rounded(gamma_);
  const NRiName space = colourspace_->asString();
  const NRiName mode = output_->asString();
  const float screenRange = NRiRound(screenRange_->asFloat(), 4);
  const float saturation = NRiRound(saturation_->asFloat(), 4);
  const float midTonesAt = NRiRound(midTonesAt_->asFloat(), 4);

  const auto decide = [this](Matte& matte, NRiPlug* use, NRiPlug* channel, Input input,
                             void (*setUse)(QMXOrvaniteTable*, int)) {
    matte.active = use->asInt() != 0 && connected(input) ? 1 : 0;
    setUse(engine_, matte.active);
    matte.channel = matte.active ? NRiName::upperCase(channel->asString()).getString()[0] : 'A';
  };
  decide(hold_, useHold_, holdChannel_, kHold, orvanite_useHold);
  decide(garbage_, useGarbage_, garbageChannel_, kGarbage, orvanite_useGarbage);

  view_ = getKeyView();
  if (view_ == 0 && !connected(kBg)) {
    view_ = 1;
    orvanite_setBackground(engine_, 0, 0, 0);
  }

  const auto of = [this](Input input) { return within(inputs_[input]->image()->asString()); };
  const std::string fg = of(kFg);
  const std::string bg = of(kBg);
  const std::string hold = hold_.active ? of(kHold) : "0";
  const std::string garbage = garbage_.active ? of(kGarbage) : "0";
  const NRiName identity = NRiName::sprintf(
      "%s(%s,%s,%s,%s,%i,%s,%g,%g,%g,%g,%g,%g,%g,%g,%g,%g,%g,%g,%g,%g,%g,%g,%g,%g,%g,%g,%g,%g,%g,"
      "%g,%s,%d,%c,%d,%c,%i)",
      thisClassName.getString(), fg.c_str(), bg.c_str(), hold.c_str(), garbage.c_str(),
      clipMode_->asInt() != 0 ? 1 : 0, mode.getString(), screen.r, screen.g, screen.b, screenRange,
      bias.r, bias.g, bias.b, balance.r, balance.g, balance.b, midTonesAt, gain.r, gain.g, gain.b,
      replace.r, replace.g, replace.b, exposure.r, exposure.g, exposure.b, gamma.r, gamma.g,
      gamma.b, saturation, space.getString(), hold_.active, hold_.channel, garbage_.active,
      garbage_.channel, bgColor_->asInt() != 0 ? 1 : 0);

  orvanite_setScreen(engine_, screen.r, screen.g, screen.b);
  if (space.view() == "log") {
    orvanite_setColourspace(engine_, 1);
  } else if (space.view() == "linear") {
    orvanite_setColourspace(engine_, 0);
  } else if (space.view() == "video") {
    orvanite_setColourspace(engine_, 2);
  }
  orvanite_setView(engine_, view_);
  orvanite_setScreenRange(engine_, screenRange);
  orvanite_setNeutral(engine_, bias.r, bias.g, bias.b);
  orvanite_setBalance(engine_, 0, balance.r);
  orvanite_setBalance(engine_, 1, balance.g);
  orvanite_setBalance(engine_, 2, balance.b);
  orvanite_setGain(engine_, 0, gain.r);
  orvanite_setGain(engine_, 1, gain.g);
  orvanite_setGain(engine_, 2, gain.b);
  orvanite_setMp(engine_, midTonesAt, midTonesAt, midTonesAt);
  orvanite_setReplace(engine_, replace.r, replace.g, replace.b);
  orvanite_setExposure(engine_, exposure.r, exposure.g, exposure.b, 0);
  orvanite_setGamma(engine_, gamma.r, gamma.g, gamma.b, 0);
  orvanite_setSaturation(engine_, saturation, 0);

  // All inputs are brought to the output's depth, so one maximum serves them all.
  const int depth = outputDepth_->asInt();
  const int max = depth == 1 ? 255 : depth == 4 ? 1 : 65535;
  orvanite_setGMatteMax(engine_, max);
  orvanite_setFgMax(engine_, max);
  orvanite_setBgMax(engine_, max);
  orvanite_setHMatteMax(engine_, max);
  orvanite_setDstMax(engine_, max);
  tables_ = orvanite_makeLuts(engine_);
  lutFailed_ = tables_ != 0 ? 1 : 0;

  plug->set(NRiName::compress(identity));
}

template <class T>
void NRxOrvanite::keyBackground(int depth, const NRiBPixel (&pixels)[mostInputs]) {
  T elements[mostInputs][4];
  for (int i = 0; i < mostInputs; ++i) {
    for (int c = 0; c < 4; ++c) elements[i][c] = elementFrom<T>(pixels[i].component(c));
  }
  const auto image = [](T* pixel) {
    return OtileImage{pixel + 3, pixel + 2, pixel + 1, pixel, 0, 0};
  };
  Otile tile{};
  tile.dst = tile.bg = image(elements[kBg]);  // the result overwrites the background
  tile.fg = image(elements[kFg]);
  tile.hold.alpha = elements[kHold] + hold_.element();
  tile.garbage.alpha = elements[kGarbage] + garbage_.element();
  orvanite_render(engine_, depth, 1, 1, &tile);
  for (int c = 0; c < 4; ++c) bgPixel_.setComponent(c, componentFrom(elements[kBg][c]));
}

void NRxOrvanite::evalBackground(NRiPlug* plug) {
  refreshImage();
  const int key = bgColor_->asInt();
  inputs_[kFg]->getBPixel(bgPixel_);
  if (key != 0) {
    const int depth = outputDepth_->asInt();
    NRiBPixel pixels[mostInputs];
    pixels[kFg] = bgPixel_;
    for (const Input input : {kBg, kHold, kGarbage}) inputs_[input]->getBPixel(pixels[input]);
    if (depth == 1) keyBackground<std::uint8_t>(depth, pixels);
    if (depth == 2) keyBackground<std::uint16_t>(depth, pixels);
    if (depth == 4) keyBackground<float>(depth, pixels);
    bgPixel_.quantize(depth);
  }
  plug->set(static_cast<void*>(&bgPixel_));
}
