// SPDX-License-Identifier: BSD-3-Clause
//
// The keyer as a frei0r effect: the parameter table in frei0r's terms, and one instance that keys
// 8-bit frames. What differs between the filter and the mixer is in a Kind.
// An instance may be updated on several threads at once, as hosts do that cut frames into slices;
// setting a parameter beside that is safe too: a frame has the old value or the new one.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "keyer/Settings.h"
#include "plugins/EnginePool.h"
#include "plugins/FrameKeyers.h"

namespace orvanite::frei0rPlugin {

/// What kind of effect a binary is.
struct Kind {
  int pluginType;  // F0R_PLUGIN_TYPE_FILTER or ..._MIXER2
  const char* name;
  const char* explanation;
  std::string_view defaultOutput;  // the output that suits the host's chain
  bool background;                 // whether there is a background picture
};

/// This binary's kind.
const Kind& kind();

/// One parameter as frei0r shows it: a table entry, one channel of one, or the switch that finds
/// the screen, without an entry.
struct Control {
  const Parameter* parameter;
  int channel;  // of a triple; 0 otherwise
  int type;     // F0R_PARAM_*
  std::string name;
  std::string explanation;
};

/// What `estimate` is beside the table's texts, and by default: as the found screen has it.
inline constexpr std::string_view automaticEstimate = "automatic";

/// The table's parameters that frei0r can carry, in the table's order. A host's panel shows them
/// by index, so entries are only ever added at the end of the table's groups with a new major
/// version.
const std::vector<Control>& controls();

/// frei0r's 0..1 of a number, over the span that a slider of the table has, and back. Values
/// outside 0..1 go on beyond that span, as far as the parameter allows.
double toUnit(const Parameter& parameter, double value);
double fromUnit(const Parameter& parameter, double unit);

class FrameCrew;

class Effect {
 public:
  Effect(unsigned int width, unsigned int height);

  /// From and to frei0r's own representation of a control's type. What cannot be is ignored.
  void set(int control, const void* value);
  void get(int control, void* value);

  /// Keys a frame of RGBA pixels; `background` is null where there is none. Input and output may
  /// be the same frame. Settings that cannot key give the plate as it is.
  /// While the switch is on and no screen colour was given, the first frame that shows a screen
  /// sets what makes the key, for that frame and all later ones; what was given stays. Unless
  /// estimates are ruled out they are looked for there as well, and carried to each frame.
  void update(const std::uint32_t* plate, const std::uint32_t* background, std::uint32_t* out);

 private:
  /// What a frame is keyed with.
  struct Key {
    Settings settings;
    std::shared_ptr<const BlindKey> estimates;  // of the first frame; null: none
  };
  Key keyFor(const std::uint32_t* plate, const Inputs& inputs, FrameCrew& crew);
  void forgetFound();
  bool render(const Key& key, const Inputs& inputs, const Otile& pictures, FrameCrew& crew);

  int width_, height_;
  std::mutex lock_;  // over what follows, up to texts_
  Settings settings_;
  bool findsScreen_ = true;
  // Of the first frame that showed a screen: what was set, to which values, and the estimates.
  std::vector<std::string> foundNames_;
  Settings foundValues_;
  std::shared_ptr<const BlindKey> estimates_;
  std::vector<std::string> texts_;  // what get handed out last, per control
  EnginePool engines_;
  FrameKeyers frames_;
  std::atomic<bool> crewOut_ = false;  // a frame of this instance has threads
};

}  // namespace orvanite::frei0rPlugin
