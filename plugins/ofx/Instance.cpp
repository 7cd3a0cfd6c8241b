// SPDX-License-Identifier: BSD-3-Clause
//
// What an instance tells its host about clips, regions and identity; rendering is Render.cpp's.
#include "plugins/ofx/Instance.h"

#include <algorithm>
#include <array>

#include "base/Error.h"

namespace orvanite::ofxPlugin {

Instance* instanceOf(ofx::Effect effect) {
  return static_cast<Instance*>(propertiesOf(effect).pointer(ofx::prop::instanceData));
}

std::string clippingNote(Sample sample, bool cleanPlate, bool estimated) {
  if (sample == Sample::byte || sample == Sample::word) return {};
  if (cleanPlate) {
    return "Reference: keyed in 16 bits beside a clean plate; values outside 0 to 1 are clipped";
  }
  if (!estimated) return {};
  return "Key beside: keyed in 16 bits; values below 0, and above 8 in linear light, are clipped";
}

Instance::Instance(ofx::Effect effect)
    : effect_(effect),
      general_(propertiesOf(effect).text(ofx::prop::effectContext) == ofx::context::general),
      source_(find(ofx::sourceClip)),
      output_(find(ofx::outputClip)),
      background_(find(backgroundClip)),
      holdOut_(find(holdOutClip)),
      garbage_(find(garbageClip)),
      reference_(find(referenceClip)),
      parameters_(effect, !general_) {
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

std::string Instance::ClipRef::components() const {
  return Properties(properties).text(ofx::prop::pixelComponents);
}

Instance::Request Instance::requestAt(ofx::Time time) const {
  Request request{parameters_.at(time), parameters_.choices(), {}};
  Settings& settings = request.settings;
  request.holdPicture = settings.toggle("useHoldOutMatte") && holdOut_.connected();
  request.garbagePicture = settings.toggle("useGarbageMatte") && garbage_.connected();
  // The plate's own alpha is a matte as well, where it has one.
  if (source_.components() == ofx::components::rgb) request.panel.sourceAlpha = SourceAlpha::ignore;
  const bool keeps = request.panel.sourceAlpha == SourceAlpha::insideMask;
  const bool cuts = request.panel.sourceAlpha == SourceAlpha::multiply;
  if (keeps) settings.setNumber("useHoldOutMatte", 1);
  if (cuts) settings.setNumber("useGarbageMatte", 1);
  request.inputs.background = background_.connected();
  request.inputs.holdOut = request.holdPicture || keeps;
  request.inputs.garbage = request.garbagePicture || cuts;
  request.inputs.reference = settings.toggle("useReference") && reference_.connected();
  return request;
}

std::optional<ofx::RectD> Instance::regionOf(const ClipRef& clip, ofx::Time time) const {
  ofx::RectD region{};
  if (host().effect->clipGetRegionOfDefinition(clip.clip, time, &region) != ofx::ok) return {};
  return region;
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
  const std::string output = parameters_.output();
  std::string state = ofx::premultiplication::premultiplied;
  const bool straight = output == "unpremultiplied" && !parameters_.choices().premultiplied;
  if (straight || output == intermediateOutput) {
    state = ofx::premultiplication::unpremultiplied;
  } else if (output == "compOnReplace" || output == "compOnColour" || output == "status") {
    state = ofx::premultiplication::opaque;
  } else if (output == "composite" && background) {
    const std::string below = Properties(background_.properties).text(ofx::prop::premultiplication);
    if (!below.empty()) state = below;
  }
  // Without an alpha there is nothing that colours could be multiplied by.
  if (!general_ && source_.components() == ofx::components::rgb) {
    state = ofx::premultiplication::opaque;
  }
  out.set(ofx::prop::premultiplication, state.c_str());
  out.set(ofx::prop::frameVarying, 0);
  return ofx::ok;
}

ofx::Status Instance::getRegionOfDefinition(Properties in, Properties out) const {
  const double time = in.real(ofx::prop::time, 0);
  const bool byBackground = parameters_.choices().sizedByBackground && background_.connected();
  const auto region = regionOf(byBackground ? background_ : source_, time);
  if (!region) return ofx::replyDefault;
  return out.set(ofx::prop::regionOfDefinition, *region) ? ofx::ok : ofx::failed;
}

ofx::Status Instance::getRegionsOfInterest(Properties in, Properties out) const {
  const auto region = in.rectD(ofx::prop::regionOfInterest);
  if (!region) return ofx::replyDefault;
  const double time = in.real(ofx::prop::time, 0);
  const Request request = requestAt(time);
  // A pixel needs the same pixel of what is in use, and nothing of what is not. A finish looks
  // around it, as far as in the output's pixels at this scale, and estimates at the whole plate.
  const double scale = in.real(ofx::prop::renderScale, 1, 0);
  const Finish finish = Finish::of(request.settings, request.inputs, static_cast<float>(scale));
  const bool nothing = region->x2 <= region->x1 || region->y2 <= region->y1;
  const double border = nothing ? 0 : finish.border() / std::max(scale, 1e-3);
  const double aspect = Properties(source_.properties).real(ofx::prop::pixelAspect, 1);
  const double across = border * std::max(1.0, aspect);
  const ofx::RectD wide{region->x1 - across, region->y1 - border, region->x2 + across,
                        region->y2 + border};
  const auto ask = [&](const ClipRef& ref, const char* name, bool needed) {
    if (!ref.connected()) return;
    const ofx::RectD none{region->x1, region->y1, region->x1, region->y1};
    out.set((std::string(ofx::prop::clipRegionOfInterest) + name).c_str(), needed ? wide : none);
  };
  // What a matte's channel is, is decided for the whole of it.
  const auto askMatte = [&](const ClipRef& ref, const char* name, bool needed,
                            MatteChannel channel) {
    ask(ref, name, needed);
    const auto whole = regionOf(ref, time);
    if (needed && !nothing && channel == MatteChannel::automatic && whole) {
      out.set((std::string(ofx::prop::clipRegionOfInterest) + name).c_str(), *whole);
    }
  };
  ask(source_, ofx::sourceClip, true);
  if (request.beside() && !nothing) {
    if (const auto whole = regionOf(source_, time)) {
      const ofx::RectD both{std::min(whole->x1, wide.x1), std::min(whole->y1, wide.y1),
                            std::max(whole->x2, wide.x2), std::max(whole->y2, wide.y2)};
      out.set((std::string(ofx::prop::clipRegionOfInterest) + ofx::sourceClip).c_str(), both);
    }
  }
  ask(background_, backgroundClip, needsBackground(request.settings, request.inputs));
  askMatte(holdOut_, holdOutClip, request.holdPicture, request.panel.holdChannel);
  askMatte(garbage_, garbageClip, request.garbagePicture, request.panel.garbageChannel);
  ask(reference_, referenceClip, request.inputs.reference);
  return ofx::ok;
}

ofx::Status Instance::isIdentity(Properties in, Properties out) {
  const double time = in.real(ofx::prop::time, 0);
  const auto window = in.rectI(ofx::prop::renderWindow);
  if (!window || !isEmpty(*window)) {
    // A key that cannot be built shows the plate as it is, where the output can hold the plate.
    const Request request = requestAt(time);
    const auto sample = sampleOf(Properties(source_.properties).text(ofx::prop::pixelDepth));
    if (!sample) return ofx::replyDefault;
    std::string problem = request.settings.screenProblem();
    if (problem.empty()) {
      const Depth depth = workingDepth(*sample, request.inputs.reference);
      const auto lease = engines_.lease({request.settings, depth, request.inputs});
      problem = tableProblem(lease.result());
    } else {
      problem.insert(0, "Screen colour: ");
    }
    settle(problem, clippingNote(*sample, request.inputs.reference, request.beside()));
    if (problem.empty()) return ofx::replyDefault;
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
  if (name == autoButton) findKey(time);
  if (name == sampleButton) sampleScreen(time);
  if (name == loadButton) loadPreset(time);
  if (name == saveButton) savePreset(time);
  if (name == "screen" && byUser) parameters_.followScreen(time);
  return ofx::ok;
}

ofx::Status Instance::purge() {
  engines_.purge();
  frames_.purge();
  estimates_.clear();
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

void Instance::settle(const std::string& problem, const std::string& note) {
  if (!problem.empty()) {
    report(ofx::message::warning, problem);
  } else if (!note.empty()) {
    report(ofx::message::note, note);
  } else {
    clearReport();
  }
}

void Instance::clearReport() {
  const std::lock_guard guard(reportLock_);
  if (reported_.empty()) return;
  reported_.clear();
  unsay(effect_);
}

}  // namespace orvanite::ofxPlugin
