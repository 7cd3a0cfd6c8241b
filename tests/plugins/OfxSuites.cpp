// SPDX-License-Identifier: BSD-3-Clause
//
// The suites that the test host lends a plug-in.
#include "tests/plugins/OfxSuites.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <set>
#include <sstream>
#include <thread>

namespace ofxTest {

namespace {

OfxHost* current = nullptr;
thread_local bool spawned = false;

// Every name of the standard that a keyer may set; a name beside these is a spelling mistake.
const std::set<std::string>& settable() {
  static std::istringstream words(
      "OfxPropLabel OfxPropShortLabel OfxPropLongLabel OfxPropIcon OfxPropVersion "
      "OfxPropVersionLabel OfxPropPluginDescription OfxPropInstanceData OfxPropName "
      "OfxPropTime OfxImageEffectPluginPropGrouping OfxImageEffectPropSupportedContexts "
      "OfxImageEffectPropSupportedPixelDepths OfxImageEffectPluginPropSingleInstance "
      "OfxImageEffectPluginPropHostFrameThreading OfxImageEffectPluginRenderThreadSafety "
      "OfxImageEffectPropSupportsMultiResolution OfxImageEffectPropSupportsTiles "
      "OfxImageEffectPropTemporalClipAccess OfxImageEffectPluginPropFieldRenderTwiceAlways "
      "OfxImageEffectPropMultipleClipDepths OfxImageEffectPropSupportsMultipleClipPARs "
      "OfxImageEffectPropClipPreferencesSlaveParam OfxImageEffectPropSupportedComponents "
      "OfxImageClipPropOptional OfxImageClipPropIsMask OfxImageClipPropFieldExtraction "
      "OfxImageEffectPropPreMultiplication OfxImageEffectFrameVarying "
      "OfxImageEffectPropRegionOfDefinition OfxImageClipPropComponents_Output "
      "OfxImageClipPropRoI_Source OfxImageClipPropRoI_Bg OfxImageClipPropRoI_HoldOutMatte "
      "OfxImageClipPropRoI_GarbageMatte OfxImageClipPropRoI_Reference OfxParamPropHint "
      "OfxParamPropScriptName OfxParamPropParent OfxParamPropDefault OfxParamPropMin "
      "OfxParamPropMax OfxParamPropDisplayMin OfxParamPropDisplayMax OfxParamPropIncrement "
      "OfxParamPropDigits OfxParamPropDimensionLabel OfxParamPropAnimates OfxParamPropSecret "
      "OfxParamPropEnabled OfxParamPropEvaluateOnChange OfxParamPropPersistant "
      "OfxParamPropChoiceOption OfxParamPropStringMode OfxParamPropGroupOpen "
      "OfxParamPropPageChild OfxPluginPropParamPageOrder OfxParamPropChoiceEnum "
      "OfxParamPropDoubleType OfxParamPropDefaultCoordinateSystem "
      "kOfxParamPropUseHostOverlayHandle OfxImageEffectPluginPropOverlayInteractV2 "
      "OfxInteractPropSlaveToParam");
  static const std::set<std::string> names(std::istream_iterator<std::string>(words), {});
  return names;
}

Props* propsOf(ofx::PropertySet handle) { return reinterpret_cast<Props*>(handle); }
EffectState* effectOf(ofx::Effect handle) { return reinterpret_cast<EffectState*>(handle); }

template <class T>
ofx::Status setProp(ofx::PropertySet handle, const char* name, int index, T value) {
  if (!handle) return ofx::badHandle;
  if (index < 0) return ofx::badIndex;
  if (current->manners.forgetInstanceData && std::strcmp(name, "OfxPropInstanceData") == 0) {
    return ofx::failed;
  }
  if (!settable().count(name)) {
    propsOf(handle)->refused.push_back(name);
    return ofx::unknown;
  }
  propsOf(handle)->set(name, value, static_cast<std::size_t>(index));
  return ofx::ok;
}

template <class T>
ofx::Status getProp(ofx::PropertySet handle, const char* name, int index, T* value) {
  if (!handle) return ofx::badHandle;
  const auto found = propsOf(handle)->values.find(name);
  if (found == propsOf(handle)->values.end()) return ofx::unknown;
  if (index < 0 || static_cast<std::size_t>(index) >= found->second.size()) return ofx::badIndex;
  const Value& held = found->second[static_cast<std::size_t>(index)];
  if constexpr (std::is_same_v<T, char*>) {
    if (!std::holds_alternative<std::string>(held)) return ofx::badValue;
    *value = const_cast<char*>(std::get<std::string>(held).c_str());
  } else {
    if (!std::holds_alternative<T>(held)) return ofx::badValue;
    *value = std::get<T>(held);
  }
  return ofx::ok;
}

// --- property suite

const ofx::PropertySuite propertySuite = {
    [](ofx::PropertySet s, const char* n, int i, void* v) { return setProp<void*>(s, n, i, v); },
    [](ofx::PropertySet s, const char* n, int i, const char* v) {
      return setProp<std::string>(s, n, i, v);
    },
    [](ofx::PropertySet s, const char* n, int i, double v) { return setProp<double>(s, n, i, v); },
    [](ofx::PropertySet s, const char* n, int i, int v) { return setProp<int>(s, n, i, v); },
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    [](ofx::PropertySet s, const char* n, int i, void** v) { return getProp(s, n, i, v); },
    [](ofx::PropertySet s, const char* n, int i, char** v) { return getProp(s, n, i, v); },
    [](ofx::PropertySet s, const char* n, int i, double* v) { return getProp(s, n, i, v); },
    [](ofx::PropertySet s, const char* n, int i, int* v) { return getProp(s, n, i, v); },
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    [](ofx::PropertySet s, const char* n, int* count) -> ofx::Status {
      if (!s) return ofx::badHandle;
      *count = static_cast<int>(propsOf(s)->values[n].size());
      return ofx::ok;
    }};

// --- image effect suite

ofx::Status getEffectProps(ofx::Effect effect, ofx::PropertySet* props) {
  if (!effect) return ofx::badHandle;
  *props = effectOf(effect)->props.handle();
  return ofx::ok;
}

ofx::Status getParamSet(ofx::Effect effect, ofx::ParamSet* set) {
  if (!effect) return ofx::badHandle;
  *set = reinterpret_cast<ofx::ParamSet>(effect);
  return ofx::ok;
}

ofx::Status clipDefine(ofx::Effect effect, const char* name, ofx::PropertySet* props) {
  if (!effect) return ofx::badHandle;
  const auto [at, fresh] = effectOf(effect)->clips.try_emplace(name);
  if (!fresh) return ofx::exists;
  *props = at->second.props.handle();
  return ofx::ok;
}

ofx::Status clipGetHandle(ofx::Effect effect, const char* name, ofx::Clip* clip,
                          ofx::PropertySet* props) {
  if (!effect) return ofx::badHandle;
  const auto at = effectOf(effect)->clips.find(name);
  if (at == effectOf(effect)->clips.end()) return ofx::unknown;
  // The effect is found again through the clip's own properties.
  at->second.props.set<void*>("test.effect", effectOf(effect));
  *clip = reinterpret_cast<ofx::Clip>(&at->second);
  if (props) *props = at->second.props.handle();
  return ofx::ok;
}

ClipState* clipOf(ofx::Clip clip) { return reinterpret_cast<ClipState*>(clip); }

ofx::Status clipGetImage(ofx::Clip clip, ofx::Time time, const ofx::RectD*,
                         ofx::PropertySet* image) {
  if (!clip) return ofx::badHandle;
  auto picture = clipOf(clip)->image ? clipOf(clip)->image(time) : nullptr;
  if (!picture) return ofx::failed;
  auto* effect = static_cast<EffectState*>(
      std::get<void*>(clipOf(clip)->props.values.at("test.effect").front()));
  // A new handle each time, as the standard has it.
  auto* props = new Props(picture->props);
  const std::lock_guard guarded(effect->lock);
  effect->lent[props] = picture;
  props->set<void*>("test.effect", effect);
  *image = props->handle();
  return ofx::ok;
}

ofx::Status clipReleaseImage(ofx::PropertySet image) {
  if (!image) return ofx::badHandle;
  auto* effect =
      static_cast<EffectState*>(std::get<void*>(propsOf(image)->values.at("test.effect").front()));
  const std::lock_guard guarded(effect->lock);
  effect->lent.erase(propsOf(image));
  ++effect->imagesReleased;
  delete propsOf(image);
  return ofx::ok;
}

const ofx::ImageEffectSuite effectSuite = {
    getEffectProps,
    getParamSet,
    clipDefine,
    clipGetHandle,
    [](ofx::Clip clip, ofx::PropertySet* props) -> ofx::Status {
      *props = clipOf(clip)->props.handle();
      return ofx::ok;
    },
    clipGetImage,
    clipReleaseImage,
    [](ofx::Clip clip, ofx::Time, ofx::RectD* bounds) -> ofx::Status {
      if (!clipOf(clip)->image) return ofx::failed;
      *bounds = clipOf(clip)->region;
      return ofx::ok;
    },
    [](ofx::Effect) -> int {
      const int calls = current->aborts.fetch_add(1);
      return current->manners.abortAfter >= 0 && calls >= current->manners.abortAfter ? 1 : 0;
    },
    nullptr,
    nullptr,
    nullptr,
    nullptr};

// --- parameter suite

ParamState* paramOf(ofx::Param param) { return reinterpret_cast<ParamState*>(param); }

ofx::Status paramDefine(ofx::ParamSet set, const char* type, const char* name,
                        ofx::PropertySet* props) {
  if (!set) return ofx::badHandle;
  if (type == current->manners.lacksParamType) return ofx::unsupported;
  auto& params = effectOf(reinterpret_cast<ofx::Effect>(set))->params;
  const auto [at, fresh] = params.try_emplace(name);
  if (!fresh) return ofx::exists;
  at->second.type = type;
  if (props) *props = at->second.props.handle();
  return ofx::ok;
}

ofx::Status paramGetHandle(ofx::ParamSet set, const char* name, ofx::Param* param,
                           ofx::PropertySet* props) {
  if (!set) return ofx::badHandle;
  auto& params = effectOf(reinterpret_cast<ofx::Effect>(set))->params;
  const auto at = params.find(name);
  if (at == params.end()) return ofx::unknown;
  *param = reinterpret_cast<ofx::Param>(&at->second);
  if (props) *props = at->second.props.handle();
  return ofx::ok;
}

ofx::Status readParam(const ParamState& param, double time, va_list out) {
  const std::vector<Value> now = param.curve ? param.curve(time) : param.value;
  if (now.empty()) return ofx::failed;
  for (const Value& value : now) {
    if (const auto* i = std::get_if<int>(&value)) *va_arg(out, int*) = *i;
    if (const auto* d = std::get_if<double>(&value)) *va_arg(out, double*) = *d;
    if (std::get_if<std::string>(&value)) {
      *va_arg(out, char**) = const_cast<char*>(std::get<std::string>(param.value.front()).c_str());
    }
  }
  return ofx::ok;
}

ofx::Status paramGetValue(ofx::Param param, ...) {
  va_list out;
  va_start(out, param);
  const ofx::Status status = readParam(*paramOf(param), 0, out);
  va_end(out);
  return status;
}

ofx::Status paramGetValueAtTime(ofx::Param param, ofx::Time time, ...) {
  va_list out;
  va_start(out, time);
  const ofx::Status status = readParam(*paramOf(param), time, out);
  va_end(out);
  return status;
}

ofx::Status paramSetValue(ofx::Param param, ...) {
  va_list in;
  va_start(in, param);
  for (Value& value : paramOf(param)->value) {
    if (auto* i = std::get_if<int>(&value)) *i = va_arg(in, int);
    if (auto* d = std::get_if<double>(&value)) *d = va_arg(in, double);
    if (auto* s = std::get_if<std::string>(&value)) *s = va_arg(in, const char*);
  }
  va_end(in);
  return ofx::ok;
}

const ofx::ParameterSuite parameterSuite = {
    paramDefine,
    paramGetHandle,
    [](ofx::ParamSet set, ofx::PropertySet* props) {
      return getEffectProps(reinterpret_cast<ofx::Effect>(set), props);
    },
    [](ofx::Param param, ofx::PropertySet* props) -> ofx::Status {
      *props = paramOf(param)->props.handle();
      return ofx::ok;
    },
    paramGetValue,
    paramGetValueAtTime,
    nullptr,
    nullptr,
    paramSetValue,
    nullptr,
    [](ofx::Param param, unsigned int* count) -> ofx::Status {
      *count = static_cast<unsigned int>(paramOf(param)->keys);
      return ofx::ok;
    },
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    [](ofx::ParamSet set, const char*) -> ofx::Status {
      ++effectOf(reinterpret_cast<ofx::Effect>(set))->edits;
      return ofx::ok;
    },
    [](ofx::ParamSet) -> ofx::Status { return ofx::ok; }};

// --- threads and words

ofx::Status multiThread(ofx::MultiThreadSuite::Work work, unsigned int threads, void* data) {
  if (spawned) return ofx::exists;
  if (current->manners.threadsFail) return ofx::failed;
  const unsigned int count =
      threads > current->manners.fewerThreads ? threads - current->manners.fewerThreads : 1;
  std::vector<std::thread> running;
  for (unsigned int i = 0; i < count; ++i) {
    running.emplace_back([=] {
      spawned = true;
      ++current->threadsStarted;
      work(i, count, data);
    });
  }
  for (std::thread& thread : running) thread.join();
  return ofx::ok;
}

const ofx::MultiThreadSuite threadSuite = {multiThread,
                                           [](unsigned int* count) -> ofx::Status {
                                             *count = current->manners.cpus;
                                             return ofx::ok;
                                           },
                                           nullptr,
                                           nullptr,
                                           nullptr,
                                           nullptr,
                                           nullptr,
                                           nullptr,
                                           nullptr};

ofx::Status note(void* handle, bool stays, const char* type, const char* format, va_list words) {
  char text[1024];
  std::vsnprintf(text, sizeof text, format, words);
  auto* effect = static_cast<EffectState*>(handle);
  const std::lock_guard guarded(effect->lock);
  effect->notes.push_back(std::string(type) + ": " + text);
  effect->noteStays = stays;
  return ofx::ok;
}

ofx::Status sayOnce(void* handle, const char* type, const char*, const char* format, ...) {
  va_list words;
  va_start(words, format);
  const ofx::Status status = note(handle, false, type, format, words);
  va_end(words);
  return status;
}

ofx::Status sayForLong(void* handle, const char* type, const char*, const char* format, ...) {
  va_list words;
  va_start(words, format);
  const ofx::Status status = note(handle, true, type, format, words);
  va_end(words);
  return status;
}

const ofx::MessageSuite messageSuite = {sayOnce, sayForLong, [](void* handle) -> ofx::Status {
                                          auto* effect = static_cast<EffectState*>(handle);
                                          const std::lock_guard guarded(effect->lock);
                                          effect->noteStays = false;
                                          return ofx::ok;
                                        }};

// --- overlays

const ofx::InteractSuite interactSuite = {
    nullptr, [](ofx::Interact) -> ofx::Status { return ofx::ok; },
    [](ofx::Interact interact, ofx::PropertySet* props) -> ofx::Status {
      *props = reinterpret_cast<EffectState*>(interact)->props.handle();
      return ofx::ok;
    }};

const ofx::DrawSuite drawSuite = {
    [](ofx::DrawContext, int, ofx::DrawSuite::Colour*) -> ofx::Status { return ofx::ok; },
    [](ofx::DrawContext, const ofx::DrawSuite::Colour*) -> ofx::Status { return ofx::ok; },
    [](ofx::DrawContext, float) -> ofx::Status { return ofx::ok; },
    nullptr,
    [](ofx::DrawContext, int, const ofx::PointD* points, int count) -> ofx::Status {
      current->drawn.emplace_back(points, points + count);
      return ofx::ok;
    },
    nullptr};

}  // namespace

void lendSuitesOf(OfxHost* host) { current = host; }

const void* fetchSuite(ofx::PropertySet, const char* name, int version) {
  const std::string suite = name;
  const Manners& manners = current->manners;
  if (suite == "OfxMessageSuite") {
    return manners.messageSuite && version <= manners.messageVersion ? &messageSuite : nullptr;
  }
  if (version != 1) return nullptr;
  if (suite == "OfxPropertySuite") return manners.propertySuite ? &propertySuite : nullptr;
  if (suite == "OfxImageEffectSuite") return manners.effectSuite ? &effectSuite : nullptr;
  if (suite == "OfxParameterSuite") return manners.parameterSuite ? &parameterSuite : nullptr;
  if (suite == "OfxInteractSuite") return manners.drawSuite ? &interactSuite : nullptr;
  if (suite == "OfxDrawSuite") return manners.drawSuite ? &drawSuite : nullptr;
  if (suite == "OfxMultiThreadSuite") return manners.threadSuite ? &threadSuite : nullptr;
  return nullptr;
}

}  // namespace ofxTest
