// SPDX-License-Identifier: BSD-3-Clause
#include "tests/plugins/OfxHost.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "tests/plugins/OfxSuites.h"

namespace ofxTest {

OfxHost::OfxHost(Manners how) : manners(how) {
  lendSuitesOf(this);
  host_.properties = hostProps_.handle();
  hostProps_.set("OfxPropName", manners.name)
      .set("OfxParamHostPropSupportsStrChoice", manners.textChoices ? 1 : 0);
  host_.fetchSuite = fetchSuite;
}

OfxHost::~OfxHost() {
  if (binary_) unload();
  lendSuitesOf(nullptr);
}

ofx::Status OfxHost::load() {
  binary_ = dlopen(ORVANITE_OFX_BINARY, RTLD_NOW | RTLD_LOCAL);
  if (!binary_) {
    ADD_FAILURE() << dlerror();
    return ofx::failed;
  }
  const auto count = reinterpret_cast<int (*)()>(dlsym(binary_, "OfxGetNumberOfPlugins"));
  const auto get = reinterpret_cast<ofx::Plugin* (*)(int)>(dlsym(binary_, "OfxGetPlugin"));
  const auto set =
      reinterpret_cast<ofx::Status (*)(const ofx::Host*)>(dlsym(binary_, "OfxSetHost"));
  EXPECT_EQ(set(&host_), ofx::ok);
  EXPECT_EQ(count(), 1);
  EXPECT_EQ(get(1), nullptr);
  EXPECT_EQ(get(-1), nullptr);
  plugin = get(0);
  plugin->setHost(&host_);
  return call("OfxActionLoad", nullptr);
}

void OfxHost::unload() {
  call("OfxActionUnload", nullptr);
  dlclose(binary_);
  binary_ = nullptr;
  plugin = nullptr;
}

bool OfxHost::unloaded() const {
  void* const still = dlopen(ORVANITE_OFX_BINARY, RTLD_NOW | RTLD_NOLOAD);
  if (still) dlclose(still);
  return !still;
}

ofx::Status OfxHost::call(const char* action, void* handle, Props* in, Props* out) {
  return plugin->mainEntry(action, handle, in ? in->handle() : nullptr,
                           out ? out->handle() : nullptr);
}

std::unique_ptr<EffectState> OfxHost::describe(const std::string& context) {
  auto effect = std::make_unique<EffectState>();
  EXPECT_EQ(call("OfxActionDescribe", effect.get()), ofx::ok);
  Props in;
  in.set("OfxImageEffectPropContext", context);
  EXPECT_EQ(call("OfxImageEffectActionDescribeInContext", effect.get(), &in), ofx::ok);
  return effect;
}

std::unique_ptr<EffectState> OfxHost::instantiate(const EffectState& descriptor,
                                                  const std::string& context) {
  auto effect = std::make_unique<EffectState>();
  effect->props.set("OfxImageEffectPropContext", context);
  effect->params = descriptor.params;
  for (auto& [name, param] : effect->params) {
    const auto at = param.props.values.find("OfxParamPropDefault");
    if (at != param.props.values.end()) param.value = at->second;
  }
  for (const auto& [name, clip] : descriptor.clips) {
    ClipState& state = effect->clips[name];
    state.props = clip.props;
    state.props.set("OfxImageClipPropConnected", 0);
    state.props.set("OfxImageEffectPropPixelDepth", std::string("OfxBitDepthNone"));
  }
  return effect;
}

ofx::Status OfxHost::render(EffectState& effect, const ofx::RectI& window, double time,
                            const char* field, double scale) {
  Props in;
  in.set("OfxPropTime", time)
      .set("OfxImageEffectPropFieldToRender", std::string(field))
      .setInts("OfxImageEffectPropRenderWindow", {window.x1, window.y1, window.x2, window.y2})
      .setDoubles("OfxImageEffectPropRenderScale", {scale, scale});
  return call("OfxImageEffectActionRender", &effect, &in);
}

ofx::Status OfxHost::changed(EffectState& effect, const std::string& param, const char* reason) {
  Props in;
  in.set("OfxPropType", std::string("OfxTypeParameter"))
      .set("OfxPropName", param)
      .set("OfxPropChangeReason", std::string(reason))
      .set("OfxPropTime", 0.0);
  return call("OfxActionInstanceChanged", &effect, &in);
}

void connect(EffectState& effect, const std::string& name, std::shared_ptr<HostImage> image,
             const char* premultiplication) {
  ClipState& clip = effect.clips[name];
  const Layout& layout = image->layout();
  clip.props.set("OfxImageClipPropConnected", 1)
      .set("OfxImageEffectPropPixelDepth", std::string(depthName(layout.depth, layout.half)))
      .set("OfxImageEffectPropComponents", std::string(componentsName(layout.channels)))
      .set("OfxImageEffectPropPreMultiplication", std::string(premultiplication));
  clip.region = {static_cast<double>(layout.bounds.x1), static_cast<double>(layout.bounds.y1),
                 static_cast<double>(layout.bounds.x2), static_cast<double>(layout.bounds.y2)};
  clip.image = [image](double) { return image; };
}

}  // namespace ofxTest
