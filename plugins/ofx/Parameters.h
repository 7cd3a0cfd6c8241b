// SPDX-License-Identifier: BSD-3-Clause
//
// The parameters of one instance: read as settings at any time, written as one step of the host's
// undo. Description.h says which there are.
#pragma once

#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "keyer/Mattes.h"
#include "keyer/Settings.h"
#include "plugins/ofx/Description.h"
#include "plugins/ofx/OfxApi.h"

namespace orvanite::ofxPlugin {

/// What a host's panel adds to the settings. None of it moves over time.
struct PanelChoices {
  bool intermediate = false;   // the output is the plate's colours with the matte in alpha
  bool premultiplied = false;  // the output Foreground is multiplied by its matte
  bool sizedByBackground = false;
  SourceAlpha sourceAlpha = SourceAlpha::ignore;
  MatteChannel holdChannel = MatteChannel::automatic;
  MatteChannel garbageChannel = MatteChannel::automatic;
};

/// The parameters of one instance. Reading them is as safe on several threads as the host makes it.
class InstanceParameters {
 public:
  /// Looks the parameters up; one that the host does not know (settings of another version) reads
  /// as its default.
  InstanceParameters(ofx::Effect instance, bool filter);

  /// Settings at a time. Values outside a parameter's range are moved to its ends. A balance that
  /// has the value that was put there follows the screen, whether or not the host told of edits.
  /// Throws Error (wrongUse) for a value that is no number.
  Settings at(ofx::Time time) const;

  /// What the panel adds.
  PanelChoices choices() const;

  /// The output's identifier: a text of the table, or intermediateOutput.
  std::string output() const;

  /// The box to measure the screen in, on the canonical plane; none when it is switched off.
  std::optional<ofx::RectD> box(ofx::Time time) const;
  /// Moves it.
  void moveBox(const ofx::RectD& box) const;

  /// The file that presets are loaded from and saved to.
  std::string presetFile() const;

  /// Writes the named parameters' values as one step of the host's undo: at this time where a
  /// parameter moves, for all times where it does not. Balances that follow the screen go along.
  void write(const Settings& settings, std::span<const std::string> names, ofx::Time time,
             const char* step) const;

  /// Shows in the balances that follow the screen what is in force there.
  void followScreen(ofx::Time time) const;

  /// Writes this version's name where another one stands.
  void stampVersion() const;

 private:
  using Handles = std::array<ofx::Param, 3>;  // one, or three sliders of a triple

  ofx::Param find(const char* name) const;
  bool readNumbers(std::size_t entry, ofx::Time time, std::array<double, 3>& numbers) const;
  int indexOf(ofx::Param param, std::span<const ChoiceEntry> entries, int fallback) const;
  std::string text(ofx::Param param) const;
  float shownBalance() const;
  bool follows(std::size_t entry, double value, float shown) const;
  void writeOne(std::size_t entry, const Settings& settings, ofx::Time time) const;
  void showBalance(float wanted, std::span<const std::string> but, ofx::Time time) const;

  bool filter_;
  ofx::ParamSet set_ = nullptr;
  std::vector<Handles> params_;  // as parameters() orders them; null where the host has none
  std::vector<std::vector<ChoiceEntry>> entries_;  // likewise
  ofx::Param clipMode_, premultiplication_, sourceAlpha_, box_, boxPosition_, boxSize_;
  ofx::Param presetFile_, version_, shownBalance_;
};

}  // namespace orvanite::ofxPlugin
