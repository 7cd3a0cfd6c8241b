// SPDX-License-Identifier: BSD-3-Clause
//
// One keyer in a host's graph: its clips, its parameters, its engines, and the answers to the
// actions that a host asks of an instance. Every action may run beside every other on the same
// instance, except that the host changes and destroys an instance while nothing else runs on it.
#pragma once

#include <atomic>
#include <optional>
#include <string>

#include "plugins/EnginePool.h"
#include "plugins/ofx/host.h"
#include "plugins/ofx/ofxApi.h"
#include "plugins/ofx/parameters.h"

namespace orvanite::ofxPlugin {

// The clips that the standard does not name.
inline constexpr const char* backgroundClip = "Bg";
inline constexpr const char* holdOutClip = "HoldOutMatte";
inline constexpr const char* garbageClip = "GarbageMatte";
inline constexpr const char* referenceClip = "Reference";

class Instance {
 public:
  /// Looks clips and parameters up. Throws Error when the host has no Source or no Output.
  explicit Instance(ofx::Effect effect);

  // Each answers the action of its name; what it throws, the entry point turns into a status.
  ofx::Status getClipPreferences(Properties out) const;
  ofx::Status getRegionOfDefinition(Properties in, Properties out) const;
  ofx::Status getRegionsOfInterest(Properties in, Properties out) const;
  ofx::Status isIdentity(Properties in, Properties out);
  ofx::Status render(Properties in);
  ofx::Status changed(Properties in);
  ofx::Status purge();
  ofx::Status sync() const;

  /// Tells the user once; a second problem of the same words is not repeated.
  void report(const char* type, const std::string& text);

 private:
  struct ClipRef {
    ofx::Clip clip = nullptr;
    ofx::PropertySet properties = nullptr;
    bool connected() const;
    std::string_view components() const;
  };

  ClipRef find(const char* name) const;
  Inputs inputsFor(const Settings& settings) const;
  /// Why settings cannot key pictures of a depth; empty when they can.
  std::string problemOf(const Settings& settings, int depth, const Inputs& inputs) const;
  ofx::Status sampleScreen(ofx::Time time);
  void clearReport();

  ofx::Effect effect_;
  bool general_;  // in the general context the output's components are ours to choose
  ClipRef source_, output_, background_, holdOut_, garbage_, reference_;
  InstanceParameters parameters_;
  EnginePool engines_;
  std::mutex reportLock_;
  std::string reported_;  // under reportLock_
};

}  // namespace orvanite::ofxPlugin
