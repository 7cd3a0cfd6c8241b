// SPDX-License-Identifier: BSD-3-Clause
//
// A keyer's parameters as one plain value: read and written by name, checked as they are written,
// handed to an engine as a whole in the order in which the node hands over its own.
// Knows the parameter table and the engine's flat interface.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "base/Curve.h"
#include "base/Depth.h"
#include "engine/View.h"
#include "engine/orvanite.h"
#include "keyer/Parameters.h"

namespace orvanite {

/// Which pictures there are beside the plate.
struct Inputs {
  bool background = false;  // a picture to put behind
  bool holdOut = false;     // a matte that keeps
  bool garbage = false;     // a matte that cuts
  bool reference = false;   // a clean plate
  /// Whether the same pictures are there.
  bool operator==(const Inputs&) const = default;
};

/// A value for every parameter. Numbers may move from frame to frame: they are curves then, and
/// their value is that of the first key until `at` is asked for a frame's.
/// One thread at a time; copies are independent.
class Settings {
 public:
  /// Every parameter at its default.
  Settings();

  /// Sets a parameter from its text: a number, three as "R,G,B" (one stands for all three), each
  /// of which may be a curve, such as "linear(time, 1@0.02, 24@0.08)"; a choice's text, "on",
  /// "off", 1 or 0, or a channel's name.
  /// Numbers are kept to four decimals, as the node keeps them. Throws Error (wrongUse) that names
  /// the parameter, what was found and what was expected; nothing changes then.
  void setText(std::string_view name, std::string_view text);

  /// The same from numbers; one number sets all channels. A choice takes its index.
  void setNumber(std::string_view name, double value);
  /// Three numbers, one a channel.
  void setNumbers(std::string_view name, double r, double g, double b);

  /// The value in force: the one given, or the default.
  float number(std::string_view name, int channel = 0) const;
  /// Whether a toggle is on.
  bool toggle(std::string_view name) const { return number(name) != 0; }
  /// The text of a choice.
  std::string_view choice(std::string_view name) const;

  /// The value in force as text that setText takes and that gives the same value back.
  std::string text(std::string_view name) const;

  /// Whether a parameter moves.
  bool moves(std::string_view name) const;
  bool moves() const;  ///< Any of them.
  /// The text of one channel's value, as scripts hold it: a number or a curve.
  std::string channelText(std::string_view name, int channel) const;
  /// Throws Error (wrongUse) about a parameter that moves.
  void expectStill() const;
  /// The settings of a frame, in which nothing moves.
  Settings at(double frame) const;

  /// Whether a value was given since the last reset.
  bool given(std::string_view name) const;
  /// Back to the default, as if it had never been given.
  void reset(std::string_view name);

  /// Sets every parameter and code maximum of an engine, for pictures of a depth, of which
  /// those in `inputs` exist. A composite without a background becomes one over black.
  /// The engine's tables are not built. Only changed values make it work.
  void applyTo(QMXOrvaniteTable* engine, Depth depth, const Inputs& inputs) const;

  /// The view that the engine shows for these settings.
  View view(const Inputs& inputs) const;

  /// Why no engine could key with these settings; empty when nothing is known against them.
  /// Engines find out for themselves; this says it in time and in words.
  std::string screenProblem() const;

  /// Same values in force and same ones given.
  bool operator==(const Settings&) const = default;

 private:
  struct Value {
    std::array<float, 3> numbers{};
    std::array<Curve, 3> curves{};
    std::string text;
    bool given = false;
    bool operator==(const Value&) const = default;
  };

  const Value& value(std::string_view name) const;

  std::vector<Value> values_;  // as parameters() orders them
};

/// What a result of orvanite_makeLuts other than 0 means, in words.
std::string tableProblem(int result);

}  // namespace orvanite
