// SPDX-License-Identifier: BSD-3-Clause
//
// The keyer's parameter table as OpenFX parameters: what a host is told of them.
// Beside the table's own there are those that only a host's panel needs: how the output's colour
// stands to its alpha, what the plate's own alpha does, buttons, a box to measure the screen in, a
// preset's file, and the version that saved the settings.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "keyer/Parameters.h"
#include "plugins/ofx/OfxApi.h"

namespace orvanite::ofxPlugin {

inline constexpr const char* clipModeParam = "clipMode";
inline constexpr const char* premultiplicationParam = "premultiplication";
inline constexpr const char* sourceAlphaParam = "sourceAlpha";
inline constexpr const char* autoButton = "autoKey";
inline constexpr const char* sampleButton = "sampleScreen";
inline constexpr const char* boxParam = "sampleBox";
inline constexpr const char* boxPositionParam = "boxPosition";
inline constexpr const char* boxSizeParam = "boxSize";
inline constexpr const char* presetFileParam = "presetFile";
inline constexpr const char* loadButton = "loadPreset";
inline constexpr const char* saveButton = "savePreset";
inline constexpr const char* versionParam = "version";
// The value that the plug-in put into balances that follow the screen; not shown.
inline constexpr const char* shownBalanceParam = "shownBalance";

/// The output that the table does not have: the plate's own colours, with the matte in alpha.
inline constexpr std::string_view intermediateOutput = "intermediate";

/// One entry of a choice: what is saved, and what is shown.
struct ChoiceEntry {
  std::string id;
  std::string label;
};

/// The entries of a parameter of the table as this plug-in has it; empty for one that is no choice.
std::vector<ChoiceEntry> entriesOf(const Parameter& parameter);

/// The entries of the choices that are the plug-in's own, as their types count them.
const std::vector<ChoiceEntry>& clipModeEntries();
const std::vector<ChoiceEntry>& premultiplicationEntries();
const std::vector<ChoiceEntry>& sourceAlphaEntries();

/// The entry of the output that a fresh instance has.
int defaultOutput(bool filter);

/// What follows a triple's name in the names of its three sliders, where a host has no triples or
/// shows them as rectangles.
inline constexpr std::array<const char*, 3> sliderSuffixes = {"R", "G", "B"};

/// Defines groups, pages and parameters on a descriptor. Defining them again changes nothing; one
/// of a kind that the host does not have is left out and keeps its default.
///
/// filter  whether the effect is described for the filter context, whose default output is the
///         foreground in straight alpha: what a host lays over the track below
ofx::Status describeParameters(ofx::Effect descriptor, bool filter);

}  // namespace orvanite::ofxPlugin
