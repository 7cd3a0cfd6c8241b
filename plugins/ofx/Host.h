// SPDX-License-Identifier: BSD-3-Clause
//
// The host as the plug-in sees it: its suites, and properties read and written without trust.
// A host may lack a suite, a property or a value: readers give the caller's fallback then, and
// writers shrug, because what we describe is advice unless `Host::ready` asked for it.
#pragma once

#include <optional>
#include <string>

#include "plugins/ofx/OfxApi.h"

namespace orvanite::ofxPlugin {

/// The suites of the one host of this process. Set by `connect`, read-only from then on.
struct HostSuites {
  const ofx::PropertySuite* property = nullptr;
  const ofx::ImageEffectSuite* effect = nullptr;
  const ofx::ParameterSuite* parameter = nullptr;
  const ofx::MultiThreadSuite* thread = nullptr;  // null: render on the calling thread
  const ofx::MessageSuite* message = nullptr;     // null: no words to the user
  const ofx::InteractSuite* interact = nullptr;   // null: overlays are not redrawn by us
  const ofx::DrawSuite* draw = nullptr;           // null: no overlays
  bool persistentMessages = false;                // `message` is of version 2
  bool textChoices = false;                       // choices may be saved by identifiers
  bool showsTriplesAsRectangles = false;          // three numbers are better three sliders

  /// Whether the suites that nothing works without are there.
  bool ready() const { return property && effect && parameter; }
};

/// The process's suites.
const HostSuites& host();

/// Fetches the suites of `from`; null forgets them. Not to run beside any other call.
void connect(const ofx::Host* from);

/// A set of properties, read with fallbacks and written with goodwill. A null handle reads as
/// empty and takes no writes.
class Properties {
 public:
  explicit Properties(ofx::PropertySet handle) : handle_(handle) {}

  ofx::PropertySet handle() const { return handle_; }

  int integer(const char* name, int fallback, int index = 0) const;
  double real(const char* name, double fallback, int index = 0) const;
  std::string text(const char* name, int index = 0) const;  // empty when there is none
  void* pointer(const char* name) const;                    // null when there is none
  std::optional<ofx::RectI> rectI(const char* name) const;
  std::optional<ofx::RectD> rectD(const char* name) const;

  bool set(const char* name, int value, int index = 0) const;
  bool set(const char* name, double value, int index = 0) const;
  bool set(const char* name, const char* value, int index = 0) const;
  bool set(const char* name, const ofx::RectD& value) const;
  bool setPointer(const char* name, void* value) const;

 private:
  ofx::PropertySet handle_;
};

/// The properties of a descriptor or an instance; an empty set when the handle is bad.
Properties propertiesOf(ofx::Effect effect);

/// Leaves a note of `type` on the effect, or says it once where notes cannot stay.
void say(ofx::Effect effect, const char* type, const std::string& text);

/// Takes the note away.
void unsay(ofx::Effect effect);

}  // namespace orvanite::ofxPlugin
