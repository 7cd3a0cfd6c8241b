// SPDX-License-Identifier: BSD-3-Clause
//
// See Filter.h. An RGBA frame is keyed from where it lies into one of ours; any other is converted
// into one of ours and keyed in place.
#include "plugins/obs/Filter.h"

#include <util/platform.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>
#include <limits>
#include <new>

#include "plugins/obs/Panel.h"

namespace orvanite::obsPlugin {
namespace {

// How many frames pass until a screen is looked for again where there was none.
constexpr int pauseFrames = 15;

// What a look sees of a frame's longer side: with more it takes longer and sees no better.
constexpr int lookPixels = 320;

// How often it is looked at again after a search, and how many frames from look to look.
constexpr int mostChecks = 4, checkFrames = 60;

// A look that sees the screen's colour this far from where the search saw it, in any channel, sees
// another screen: cameras open dark and then set their exposure, movies fade in.
constexpr float otherScreen = 0.03f;
// Light that never comes to rest is left alone after so many searches.
constexpr int mostSearches = 3;

struct ReleaseData {
  void operator()(obs_data_t* data) const { obs_data_release(data); }
};
using Data = std::unique_ptr<obs_data_t, ReleaseData>;

// Gives a frame back to whom it is from.
struct Release {
  obs_source_t* source;
  void operator()(obs_source_frame* frame) const { obs_source_release_frame(source, frame); }
};
using Held = std::unique_ptr<obs_source_frame, Release>;

OwnKeyer newKeyer() {
  OwnKeyer made(orvanite_keyerNew());
  if (!made) throw std::bad_alloc();
  return made;
}

bool hasSize(const obs_source_frame& frame) {
  return frame.width > 0 && frame.height > 0 &&
         frame.width <= std::numeric_limits<std::int32_t>::max() / 4;
}

// Why a frame cannot be keyed; empty when it can.
std::string problemOf(const obs_source_frame& frame) {
  if (!hasSize(frame) || !frame.data[0]) return "a frame without pixels, or too wide";
  if (!isColoured(frame.format)) {
    return std::string("frames of ") + get_video_format_name(frame.format) +
           ": expected YUV or RGB";
  }
  if (frame.trc == VIDEO_TRC_PQ || frame.trc == VIDEO_TRC_HLG) {
    return "frames of high dynamic range (PQ or HLG): expected standard range";
  }
  return {};
}

// The colours of an RGBA frame.
OrvaniteImage imageOf(const obs_source_frame& frame) {
  OrvaniteImage image{};
  image.width = static_cast<int>(frame.width);
  image.height = static_cast<int>(frame.height);
  image.depth = ORVANITE_8BIT;
  for (std::size_t c = 0; c < 3; ++c) image.channels[c] = frame.data[0] + c;
  image.pixelStride = 4;
  image.rowStride = static_cast<std::ptrdiff_t>(frame.linesize[0]);
  return image;
}

// Every so manieth pixel of every so manieth row.
std::vector<std::uint8_t> copyOf(OrvaniteImage& image, int step) {
  const auto* const first = static_cast<const std::uint8_t*>(image.channels[0]);
  std::vector<std::uint8_t> pixels;
  pixels.reserve(std::size_t{4} * static_cast<std::size_t>((image.width + step - 1) / step) *
                 static_cast<std::size_t>((image.height + step - 1) / step));
  for (int y = 0; y < image.height; y += step) {
    const std::uint8_t* const row = first + y * image.rowStride;
    if (step == 1) pixels.insert(pixels.end(), row, row + std::ptrdiff_t{4} * image.width);
    for (int x = 0; step > 1 && x < image.width; x += step) {
      const std::uint8_t* const at = row + std::ptrdiff_t{4} * x;
      pixels.insert(pixels.end(), at, at + 4);
    }
  }
  image.width = (image.width + step - 1) / step;
  image.height = (image.height + step - 1) / step;
  return pixels;
}

float distance(const std::array<float, 3>& a, const std::array<float, 3>& b) {
  float most = 0;
  for (std::size_t c = 0; c < 3; ++c) most = std::max(most, std::abs(a[c] - b[c]));
  return most;
}

void clear(const obs_source_frame& frame) {
  std::memset(frame.data[0], 0, std::size_t{frame.linesize[0]} * frame.height);
}

void makeOpaque(const obs_source_frame& frame) {
  for (std::uint32_t y = 0; y < frame.height; ++y) {
    std::uint8_t* const row = frame.data[0] + std::size_t{y} * frame.linesize[0];
    for (std::size_t x = 0; x < frame.width; ++x) row[4 * x + 3] = 255;
  }
}

// What a preset file says; empty where it cannot be read.
std::string textOf(const char* path) {
  char* const read = os_quick_read_utf8_file(path);
  std::string text = read ? read : "";
  bfree(read);
  return text;
}

}  // namespace

Filter::Filter(obs_data_t* settings, obs_source_t* self, ScreenSearch::Launch launch)
    : self_(self), keyer_(newKeyer()), search_(std::move(launch)) {
  const Data found(obs_data_get_obj(settings, setting::found));
  for (const Parameter& parameter : parameters()) {
    const char* const name = parameter.name.data();
    if (found && obs_data_has_user_value(found.get(), name)) {
      found_.emplace_back(name, obs_data_get_string(found.get(), name));
    }
  }
  if (hasFound()) {
    foundEncoding_ = obs_data_get_string(found.get(), "encoding");
    finding_ = obs_data_get_bool(found.get(), "seen") ? Finding::seen : Finding::settled;
  }
  update(settings);
}

void Filter::update(obs_data_t* settings) {
  const std::lock_guard guard(lock_);
  said_.clear();
  fade_.stop();
  apply(settings);
}

void Filter::apply(obs_data_t* settings) {
  OrvaniteKeyer* const keyer = keyer_.get();
  applySettings(settings, keyer, [&](const std::string& problem) { say(problem); });
  finds_ = obs_data_get_bool(settings, setting::findScreen);
  showsUnkeyed_ = std::strcmp(obs_data_get_string(settings, setting::unkeyed), unkeyedShown) == 0;
  screenGiven_ = orvanite_keyerGiven(keyer, "screen") != 0;
  cutOut_ = isCutOut(orvanite_keyerText(keyer, "output"));
  encoding_ = orvanite_keyerText(keyer, "colourspace");
  if (!findsScreen()) return;
  // What was found in another encoding serves until it is found anew.
  if (encoding_ != foundEncoding_) finding_ = Finding::nothing;
  for (const auto& [name, text] : found_) {
    if (orvanite_keyerGiven(keyer, name.c_str())) continue;
    if (orvanite_keyerSetText(keyer, name.c_str(), text.c_str()) != ORVANITE_OK) {
      say(orvanite_keyerError(keyer));
    }
  }
}

bool Filter::findsScreen() const { return finds_ && !screenGiven_; }

void Filter::save(obs_data_t* settings) {
  const std::lock_guard guard(lock_);
  if (!hasFound()) return obs_data_erase(settings, setting::found);
  const Data found(obs_data_create());
  for (const auto& [name, text] : found_) {
    obs_data_set_string(found.get(), name.c_str(), text.c_str());
  }
  obs_data_set_string(found.get(), "encoding", foundEncoding_.c_str());
  if (finding_ == Finding::seen) obs_data_set_bool(found.get(), "seen", true);
  obs_data_set_obj(settings, setting::found, found.get());
}

void Filter::say(const std::string& problem) {
  if (problem == said_) return;
  said_ = problem;
  blog(LOG_WARNING, "orvanite: '%s': %s", obs_source_get_name(self_), problem.c_str());
}

// Looks for the screen in a copy of the frame, or searches it.
void Filter::startSearch(OrvaniteImage plate) {
  const Effort effort = finding_ == Finding::seen ? Effort::search : Effort::look;
  const int longer = std::max(plate.width, plate.height);
  std::vector<std::uint8_t> pixels =
      copyOf(plate, effort == Effort::look ? (longer + lookPixels - 1) / lookPixels : 1);
  OwnKeyer keyer = newKeyer();
  const Data settings(obs_source_get_settings(self_));
  applySettings(settings.get(), keyer.get(), [](const std::string&) {});
  search_.start(effort, std::move(keyer), std::move(pixels), plate.width, plate.height);
  searchEncoding_ = encoding_;
  forget_ = false;
}

void Filter::take(Found found) {
  if (forget_ || !findsScreen() || encoding_ != searchEncoding_) return;
  if (found.values.empty()) {
    rest_ = pauseFrames;
    if (!hasFound()) say(found.problem);
    return;
  }
  if (found.effort == Effort::search) {
    searched_ = found.colour;
    ++searches_;
    checks_ = 0;
    rest_ = checkFrames;
    adopt(std::move(found));
    finding_ = searches_ == mostSearches ? Finding::settled : Finding::searched;
  } else if (finding_ == Finding::searched && distance(found.colour, searched_) <= otherScreen) {
    rest_ = checkFrames;
    if (++checks_ == mostChecks) finding_ = Finding::settled;
  } else {
    adopt(std::move(found));
    finding_ = Finding::seen;
  }
}

// What replaces a key of the same screen does so little by little.
void Filter::adopt(Found found) {
  if (finding_ == Finding::nothing) {
    searches_ = 0;
  } else {
    OwnKeyer better = newKeyer();
    fade_.start(std::exchange(keyer_, std::move(better)));
  }
  found_ = std::move(found.values);
  foundEncoding_ = encoding_;
  said_.clear();
  const Data settings(obs_source_get_settings(self_));
  apply(settings.get());
  for (const auto& [name, text] : found_) {
    if (name != "screen") continue;
    blog(LOG_INFO, "orvanite: '%s': %s the screen %s", obs_source_get_name(self_),
         found.effort == Effort::look ? "sees" : "found", text.c_str());
  }
  obs_source_update_properties(self_);
}

// A frame of ours like OBS's.
obs_source_frame* Filter::newFrame(const obs_source_frame& frame) {
  obs_source_frame* const made = frames_.take(frame.width, frame.height);
  made->timestamp = frame.timestamp;
  made->flip = frame.flip;
  made->full_range = true;
  made->max_luminance = frame.max_luminance;
  made->trc = frame.trc;
  made->flags = 0;  // alpha goes with the codes as they are
  return made;
}

// Keys a frame into one of ours; false where there is no key yet, or none can be made.
bool Filter::key(const obs_source_frame& frame, obs_source_frame& to) {
  if (rest_ > 0) --rest_;
  if (std::optional<Found> found = search_.take()) take(std::move(*found));
  const bool searches = findsScreen() && finding_ != Finding::settled && !search_.running() &&
                        !fade_.running() && rest_ == 0;
  if (waits() && !searches) return false;

  OrvaniteFrame pictures{};
  pictures.result = imageOf(to);
  pictures.result.channels[3] = to.data[0] + 3;
  if (isRgba(frame)) {
    pictures.plate = imageOf(frame);
  } else {
    converter_.toRgba(frame, to.data[0], static_cast<std::ptrdiff_t>(to.linesize[0]));
    pictures.plate = imageOf(to);
  }
  if (searches) startSearch(pictures.plate);
  if (waits()) return false;
  if (fade_.running() && !fade_.key(pictures)) fade_.stop();
  if (orvanite_keyerRender(keyer_.get(), &pictures, 0) != ORVANITE_OK) {
    say(orvanite_keyerError(keyer_.get()));
    return false;
  }
  if (fade_.running()) fade_.mixInto(to, cutOut_);
  if (!cutOut_) makeOpaque(to);
  return true;
}

obs_source_frame* Filter::filter(obs_source_frame* frame) noexcept {
  obs_source_t* const source = obs_filter_get_parent(self_);
  if (!frame || !source) return frame;
  Held shown(nullptr, Release{source});
  try {
    const std::lock_guard guard(lock_);
    const std::string problem = problemOf(*frame);
    if (!problem.empty()) say(problem);
    // One of ours for each of OBS's, as the pool expects.
    if (hasSize(*frame)) shown.reset(newFrame(*frame));
    if (!problem.empty() || !key(*frame, *shown)) {
      if (showsUnkeyed_) return frame;
      if (shown) clear(*shown);
    }
  } catch (const std::exception& exception) {
    shown.reset();
    blog(LOG_ERROR, "orvanite: %s", exception.what());
  }
  obs_source_release_frame(source, frame);
  return shown.release();
}

const char* Filter::stateText() const {
  if (screenGiven_) return "The screen colour is given.";
  if (!finds_) return "The screen colour is the default.";
  if (!hasFound()) {
    return showsUnkeyed_ ? "No screen found yet: the source is shown as it is."
                         : "No screen found yet: nothing is shown.";
  }
  if (finding_ == Finding::nothing) return "The screen is looked for again.";
  return finding_ == Finding::seen ? "A screen is seen; its key is being made better."
                                   : "The screen was found.";
}

obs_properties_t* Filter::panel() {
  obs_properties_t* const made = makePanel({[](obs_properties_t*, obs_property_t*, void* data) {
                                              return static_cast<Filter*>(data)->findAgain(), true;
                                            },
                                            [](obs_properties_t*, obs_property_t*, void* data) {
                                              return static_cast<Filter*>(data)->loadPreset(), true;
                                            },
                                            [](obs_properties_t*, obs_property_t*, void* data) {
                                              return static_cast<Filter*>(data)->savePreset(),
                                                     false;
                                            }});
  const Data settings(obs_source_get_settings(self_));
  const std::lock_guard guard(lock_);
  if (!waits()) showValues(settings.get(), keyer_.get());
  obs_data_set_default_string(settings.get(), setting::state, stateText());
  return made;
}

void Filter::findAgain() {
  const Data settings(obs_source_get_settings(self_));
  clearParameters(settings.get(), true);
  obs_data_set_bool(settings.get(), setting::presetScreen, false);
  obs_data_set_bool(settings.get(), setting::findScreen, true);
  {
    const std::lock_guard guard(lock_);
    finding_ = Finding::nothing;  // what was found serves until then
    rest_ = 0;
    forget_ = search_.running();
  }
  obs_source_update(self_, nullptr);
}

void Filter::loadPreset() {
  const Data settings(obs_source_get_settings(self_));
  const char* const path = obs_data_get_string(settings.get(), setting::presetIn);
  const std::string text = textOf(path);
  const OwnKeyer tried = newKeyer();
  if (text.empty() || orvanite_keyerUsePreset(tried.get(), text.c_str()) != ORVANITE_OK) {
    blog(LOG_WARNING, "orvanite: %s: %s", path,
         text.empty() ? "expected a preset, found no text" : orvanite_keyerError(tried.get()));
    return;
  }
  clearParameters(settings.get(), false);
  obs_data_set_string(settings.get(), setting::preset, text.c_str());
  obs_data_set_bool(settings.get(), setting::presetScreen, true);
  obs_source_update(self_, nullptr);
}

void Filter::savePreset() {
  const Data settings(obs_source_get_settings(self_));
  const char* const path = obs_data_get_string(settings.get(), setting::presetOut);
  std::string text;
  {
    const std::lock_guard guard(lock_);
    const char* const preset = orvanite_keyerPreset(keyer_.get());
    text = preset ? preset : "";
  }
  if (text.empty() ||
      !os_quick_write_utf8_file_safe(path, text.data(), text.size(), false, "new", nullptr)) {
    blog(LOG_WARNING, "orvanite: %s: the preset could not be written", path);
  }
}

}  // namespace orvanite::obsPlugin
