// SPDX-License-Identifier: BSD-3-Clause
//
// What an instance tells its host about clips, regions and identity; rendering is render.cpp's.
#include "plugins/ofx/instance.h"

#include <algorithm>
#include <array>

#include "keyer/Error.h"
#include "plugins/ofx/images.h"

namespace orvanite::ofxPlugin {

Instance::Instance(ofx::Effect effect)
    : effect_(effect),
      general_(propertiesOf(effect).text(ofx::prop::effectContext) == ofx::context::general),
      source_(find(ofx::sourceClip)),
      output_(find(ofx::outputClip)),
      background_(find(backgroundClip)),
      holdOut_(find(holdOutClip)),
      garbage_(find(garbageClip)),
      reference_(find(referenceClip)),
      parameters_(effect) {
  if (!source_.clip || !output_.clip) {
    throw Error(Fault::failure, "host", "expected clips named Source and Output");
  }
}

Instance::ClipRef Instance::find(const char* name) const {
  ClipRef ref;
  if (host().effect->clipGetHandle(effect_, name, &ref.clip, &ref.properties) != ofx::ok) return {};
  // Some hosts leave the second answer out.
  if (ref.clip && !ref.properties) host().effect->clipGetPropertySet(ref.clip, &ref.properties);
  return ref;
}

bool Instance::ClipRef::connected() const {
  return clip && Properties(properties).integer(ofx::prop::connected, 0) != 0;
}

Inputs Instance::inputsFor(const Settings& settings) const {
  Inputs inputs;
  inputs.background = background_.connected();
  inputs.holdOut = settings.toggle("useHoldOutMatte") && holdOut_.connected();
  inputs.garbage = settings.toggle("useGarbageMatte") && garbage_.connected();
  inputs.reference = settings.toggle("useReference") && reference_.connected();
  return inputs;
}

std::string Instance::problemOf(const Settings& settings, int depth, const Inputs& inputs) const {
  if (const std::string screen = settings.screenProblem(); !screen.empty()) {
    return "Screen colour: " + screen;
  }
  if (depth == 4 && inputs.reference) {
    return "Reference: expected 8- or 16-bit pictures with a clean plate, found float pictures";
  }
  return {};
}

ofx::Status Instance::getClipPreferences(Properties out) const {
  const bool background = background_.connected();
  // Only here may we choose: elsewhere Output is what Source is, and an RGB plate has no matte.
  if (general_) {
    out.set((std::string(ofx::prop::clipComponents) + ofx::outputClip).c_str(),
            ofx::components::rgba);
  }

  // How each output's colour stands to the matte beside it. Over black the colour is multiplied by
  // the matte. Over another picture it is as that picture is. Over a flat colour, and in the status
  // picture, the colour is complete and the matte only rides along.
  const std::string_view output = parameters_.choice("output");
  std::string state = ofx::premultiplication::premultiplied;
  if (output == "unpremultiplied") {
    state = ofx::premultiplication::unpremultiplied;
  } else if (output == "compOnReplace" || output == "compOnColour" || output == "status") {
    state = ofx::premultiplication::opaque;
  } else if (output == "composite" && background) {
    const std::string below = Properties(background_.properties).text(ofx::prop::premultiplication);
    if (!below.empty()) state = below;
  }
  out.set(ofx::prop::premultiplication, state.c_str());
  out.set(ofx::prop::frameVarying, 0);
  return ofx::ok;
}

ofx::Status Instance::getRegionOfDefinition(Properties in, Properties out) const {
  const double time = in.real(ofx::prop::time, 0);
  const bool byBackground = parameters_.sizedByBackground() && background_.connected();
  const ClipRef& sizing = byBackground ? background_ : source_;
  ofx::RectD region{};
  if (host().effect->clipGetRegionOfDefinition(sizing.clip, time, &region) != ofx::ok) {
    return ofx::replyDefault;
  }
  return out.set(ofx::prop::regionOfDefinition, region) ? ofx::ok : ofx::failed;
}

ofx::Status Instance::getRegionsOfInterest(Properties in, Properties out) const {
  const auto region = in.rectD(ofx::prop::regionOfInterest);
  if (!region) return ofx::replyDefault;
  const Settings settings = parameters_.at(in.real(ofx::prop::time, 0));
  const Inputs inputs = inputsFor(settings);
  const auto ask = [&](const ClipRef& ref, const char* name, bool needed) {
    if (!ref.connected()) return;
    // A pixel needs the same pixel of what is in use, and nothing of what is not.
    const ofx::RectD none{region->x1, region->y1, region->x1, region->y1};
    out.set((std::string(ofx::prop::clipRegionOfInterest) + name).c_str(), needed ? *region : none);
  };
  ask(source_, ofx::sourceClip, true);
  ask(background_, backgroundClip, settings.view(inputs) == 0);
  ask(holdOut_, holdOutClip, inputs.holdOut);
  ask(garbage_, garbageClip, inputs.garbage);
  ask(reference_, referenceClip, inputs.reference);
  return ofx::ok;
}

ofx::Status Instance::isIdentity(Properties in, Properties out) {
  const double time = in.real(ofx::prop::time, 0);
  const auto window = in.rectI(ofx::prop::renderWindow);
  if (!window || !isEmpty(*window)) {
    // A key that cannot be built shows the plate as it is, where the output can hold the plate.
    const Settings settings = parameters_.at(time);
    const int depth = depthOf(Properties(source_.properties).text(ofx::prop::pixelDepth));
    if (depth == 0) return ofx::replyDefault;
    const Inputs inputs = inputsFor(settings);
    std::string problem = problemOf(settings, depth, inputs);
    if (problem.empty()) {
      const auto lease = engines_.lease({settings, depth, inputs});
      problem = tableProblem(lease.result());
    }
    if (problem.empty()) {
      clearReport();
      return ofx::replyDefault;
    }
    report(ofx::message::warning, problem);
  }
  out.set(ofx::prop::name, ofx::sourceClip);
  out.set(ofx::prop::time, time);
  return ofx::ok;
}

ofx::Status Instance::changed(Properties in) {
  const double time = in.real(ofx::prop::time, 0);
  const std::string name = in.text(ofx::prop::name);
  const bool parameter = in.text(ofx::prop::type) == ofx::typeParameter;
  const bool byUser = in.text(ofx::prop::changeReason) == ofx::changedByUser;
  // A note that stayed would keep some hosts from ever rendering again.
  clearReport();
  if (!parameter) return ofx::ok;
  if (name == sampleButton) return sampleScreen(time);
  if (name == "screen" && byUser) parameters_.followScreen(time);
  return ofx::ok;
}

ofx::Status Instance::purge() {
  engines_.purge();
  return ofx::ok;
}

ofx::Status Instance::sync() const {
  parameters_.stampVersion();
  return ofx::ok;
}

void Instance::report(const char* type, const std::string& text) {
  const std::lock_guard guard(reportLock_);
  if (reported_ == text) return;
  reported_ = text;
  say(effect_, type, text);
}

void Instance::clearReport() {
  const std::lock_guard guard(reportLock_);
  if (reported_.empty()) return;
  reported_.clear();
  unsay(effect_);
}

}  // namespace orvanite::ofxPlugin
