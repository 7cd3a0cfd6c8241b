// SPDX-License-Identifier: BSD-3-Clause
//
// One filter on one source: frames in, keyed frames with straight alpha out, on OBS's own thread.
// What cannot be keyed goes on as it is, and the log says why, once.
#pragma once

#include <obs-module.h>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

#include "plugins/obs/Conversion.h"
#include "plugins/obs/FramePool.h"
#include "plugins/obs/ScreenSearch.h"

namespace orvanite::obsPlugin {

class Filter {
 public:
  /// Throws std::bad_alloc.
  Filter(obs_data_t* settings, obs_source_t* self);

  /// Takes settings over: they are in force from the next frame on.
  void update(obs_data_t* settings);
  /// Puts what was found beside the settings, so that it is found again when they are loaded.
  void save(obs_data_t* settings);
  /// The frame to show: a keyed one, and `frame` is given back; or `frame`. No exception.
  obs_source_frame* filter(obs_source_frame* frame) noexcept;

  /// What the buttons do, and what the panel shows. On OBS's panel thread.
  obs_properties_t* panel();
  void findAgain();
  void loadPreset();
  void savePreset();

 private:
  void apply(obs_data_t* settings);
  bool findsScreen() const;
  bool hasFound() const { return !found_.empty(); }
  void search(const obs_source_frame& frame, const OrvaniteImage& plate);
  void take(Found found);
  obs_source_frame* keyed(obs_source_frame* frame, obs_source_t* source);
  void say(const std::string& problem);

  obs_source_t* const self_;
  std::mutex lock_;  // over all that follows
  OwnKeyer keyer_;
  bool finds_ = true;         // the switch
  bool screenGiven_ = false;  // by the user, or by a preset
  bool cutOut_ = true;        // the output has its matte in alpha
  std::string encoding_;      // that frames are in
  std::vector<std::pair<std::string, std::string>> found_;
  std::string foundEncoding_;
  std::string searchEncoding_;  // of the search that runs
  bool forget_ = false;         // what it will find
  std::chrono::steady_clock::time_point nextSearch_{};
  std::string said_;  // the problem that was logged last
  Converter converter_;
  FramePool frames_;
  ScreenSearch search_;
};

}  // namespace orvanite::obsPlugin
