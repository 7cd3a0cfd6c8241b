// SPDX-License-Identifier: BSD-3-Clause
//
// One keyer in a host's graph: its clips, its parameters, its engines, and the answers to the
// actions that a host asks of an instance. Every action may run beside every other on the same
// instance, except that the host changes and destroys an instance while nothing else runs on it.
#pragma once

#include <array>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "plugins/EnginePool.h"
#include "plugins/FrameKeyers.h"
#include "plugins/ofx/Host.h"
#include "plugins/ofx/Images.h"
#include "plugins/ofx/OfxApi.h"
#include "plugins/ofx/Parameters.h"

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

  /// The box that an overlay shows, on the canonical plane; none when it is switched off.
  std::optional<ofx::RectD> box(ofx::Time time) const { return parameters_.box(time); }
  void moveBox(const ofx::RectD& box) const { parameters_.moveBox(box); }

 private:
  struct ClipRef {
    ofx::Clip clip = nullptr;
    ofx::PropertySet properties = nullptr;
    bool connected() const;
    std::string components() const;
  };

  ClipRef find(const char* name) const;
  /// What is asked of an engine for a frame.
  struct Request {
    Settings settings;
    PanelChoices panel;
    Inputs inputs;
    bool holdPicture = false;     // whether the hold-out clip's picture is used,
    bool garbagePicture = false;  // and the garbage matte's

    /// Whether it is keyed beside estimates of the whole plate.
    bool beside() const { return keysBesideEstimates(settings, inputs); }
  };

  Request requestAt(ofx::Time time) const;
  /// The estimates of a job's plate, kept for the pictures that were asked for last; null where it
  /// shows no screen.
  std::shared_ptr<const BlindKey> estimatesOf(const WindowJob& job, const Image& image,
                                              const Settings& settings);
  ofx::RectI wholeOf(ofx::Time time, const WindowJob& job, const Image& dst) const;
  std::optional<ofx::RectD> regionOf(const ClipRef& clip, ofx::Time time) const;
  MatteChannel decided(MatteChannel channel, const ClipRef& clip, const Image& image,
                       const Picture& picture);
  /// Buttons; what goes wrong is reported and nothing is changed.
  void findKey(ofx::Time time);
  void sampleScreen(ofx::Time time);
  void loadPreset(ofx::Time time);
  void savePreset(ofx::Time time);
  /// Shows a problem, or else a note, or else nothing.
  void settle(const std::string& problem, const std::string& note);
  void clearReport();

  ofx::Effect effect_;
  bool general_;  // in the general context the output's components are ours to choose
  ClipRef source_, output_, background_, holdOut_, garbage_, reference_;
  InstanceParameters parameters_;
  EnginePool engines_;
  FrameKeyers frames_;
  // By pixels, encoding, mixing and the order of the screen's channels.
  Latest<std::array<std::string, 4>, BlindKey> estimates_;
  std::mutex reportLock_;
  std::string reported_;  // under reportLock_
  std::mutex matteLock_;
  std::map<std::string, bool> opaqueMattes_;  // by their pixels' identity, under matteLock_
};

/// The instance behind an effect's handle, or null.
Instance* instanceOf(ofx::Effect effect);

/// What the user should know of pictures of a kind beside a clean plate of their own, or an
/// estimated one; empty for nothing.
std::string clippingNote(Sample sample, bool cleanPlate, bool estimated);

}  // namespace orvanite::ofxPlugin
