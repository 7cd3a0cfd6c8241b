// SPDX-License-Identifier: BSD-3-Clause
//
// The one table of the keyer's parameters. Command-line options, presets, plug-in parameters, page
// controls and scripts are made from it, so that a parameter is declared once.
// Uses the standard library only.
#pragma once

#include <array>
#include <span>
#include <string_view>

namespace orvanite {

/// What a parameter's values are.
enum class ParameterType {
  number,  // one value
  triple,  // one value a channel, usually moved together: an amount, not a colour to pick
  colour,  // red, green, blue in the pictures' encoding: a colour to pick
  choice,  // one of a few texts
  toggle,  // 0 or 1
  channel  // the name or the letter of a picture's channel
};

/// Where a default comes from.
enum class DefaultRule {
  fixed,
  // 0.9 where the screen is bluer than green and 0.5 otherwise, for as long as no value is given.
  // `defaults` holds the value that goes with the default screen colour.
  balanceOfScreen
};

/// One of the texts that a choice may take.
struct Choice {
  std::string_view text;   // as options, presets and scripts spell it
  std::string_view label;  // as a menu shows it
  std::string_view help;   // a sentence for a reader of help and tooltips
};

/// What stands together in a panel. Nobody reads a meaning out of a heading: it may be renamed.
struct Group {
  std::string_view name;     // camel case; stays the same when the heading does not
  std::string_view heading;  // as a panel shows it
};

/// The step of the work that a parameter belongs to.
enum class Stage {
  view,     // how pictures are read and what the result shows
  key,      // the matte, and the screen's colour taken out
  grade,    // the colours of what is kept, or of what lies behind
  finish,   // what is done to the keyed matte and colours afterwards, with a look at what is around
  estimate  // what is found in whole plates beforehand: for front ends that look at them
};

/// The picture beside the plate that a parameter is about.
enum class SidePicture { none, background, holdOut, garbage, cleanPlate };

/// What front ends want to know of a parameter beyond its values.
struct Meaning {
  Stage stage = Stage::key;               // of the work
  SidePicture needs = SidePicture::none;  // without it the parameter changes nothing
  bool followsScreen = false;             // starts anew when the screen is looked for

  /// Whether it takes whole frames: hosts that hand over parts of one cannot have it.
  bool ofWholeFrames() const { return stage == Stage::finish || stage == Stage::estimate; }
};

/// A parameter as every front end shows and checks it.
struct Parameter {
  std::string_view name;            // camel case; an option is its kebab-case form
  std::string_view label;           // as a panel shows it
  const Group& group;               // what it stands with
  ParameterType type;               // what its values are
  std::string_view unit;            // empty where a value has none
  float softLow;                    // what a slider spans, from
  float softHigh;                   // and to
  float low;                        // what is accepted, from
  float high;                       // and to
  std::array<float, 3> defaults;    // a choice: the index of its text; a single value: the first
  std::string_view defaultText;     // a channel's
  std::span<const Choice> choices;  // a choice's
  // The node's plugs that hold the value, one a channel or the first alone; empty: the node has
  // none and keeps the default.
  std::array<std::string_view, 3> plugs;
  DefaultRule rule;       // where its default comes from
  Meaning meaning;        // what front ends go by
  std::string_view help;  // a sentence or two for who meets it first
};

/// Every parameter, in the order in which a panel shows them; those of a group stand together.
std::span<const Parameter> parameters();

/// Whether a picture of that "output" has the matte beside its colours; every other one is as it
/// looks.
constexpr bool isCutOut(std::string_view output) { return output == "unpremultiplied"; }

/// The entry of that name (exact case), or null.
const Parameter* findParameter(std::string_view name);

/// How many values a parameter of this type has: 3, 1, or 0 for a channel's name.
int valuesOf(ParameterType type);

/// The candidate that a mistyped word most likely meant; empty when none is near.
std::string_view nearest(std::string_view word, std::span<const std::string_view> candidates);

}  // namespace orvanite
