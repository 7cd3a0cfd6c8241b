// SPDX-License-Identifier: BSD-3-Clause
//
// One filter on one source: frames in, keyed frames with straight alpha out, on OBS's own thread.
// A frame that cannot be keyed is not shown, so that no bare screen is broadcast by surprise,
// unless the user wants it shown; the log says why, once.
#pragma once

#include <obs-module.h>

#include <array>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "plugins/obs/Conversion.h"
#include "plugins/obs/Fade.h"
#include "plugins/obs/FramePool.h"
#include "plugins/obs/ScreenSearch.h"

namespace orvanite::obsPlugin {

class Filter {
 public:
  /// Throws std::bad_alloc.
  Filter(obs_data_t* settings, obs_source_t* self, ScreenSearch::Launch launch = {});

  /// Takes settings over: they are in force from the next frame on.
  void update(obs_data_t* settings);
  /// Puts what was found beside the settings, so that it is found again when they are loaded.
  void save(obs_data_t* settings);
  /// The frame to show: a keyed one, one without anything or none at all, and `frame` is given
  /// back; or `frame`. No exception.
  obs_source_frame* filter(obs_source_frame* frame) noexcept;

  /// What the buttons do, and what the panel shows. On OBS's panel thread.
  obs_properties_t* panel();
  void findAgain();
  void loadPreset();
  void savePreset();

 private:
  // How sure what was found is.
  enum class Finding {
    nothing,   // there is none, or it is to be found anew: a look comes next
    seen,      // by a look: a search comes next
    searched,  // by a search: looks come next, whether the screen stays of that colour
    settled    // nothing comes
  };

  void apply(obs_data_t* settings);
  bool findsScreen() const;
  bool hasFound() const { return !found_.empty(); }
  bool waits() const { return findsScreen() && !hasFound(); }
  void startSearch(OrvaniteImage plate);
  void take(Found found);
  void adopt(Found found);
  bool key(const obs_source_frame& frame, obs_source_frame& to);
  obs_source_frame* newFrame(const obs_source_frame& frame);
  void say(const std::string& problem);
  const char* stateText() const;

  obs_source_t* const self_;
  std::mutex lock_;  // over all that follows
  OwnKeyer keyer_;
  bool finds_ = true;         // the switch
  bool screenGiven_ = false;  // by the user, or by a preset
  bool cutOut_ = true;        // the output has its matte in alpha
  bool showsUnkeyed_ = false;
  std::string encoding_;  // that frames are in

  std::vector<std::pair<std::string, std::string>> found_;
  std::string foundEncoding_;
  Finding finding_ = Finding::nothing;
  std::array<float, 3> searched_{};  // the screen's middle colour in the plate of the search
  int searches_ = 0;                 // since the screen was found anew
  int checks_ = 0;                   // looks since that saw no other screen
  int rest_ = 0;                     // frames until the next look or search
  std::string searchEncoding_;       // of the search that runs
  bool forget_ = false;              // what it will find

  std::string said_;  // the problem that was logged last
  Fade fade_;
  Converter converter_;
  FramePool frames_;
  ScreenSearch search_;
};

}  // namespace orvanite::obsPlugin
