// SPDX-License-Identifier: BSD-3-Clause
//
// The keyer's parameter table as OpenFX parameters: described once, read as settings at any time.
// Beside the table's own there are three that only a host's panel needs: which picture gives the
// output its size, the button that measures the screen, and the version that saved the settings.
#pragma once

#include <vector>

#include "keyer/Settings.h"
#include "plugins/ofx/ofxApi.h"

namespace orvanite::ofxPlugin {

inline constexpr const char* clipModeParam = "clipMode";
inline constexpr const char* sampleButton = "sampleScreen";
inline constexpr const char* versionParam = "version";

/// Defines groups, pages and parameters on a descriptor. Defining them again changes nothing; one
/// of a kind that the host does not have is left out and keeps its default.
ofx::Status describeParameters(ofx::Effect descriptor);

/// The parameters of one instance. Reading them is as safe on several threads as the host makes it.
class InstanceParameters {
 public:
  /// Looks the parameters up; one that the host does not know (settings of another version) reads
  /// as its default.
  explicit InstanceParameters(ofx::Effect instance);

  /// Settings at a time. Values outside a parameter's range are moved to its ends.
  /// Throws Error (wrongUse) for a value that is no number.
  Settings at(ofx::Time time) const;

  /// The value of a choice parameter that does not move over time, as its text.
  std::string_view choice(std::string_view name) const;

  /// Whether the output has the background's size.
  bool sizedByBackground() const;

  /// Writes a colour as one step of the host's undo.
  void setScreen(double r, double g, double b, ofx::Time time) const;

  /// Moves the balances that follow the screen's hue when the screen goes from one hue to another;
  /// those that were set to something else, or that move over time, stay.
  void followScreen(ofx::Time time);

  /// Writes this version's name where another one stands.
  void stampVersion() const;

 private:
  float balanceAt(ofx::Time time) const;

  ofx::ParamSet set_ = nullptr;
  std::vector<ofx::Param> params_;  // as parameters() orders them; null where the host has none
  ofx::Param clipMode_ = nullptr;
  ofx::Param version_ = nullptr;
  float followed_ = 0;  // the balance that went with the screen colour last seen
};

}  // namespace orvanite::ofxPlugin
