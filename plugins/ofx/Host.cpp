// SPDX-License-Identifier: BSD-3-Clause
//
// Suites and properties of the host; see Host.h.
#include "plugins/ofx/Host.h"

namespace orvanite::ofxPlugin {

namespace {

HostSuites suites;

template <class Suite>
const Suite* fetch(const ofx::Host& from, int version) {
  return static_cast<const Suite*>(from.fetchSuite(from.properties, Suite::name, version));
}

}  // namespace

const HostSuites& host() { return suites; }

void connect(const ofx::Host* from) {
  suites = {};
  if (!from || !from->fetchSuite) return;
  suites.property = fetch<ofx::PropertySuite>(*from, 1);
  suites.effect = fetch<ofx::ImageEffectSuite>(*from, 1);
  suites.parameter = fetch<ofx::ParameterSuite>(*from, 1);
  suites.thread = fetch<ofx::MultiThreadSuite>(*from, 1);
  suites.message = fetch<ofx::MessageSuite>(*from, 2);
  suites.persistentMessages = suites.message != nullptr;
  if (!suites.message) suites.message = fetch<ofx::MessageSuite>(*from, 1);
  suites.interact = fetch<ofx::InteractSuite>(*from, 1);
  suites.draw = fetch<ofx::DrawSuite>(*from, 1);
  if (!suites.property || !from->properties) return;
  const Properties properties(from->properties);
  suites.textChoices = properties.integer(ofx::prop::hasTextChoice, 0) != 0;
  // MLT makes a rectangle on the picture of every parameter of three numbers.
  suites.showsTriplesAsRectangles = properties.text(ofx::prop::name) == "MLT";
}

int Properties::integer(const char* name, int fallback, int index) const {
  int value = fallback;
  if (!handle_ || suites.property->getInt(handle_, name, index, &value) != ofx::ok) return fallback;
  return value;
}

double Properties::real(const char* name, double fallback, int index) const {
  double value = fallback;
  if (!handle_ || suites.property->getDouble(handle_, name, index, &value) != ofx::ok) {
    return fallback;
  }
  return value;
}

std::string Properties::text(const char* name, int index) const {
  char* value = nullptr;
  if (!handle_ || suites.property->getString(handle_, name, index, &value) != ofx::ok) return {};
  return value ? value : "";
}

void* Properties::pointer(const char* name) const {
  void* value = nullptr;
  if (!handle_ || suites.property->getPointer(handle_, name, 0, &value) != ofx::ok) return nullptr;
  return value;
}

std::optional<ofx::RectI> Properties::rectI(const char* name) const {
  ofx::RectI rect{};
  int* const sides[] = {&rect.x1, &rect.y1, &rect.x2, &rect.y2};
  for (int i = 0; i < 4; ++i) {
    if (!handle_ || suites.property->getInt(handle_, name, i, sides[i]) != ofx::ok) return {};
  }
  return rect;
}

std::optional<ofx::RectD> Properties::rectD(const char* name) const {
  ofx::RectD rect{};
  double* const sides[] = {&rect.x1, &rect.y1, &rect.x2, &rect.y2};
  for (int i = 0; i < 4; ++i) {
    if (!handle_ || suites.property->getDouble(handle_, name, i, sides[i]) != ofx::ok) return {};
  }
  return rect;
}

bool Properties::set(const char* name, int value, int index) const {
  return handle_ && suites.property->setInt(handle_, name, index, value) == ofx::ok;
}

bool Properties::set(const char* name, double value, int index) const {
  return handle_ && suites.property->setDouble(handle_, name, index, value) == ofx::ok;
}

bool Properties::set(const char* name, const char* value, int index) const {
  return handle_ && suites.property->setString(handle_, name, index, value) == ofx::ok;
}

bool Properties::set(const char* name, const ofx::RectD& value) const {
  const double sides[] = {value.x1, value.y1, value.x2, value.y2};
  for (int i = 0; i < 4; ++i) {
    if (!set(name, sides[i], i)) return false;
  }
  return true;
}

bool Properties::setPointer(const char* name, void* value) const {
  return handle_ && suites.property->setPointer(handle_, name, 0, value) == ofx::ok;
}

Properties propertiesOf(ofx::Effect effect) {
  ofx::PropertySet set = nullptr;
  if (!effect || suites.effect->getPropertySet(effect, &set) != ofx::ok) set = nullptr;
  return Properties(set);
}

void say(ofx::Effect effect, const char* type, const std::string& text) {
  if (!suites.message) return;
  if (suites.persistentMessages && suites.message->setPersistent) {
    suites.message->setPersistent(effect, type, "", "%s", text.c_str());
  } else if (suites.message->message) {
    suites.message->message(effect, type, "", "%s", text.c_str());
  }
}

void unsay(ofx::Effect effect) {
  if (suites.persistentMessages && suites.message->clearPersistent) {
    suites.message->clearPersistent(effect);
  }
}

}  // namespace orvanite::ofxPlugin
