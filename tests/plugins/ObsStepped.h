// SPDX-License-Identifier: BSD-3-Clause
//
// The filter for OBS handed frames by a test instead of by libobs: each is one call, and searches
// run when the test says so.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <future>
#include <string>

#include "plugins/obs/Filter.h"
#include "plugins/obs/Source.h"
#include "tests/plugins/ObsFixture.h"

namespace obsTest {

using orvanite::obsPlugin::Filter;
using orvanite::obsPlugin::Found;

// Searches that wait to be run, of all filters.
inline std::deque<std::packaged_task<Found()>> waiting;
inline Filter* newest = nullptr;

inline void registerStepped() {
  obs_source_info info = orvanite::obsPlugin::filterInfo();
  info.id = "orvanite_stepped";
  info.create = [](obs_data_t* settings, obs_source_t* self) -> void* {
    return newest = new Filter(settings, self, [](std::packaged_task<Found()> task) {
             waiting.push_back(std::move(task));
           });
  };
  obs_register_source(&info);
}

// A filter on the host's source, which is handed frames by the test instead of by OBS.
class SteppedObs : public Obs {
 protected:
  void SetUp() override {
    Obs::SetUp();
    if (IsSkipped()) return;
    waiting.clear();
    registerStepped();
  }
  void TearDown() override {
    if (key_) obs_source_filter_remove(host->source(), key_.get());
    key_.reset();
    obs_wait_for_destroy_queue();
    waiting.clear();
  }
  void start(const char* json) {
    if (key_) obs_source_filter_remove(host->source(), key_.get());
    key_.reset(host->newFilter("orvanite_stepped", settingsFrom(json).get()));
    filter_ = newest;
    obs_source_filter_add(host->source(), key_.get());
  }
  ObsSeen show(const ObsFrame& frame) {
    frame->refs = 2;  // ours, and the one that the filter may give back
    obs_source_frame* const shown = filter_->filter(&*frame);
    ObsSeen seen;
    if (!shown) return seen;
    seen.format = shown->format;
    seen.width = static_cast<int>(shown->width);
    seen.height = static_cast<int>(shown->height);
    const std::size_t row = std::size_t{shown->width} * 4;
    for (std::size_t y = 0; y < shown->height; ++y) {
      const std::uint8_t* const from = shown->data[0] + y * shown->linesize[0];
      seen.bytes.insert(seen.bytes.end(), from, from + row);
    }
    if (shown != &*frame) obs_source_release_frame(host->source(), shown);
    return seen;
  }
  static void step() {
    ASSERT_FALSE(waiting.empty());
    waiting.front()();
    waiting.pop_front();
  }
  // Frames from here that look alike: shows until another comes, at most `most`.
  int framesAlike(const ObsFrame& frame, int most) {
    const ObsSeen first = show(frame);
    int count = 1;
    while (count < most && show(frame).bytes == first.bytes) ++count;
    return count;
  }
  std::string saved() {
    obs_source_save(key_.get());
    const Own<obs_data_t> settings(obs_source_get_settings(key_.get()));
    return obs_data_get_json(settings.get());
  }
  std::string state() {
    const Own<obs_properties_t> panel(obs_source_properties(key_.get()));
    const Own<obs_data_t> settings(obs_source_get_settings(key_.get()));
    return obs_data_get_string(settings.get(), "state");
  }
  void press(const char* button) {
    const Own<obs_properties_t> panel(obs_source_properties(key_.get()));
    obs_property_button_clicked(obs_properties_get(panel.get(), button), key_.get());
  }
  // OBS itself hands settings over with its next frame.
  void set(const char* json) {
    obs_source_update(key_.get(), settingsFrom(json).get());
    const Own<obs_data_t> settings(obs_source_get_settings(key_.get()));
    filter_->update(settings.get());
  }
  // Shows frames, each search done before the next frame; how many there were.
  int work(const ObsFrame& frame, int frames) {
    int searches = 0;
    for (int i = 0; i < frames; ++i) {
      show(frame);
      if (waiting.empty()) continue;
      ++searches;
      step();
    }
    return searches;
  }

  Own<obs_source_t> key_;
  Filter* filter_ = nullptr;
};

}  // namespace obsTest
