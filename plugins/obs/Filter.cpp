// SPDX-License-Identifier: BSD-3-Clause
//
// See Filter.h. An RGBA frame is keyed from where it lies into one of ours; any other is converted
// into one of ours and keyed in place.
#include "plugins/obs/Filter.h"

#include <util/platform.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <limits>
#include <new>

#include "plugins/obs/Panel.h"

namespace orvanite::obsPlugin {
namespace {

// How long the next search waits after one that found nothing.
constexpr std::chrono::milliseconds searchPause{1000};

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

// Why a frame cannot be keyed; empty when it can.
std::string problemOf(const obs_source_frame& frame) {
  if (frame.width == 0 || frame.height == 0 || !frame.data[0]) return "a frame without pixels";
  if (frame.width > std::numeric_limits<std::int32_t>::max() / 4) return "a frame too wide";
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

void copyRows(const OrvaniteImage& from, std::uint8_t* to) {
  const std::size_t row = std::size_t{4} * static_cast<std::size_t>(from.width);
  for (int y = 0; y < from.height; ++y, to += row) {
    std::memcpy(to, static_cast<const std::uint8_t*>(from.channels[0]) + y * from.rowStride, row);
  }
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

Filter::Filter(obs_data_t* settings, obs_source_t* self) : self_(self), keyer_(newKeyer()) {
  const Data found(obs_data_get_obj(settings, setting::found));
  for (const Parameter& parameter : parameters()) {
    const char* const name = parameter.name.data();
    if (found && obs_data_has_user_value(found.get(), name)) {
      found_.emplace_back(name, obs_data_get_string(found.get(), name));
    }
  }
  if (found) foundEncoding_ = obs_data_get_string(found.get(), "encoding");
  update(settings);
}

void Filter::update(obs_data_t* settings) {
  const std::lock_guard guard(lock_);
  said_.clear();
  apply(settings);
}

void Filter::apply(obs_data_t* settings) {
  OrvaniteKeyer* const keyer = keyer_.get();
  applySettings(settings, keyer, [&](const std::string& problem) { say(problem); });
  finds_ = obs_data_get_bool(settings, setting::findScreen);
  screenGiven_ = orvanite_keyerGiven(keyer, "screen") != 0;
  cutOut_ = isCutOut(orvanite_keyerText(keyer, "output"));
  encoding_ = orvanite_keyerText(keyer, "colourspace");
  if (!findsScreen()) return;
  if (encoding_ != foundEncoding_) found_.clear();  // they are values in that encoding
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
  obs_data_set_obj(settings, setting::found, found.get());
}

void Filter::say(const std::string& problem) {
  if (problem == said_) return;
  said_ = problem;
  blog(LOG_WARNING, "orvanite: '%s': %s", obs_source_get_name(self_), problem.c_str());
}

// Looks for the screen in a copy of the frame.
void Filter::search(const obs_source_frame& frame, const OrvaniteImage& plate) {
  std::vector<std::uint8_t> pixels(std::size_t{frame.width} * frame.height * 4);
  copyRows(plate, pixels.data());
  OwnKeyer keyer = newKeyer();
  const Data settings(obs_source_get_settings(self_));
  applySettings(settings.get(), keyer.get(), [](const std::string&) {});
  search_.start(std::move(keyer), std::move(pixels), plate.width, plate.height);
  searchEncoding_ = encoding_;
  forget_ = false;
}

void Filter::take(Found found) {
  nextSearch_ = std::chrono::steady_clock::now() + searchPause;
  if (forget_ || encoding_ != searchEncoding_) {
    nextSearch_ = {};
    return;
  }
  if (found.values.empty()) return say(found.problem);
  found_ = std::move(found.values);
  foundEncoding_ = encoding_;
  const Data settings(obs_source_get_settings(self_));
  apply(settings.get());
  for (const auto& [name, text] : found_) {
    if (name != "screen") continue;
    blog(LOG_INFO, "orvanite: '%s': found the screen %s", obs_source_get_name(self_), text.c_str());
  }
}

obs_source_frame* Filter::keyed(obs_source_frame* frame, obs_source_t* source) {
  if (std::optional<Found> found = search_.take()) {
    take(std::move(*found));
    obs_source_update_properties(self_);
  }
  const bool lacksScreen = findsScreen() && !hasFound();
  const bool searches =
      lacksScreen && !search_.running() && std::chrono::steady_clock::now() >= nextSearch_;
  if (lacksScreen && !searches) return frame;

  Held made(frames_.take(frame->width, frame->height), Release{source});
  OrvaniteFrame pictures{};
  pictures.result = imageOf(*made);
  pictures.result.channels[3] = made->data[0] + 3;
  if (isRgba(*frame)) {
    pictures.plate = imageOf(*frame);
  } else {
    converter_.toRgba(*frame, made->data[0], static_cast<std::ptrdiff_t>(made->linesize[0]));
    pictures.plate = imageOf(*made);
  }
  if (searches) {
    search(*frame, pictures.plate);
    return frame;
  }
  if (orvanite_keyerRender(keyer_.get(), &pictures, 0) != ORVANITE_OK) {
    say(orvanite_keyerError(keyer_.get()));
    return frame;
  }
  if (!cutOut_) makeOpaque(*made);
  made->timestamp = frame->timestamp;
  made->flip = frame->flip;
  made->full_range = true;
  made->max_luminance = frame->max_luminance;
  made->trc = frame->trc;
  made->flags = 0;  // alpha goes with the codes as they are
  obs_source_release_frame(source, frame);
  return made.release();
}

obs_source_frame* Filter::filter(obs_source_frame* frame) noexcept {
  obs_source_t* const source = obs_filter_get_parent(self_);
  if (!frame || !source) return frame;
  try {
    const std::lock_guard guard(lock_);
    const std::string problem = problemOf(*frame);
    if (problem.empty()) return keyed(frame, source);
    say(problem);
  } catch (const std::exception& exception) {
    blog(LOG_ERROR, "orvanite: %s", exception.what());
  }
  return frame;
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
  const bool waits = findsScreen() && !hasFound();
  if (!waits) showValues(settings.get(), keyer_.get());
  const char* state = "The screen colour is given.";
  if (waits) state = "No screen found yet: the source is shown as it is.";
  if (findsScreen() && hasFound()) state = "The screen was found.";
  if (!finds_ && !screenGiven_) state = "The screen colour is the default.";
  obs_data_set_default_string(settings.get(), setting::state, state);
  return made;
}

void Filter::findAgain() {
  const Data settings(obs_source_get_settings(self_));
  clearParameters(settings.get(), true);
  obs_data_set_bool(settings.get(), setting::presetScreen, false);
  obs_data_set_bool(settings.get(), setting::findScreen, true);
  {
    const std::lock_guard guard(lock_);
    found_.clear();
    foundEncoding_.clear();
    forget_ = search_.running();
    nextSearch_ = {};
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
