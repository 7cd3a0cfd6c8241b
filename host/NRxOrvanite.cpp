// SPDX-License-Identifier: BSD-3-Clause
//
// What the node is made of: inputs, plugs, defaults, dependencies, saved form.
#include "host/NRxOrvanite.h"

#include <new>

#include "platform/NRiFile.h"

namespace {

constexpr const char* banner = "Orvanite 1.4 keyer node with 32-bit extensions";

// Plug flag: serialising leaves the plug out.
constexpr int unsaved = 4;

}  // namespace

NRxOrvanite::NRxOrvanite() : engine_(orvanite_new()) {
  if (!engine_) throw std::bad_alloc();
  try {
    for (const char* const name : {"Fg", "Bg", "HoldOutMatte", "GarbageMatte"}) {
      addInput(NRiName::getString(name));
    }

    const auto add = [this](const char* name, NRiId type) {
      return addPlug(NRiName::getString(name), type, static_cast<NRiPlug::IO>(1), nullptr, 0);
    };
    const auto addThree = [&](NRiPlug*(&plugs)[3], const char* a, const char* b, const char* c) {
      plugs[0] = add(a, nriFloat);
      plugs[1] = add(b, nriFloat);
      plugs[2] = add(c, nriFloat);
    };
    banner_ = add("Orvanite", nriString);
    banner_->set(banner);
    version_ = add("version", nriString);
    version_->setFlag(unsaved, 1, 0);
    output_ = add("output", nriString);
    addThree(screen_, "rScreen", "gScreen", "bScreen");
    screenRange_ = add("screenRange", nriFloat);
    addThree(bias_, "rFgBias", "gFgBias", "bFgBias");
    addThree(balance_, "shadowBalance", "midtoneBalance", "highlightBalance");
    addThree(gain_, "shadowGain", "midtoneGain", "highlightGain");
    midTonesAt_ = add("midTonesAt", nriFloat);
    addThree(replace_, "rReplace", "gReplace", "bReplace");
    addThree(exposure_, "rExposure", "gExposure", "bExposure");
    addThree(gamma_, "rGamma", "gGamma", "bGamma");
    saturation_ = add("saturation", nriFloat);
    colourspace_ = add("colourspace", nriString);
    useHold_ = add("useHoldOutMatte", nriInt);
    holdChannel_ = add("holdOutChannel", nriString);
    useGarbage_ = add("useGarbageMatte", nriInt);
    garbageChannel_ = add("garbageChannel", nriString);
    bgColor_ = add("bgColor", nriInt);
    clipMode_ = add("clipMode", nriInt);

    const auto setThree = [](NRiPlug*(&plugs)[3], float a, float b, float c) {
      plugs[0]->set(a);
      plugs[1]->set(b);
      plugs[2]->set(c);
    };
    setThree(screen_, 0.0f, 0.0f, 0.9f);
    screenRange_->set(0.0f);
    setThree(bias_, 0.5f, 0.5f, 0.5f);
    setThree(balance_, 0.5f, 0.5f, 0.5f);
    midTonesAt_->set(0.5f);
    setThree(gain_, 0.0f, 0.0f, 0.0f);
    setThree(replace_, 0.5f, 0.5f, 0.5f);
    setThree(exposure_, 1.0f, 1.0f, 1.0f);
    setThree(gamma_, 1.0f, 1.0f, 1.0f);
    saturation_->set(1.0f);
    colourspace_->set("linear");
    output_->set(composite);
    useHold_->set(1);
    holdChannel_->set("A");
    useGarbage_->set(1);
    garbageChannel_->set("A");

    orvanite_useRef(engine_, 0);  // the node has no clean plate to give
    inputDepth_->connect(outputDepth_);

    NRiPlug* const image = out_->image();
    const auto imageFrom = [&](int i) {
      NRiPlug::addDependencies(image, screen_[i], bias_[i], balance_[i], gain_[i], replace_[i],
                               exposure_[i], gamma_[i], nullptr);
    };
    imageFrom(0);
    imageFrom(1);
    imageFrom(2);
    NRiPlug::addDependencies(image, clipMode_, screenRange_, colourspace_, output_, useHold_,
                             holdChannel_, useGarbage_, garbageChannel_, bgColor_, saturation_,
                             midTonesAt_, nullptr);
    NRiPlug::addDependencies(out_->channels(), inputs_[kFg]->channels(), inputs_[kBg]->channels(),
                             output_, image, nullptr);
    // The base connects these three to the foreground's; here eval() works them out.
    out_->bPixel()->connect(nullptr);
    NRiPlug::addDependencies(out_->bPixel(), image, bgColor_, inputs_[kFg]->bPixel(),
                             inputs_[kBg]->bPixel(), inputs_[kHold]->bPixel(),
                             inputs_[kGarbage]->bPixel(), nullptr);
    out_->width()->connect(nullptr);
    out_->height()->connect(nullptr);
    NRiPlug::addDependencies(out_->width(), inputs_[kFg]->width(), inputs_[kBg]->width(), clipMode_,
                             nullptr);
    NRiPlug::addDependencies(out_->height(), inputs_[kFg]->height(), inputs_[kBg]->height(),
                             clipMode_, nullptr);
    out_->dod()->addDependency(image);
    clipMode_->set(0);
  } catch (...) {
    orvanite_delete(engine_);
    throw;
  }
}

NRxOrvanite::~NRxOrvanite() {
  if (engine_) orvanite_delete(engine_);
}

int NRxOrvanite::notify(NRiPlug* plug) { return NRiNode::notify(plug); }

// A saved script carries the version and never the banner; at all other times it is the other way.
int NRxOrvanite::serialize(NRiFile& file, int flags) {
  banner_->setFlag(unsaved, 1, 0);
  version_->setFlag(unsaved, 0, 0);
  const int result = NRiNode::serialize(file, flags);
  version_->setFlag(unsaved, 1, 0);
  banner_->setFlag(unsaved, 0, 0);
  return result;
}
