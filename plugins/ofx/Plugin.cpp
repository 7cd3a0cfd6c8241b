// SPDX-License-Identifier: BSD-3-Clause
//
// The binary's entry points: what a host finds, and the road from an action's name to the code
// that answers it. No exception leaves this file.
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "base/Error.h"
#include "plugins/ofx/Description.h"
#include "plugins/ofx/Host.h"
#include "plugins/ofx/Instance.h"
#include "plugins/ofx/Overlay.h"

namespace orvanite::ofxPlugin {

namespace {

constexpr const char* identifier = "org.orvanite.keyer";

const ofx::Host* givenHost = nullptr;
bool loaded = false;

void setHost(ofx::Host* from) { givenHost = from; }

ofx::Status load() {
  if (loaded) return ofx::ok;
  if (!givenHost) return ofx::missingHostFeature;
  connect(givenHost);
  if (!host().ready()) {
    connect(nullptr);
    return ofx::missingHostFeature;
  }
  loaded = true;
  return ofx::ok;
}

ofx::Status unload() {
  connect(nullptr);
  loaded = false;
  return ofx::ok;
}

ofx::Status describe(ofx::Effect effect) {
  const Properties properties = propertiesOf(effect);
  if (!properties.handle()) return ofx::badHandle;
  properties.set(ofx::prop::label, "Orvanite");
  properties.set(ofx::prop::shortLabel, "Orvanite");
  properties.set(ofx::prop::longLabel, "Orvanite keyer");
  properties.set(ofx::prop::grouping, "Keyer");
  properties.set(ofx::prop::versionLabel, ORVANITE_VERSION);
  properties.set(ofx::prop::version, ORVANITE_VERSION_MAJOR, 0);
  properties.set(ofx::prop::version, ORVANITE_VERSION_MINOR, 1);
  properties.set(ofx::prop::description,
                 "Keys a subject shot against a blue or green screen: matte, spill removal, "
                 "grading and composite in one step.");
  // The standard has the PNG second and finds it in Resources.
  properties.set(ofx::prop::icon, "org.orvanite.keyer.png", 1);
  properties.set(ofx::prop::contexts, ofx::context::filter, 0);
  properties.set(ofx::prop::contexts, ofx::context::general, 1);
  properties.set(ofx::prop::pixelDepths, ofx::depth::byte, 0);
  properties.set(ofx::prop::pixelDepths, ofx::depth::word, 1);
  properties.set(ofx::prop::pixelDepths, ofx::depth::real, 2);
  properties.set(ofx::prop::pixelDepths, ofx::depth::half, 3);
  properties.set(ofx::prop::singleInstance, 0);
  properties.set(ofx::prop::tiles, 1);
  properties.set(ofx::prop::multiResolution, 1);
  properties.set(ofx::prop::temporalAccess, 0);
  properties.set(ofx::prop::multipleClipDepths, 0);
  properties.set(ofx::prop::multipleClipAspects, 0);
  properties.set(ofx::prop::renderThreadSafety, ofx::renderSafety::fully);
  // We split a window over the host's threads ourselves, and do not mind if it splits the frame.
  properties.set(ofx::prop::hostFrameThreading, 0);
  // A pixel's key needs no other line: both fields are done in one go unless parameters move.
  properties.set(ofx::prop::fieldRenderTwiceAlways, 0);
  properties.set(ofx::prop::clipPreferencesSlaves, "output", 0);
  properties.set(ofx::prop::clipPreferencesSlaves, premultiplicationParam, 1);
  if (host().draw && host().interact) {
    properties.setPointer(ofx::prop::overlay, reinterpret_cast<void*>(overlayEntry));
  }
  // What a host cannot keep it will not use; some fall over an error from here.
  return ofx::ok;
}

// Defines a clip, unless an earlier describe has.
ofx::Status defineClip(ofx::Effect effect, const char* name, const char* label, bool optional,
                       bool mask, bool withAlphaOnly) {
  ofx::PropertySet handle = nullptr;
  const ofx::Status status = host().effect->clipDefine(effect, name, &handle);
  if (status == ofx::exists) return ofx::ok;
  if (status != ofx::ok) return status;
  const Properties clip(handle);
  clip.set(ofx::prop::label, label);
  int components = 0;
  clip.set(ofx::prop::supportedComponents, ofx::components::rgba, components++);
  if (!withAlphaOnly) {
    clip.set(ofx::prop::supportedComponents, ofx::components::rgb, components++);
  }
  if (mask) clip.set(ofx::prop::supportedComponents, ofx::components::alpha, components++);
  clip.set(ofx::prop::optional, optional ? 1 : 0);
  clip.set(ofx::prop::isMask, mask ? 1 : 0);
  clip.set(ofx::prop::tiles, 1);
  clip.set(ofx::prop::temporalAccess, 0);
  clip.set(ofx::prop::fieldExtraction, ofx::field::both);
  return ofx::ok;
}

ofx::Status describeInContext(ofx::Effect effect, Properties in) {
  const std::string context = in.text(ofx::prop::effectContext);
  if (context != ofx::context::filter && context != ofx::context::general) return ofx::unsupported;
  struct ClipRow {
    const char* name;
    const char* label;
    bool optional;
    bool mask;
  };
  constexpr ClipRow clips[] = {
      {ofx::sourceClip, "Source", false, false}, {backgroundClip, "Bg", true, false},
      {holdOutClip, "HoldOutMatte", true, true}, {garbageClip, "GarbageMatte", true, true},
      {referenceClip, "Reference", true, false}, {ofx::outputClip, "Output", false, false},
  };
  const bool filter = context == ofx::context::filter;
  for (const ClipRow& clip : clips) {
    // A filter's output has the plate's channels: an RGB plate is asked for as RGBA, so that there
    // is a place for the matte.
    const bool withAlphaOnly = filter && !clip.optional;
    const ofx::Status status =
        defineClip(effect, clip.name, clip.label, clip.optional, clip.mask, withAlphaOnly);
    if (status != ofx::ok) return status;
  }
  return describeParameters(effect, filter);
}

ofx::Status createInstance(ofx::Effect effect) {
  const Properties properties = propertiesOf(effect);
  if (!properties.handle()) return ofx::badHandle;
  auto instance = std::make_unique<Instance>(effect);
  delete instanceOf(effect);  // a host that creates twice without destroying
  if (!properties.setPointer(ofx::prop::instanceData, instance.get())) return ofx::failed;
  static_cast<void>(instance.release());  // the effect's from now on
  return ofx::ok;
}

ofx::Status destroyInstance(ofx::Effect effect) {
  Instance* const instance = instanceOf(effect);
  if (!instance) return ofx::badHandle;
  propertiesOf(effect).setPointer(ofx::prop::instanceData, nullptr);
  delete instance;
  return ofx::ok;
}

// Whether the plug-in answers an action of an instance, and how.
ofx::Status perform(std::string_view action, Instance& instance, Properties in, Properties out) {
  if (action == ofx::action::render) return instance.render(in);
  if (action == ofx::action::isIdentity) return instance.isIdentity(in, out);
  if (action == ofx::action::getClipPreferences) return instance.getClipPreferences(out);
  if (action == ofx::action::getRegionOfDefinition) return instance.getRegionOfDefinition(in, out);
  if (action == ofx::action::getRegionsOfInterest) return instance.getRegionsOfInterest(in, out);
  if (action == ofx::action::instanceChanged) return instance.changed(in);
  if (action == ofx::action::purgeCaches) return instance.purge();
  if (action == ofx::action::syncPrivateData) return instance.sync();
  if (action == ofx::action::beginSequenceRender || action == ofx::action::endSequenceRender) {
    return ofx::ok;
  }
  return ofx::replyDefault;
}

bool ofAnInstance(std::string_view action) {
  for (const char* known :
       {ofx::action::render, ofx::action::isIdentity, ofx::action::getClipPreferences,
        ofx::action::getRegionOfDefinition, ofx::action::getRegionsOfInterest,
        ofx::action::instanceChanged, ofx::action::purgeCaches, ofx::action::syncPrivateData,
        ofx::action::beginSequenceRender, ofx::action::endSequenceRender}) {
    if (action == known) return true;
  }
  return false;
}

ofx::Status dispatch(std::string_view action, ofx::Effect effect, Properties in, Properties out) {
  if (action == ofx::action::load) return load();
  if (action == ofx::action::unload) return unload();
  if (!loaded) return ofx::failed;
  if (action == ofx::action::describe) return describe(effect);
  if (action == ofx::action::describeInContext) {
    return effect ? describeInContext(effect, in) : ofx::badHandle;
  }
  if (action == ofx::action::createInstance) return createInstance(effect);
  if (action == ofx::action::destroyInstance) return destroyInstance(effect);
  if (!ofAnInstance(action)) return ofx::replyDefault;
  Instance* const instance = instanceOf(effect);
  if (!instance) return ofx::badHandle;
  try {
    return perform(action, *instance, in, out);
  } catch (const Error& error) {
    instance->report(ofx::message::error, error.what());
    return ofx::failed;
  }
}

ofx::Status mainEntry(const char* action, const void* handle, ofx::PropertySet in,
                      ofx::PropertySet out) {
  if (!action) return ofx::failed;
  // Handles are const at the door only: every suite takes them otherwise.
  const auto effect = static_cast<ofx::Effect>(const_cast<void*>(handle));
  try {
    return dispatch(action, effect, Properties(in), Properties(out));
  } catch (const std::bad_alloc&) {
    return ofx::outOfMemory;
  } catch (...) {
    return ofx::failed;
  }
}

ofx::Plugin plugin = {
    ofx::imageEffectApi,
    ofx::imageEffectApiVersion,
    identifier,
    ORVANITE_VERSION_MAJOR,
    ORVANITE_VERSION_MINOR,
    setHost,
    mainEntry,
};

}  // namespace

}  // namespace orvanite::ofxPlugin

#if defined(_WIN32)
#define ORVANITE_OFX_EXPORT extern "C" __declspec(dllexport)
#else
#define ORVANITE_OFX_EXPORT extern "C" __attribute__((visibility("default")))
#endif

ORVANITE_OFX_EXPORT int OfxGetNumberOfPlugins() { return 1; }

ORVANITE_OFX_EXPORT ofx::Plugin* OfxGetPlugin(int nth) {
  return nth == 0 ? &orvanite::ofxPlugin::plugin : nullptr;
}

/// Hosts of version 1.5 call it before anything else; any host is welcome.
ORVANITE_OFX_EXPORT ofx::Status OfxSetHost(const ofx::Host* from) {
  return from ? ofx::ok : ofx::failed;
}
