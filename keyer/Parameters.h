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

enum class ParameterType {
  number,  // one value
  triple,  // one value a channel, usually moved together: an amount, not a colour to pick
  colour,  // red, green, blue in the pictures' encoding: a colour to pick
  choice,  // one of a few texts
  toggle,  // 0 or 1
  channel  // the name or the letter of a picture's channel
};

enum class DefaultRule {
  fixed,
  // 0.9 where the screen is bluer than green and 0.5 otherwise, for as long as no value is given.
  // `defaults` holds the value that goes with the default screen colour.
  balanceOfScreen
};

struct Choice {
  std::string_view text;   // as options, presets and scripts spell it
  std::string_view label;  // as a menu shows it
  std::string_view help;
};

struct Parameter {
  std::string_view name;  // camel case; an option is its kebab-case form
  std::string_view label;
  std::string_view group;
  ParameterType type;
  std::string_view unit;            // empty where a value has none
  float softLow, softHigh;          // what a slider spans
  float low, high;                  // what is accepted
  std::array<float, 3> defaults;    // a choice: the index of its text; a single value: the first
  std::string_view defaultText;     // a channel's
  std::span<const Choice> choices;  // a choice's
  // The node's plugs that hold the value, one a channel or the first alone; empty: the node has
  // none and keeps the default.
  std::array<std::string_view, 3> plugs;
  DefaultRule rule;
  std::string_view help;
};

/// Every parameter, in the order in which a panel shows them; those of a group stand together.
std::span<const Parameter> parameters();

/// The entry of that name (exact case), or null.
const Parameter* findParameter(std::string_view name);

/// How many values a parameter of this type has: 3, 1, or 0 for a channel's name.
int valuesOf(ParameterType type);

/// The candidate that a mistyped word most likely meant; empty when none is near.
std::string_view nearest(std::string_view word, std::span<const std::string_view> candidates);

}  // namespace orvanite
