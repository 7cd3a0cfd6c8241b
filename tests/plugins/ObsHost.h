// SPDX-License-Identifier: BSD-3-Clause
//
// libobs as OBS Studio runs it, with a screen of its own that nobody sees: a source that gives what
// it is given, filters on it, and what comes out behind them.
#pragma once

#include <obs-module.h>
#include <obs.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

/// A frame of any format, freed by whom it belongs to.
class ObsFrame {
 public:
  /// In BT.709, of the range that is usual for the format unless `fullRange`.
  ObsFrame(video_format format, int width, int height, bool fullRange = false);
  ObsFrame(const ObsFrame&) = delete;
  ObsFrame& operator=(const ObsFrame&) = delete;
  ~ObsFrame();

  obs_source_frame& operator*() const { return *frame_; }
  obs_source_frame* operator->() const { return frame_; }

 private:
  obs_source_frame* frame_;
};

/// What arrived behind the filters.
struct ObsSeen {
  video_format format = VIDEO_FORMAT_NONE;
  int width = 0, height = 0;
  std::uint64_t timestamp = 0;
  std::vector<std::uint8_t> bytes;         // of the first plane, without gaps
  double wallSeconds = 0, cpuSeconds = 0;  // between the probes; of OBS's thread
  long allocations = 0;                    // between them, on OBS's thread

  const std::uint8_t* pixel(int x, int y) const { return bytes.data() + (y * width + x) * 4; }
};

/// An OBS with the module loaded. One at a time.
class ObsHost {
 public:
  /// Canvas in pixels.
  explicit ObsHost(const char* modulePath, int width = 320, int height = 180);
  ObsHost(const ObsHost&) = delete;
  ObsHost& operator=(const ObsHost&) = delete;
  ~ObsHost();

  /// Why OBS cannot run here; empty when it does.
  const std::string& problem() const { return problem_; }

  /// Loads another module; false when it cannot be.
  bool load(const char* modulePath, const char* dataPath);

  /// Makes a filter of a kind; settings may be null. Released by release.
  obs_source_t* newFilter(const char* kind, obs_data_t* settings);
  /// Puts filters on the source between two probes, in that order; none takes all away.
  void use(const std::vector<obs_source_t*>& filters);

  /// Shows a frame, and waits until it arrives behind the filters.
  ObsSeen show(const ObsFrame& frame);
  /// The same until `accept`, for at most some seconds; false if it never does.
  bool showUntil(const ObsFrame& frame, const std::function<bool(const ObsSeen&)>& accept,
                 ObsSeen& seen, double seconds = 120);
  /// Shows a frame below the source, on the whole canvas.
  void showBehind(const ObsFrame& frame);
  /// The canvas as OBS mixes it some frames from now: RGBA bytes.
  std::vector<std::uint8_t> mixed();

  obs_source_t* source() const { return source_; }

  /// What the module logged since the last call.
  std::vector<std::string> said();

 private:
  std::string start(const char* modulePath, int width, int height);

  std::string problem_;
  pid_t screen_ = 0;
  bool running_ = false;
  int width_ = 0, height_ = 0;
  obs_source_t *source_ = nullptr, *behind_ = nullptr;
  obs_source_t *before_ = nullptr, *after_ = nullptr;
  std::vector<obs_source_t*> filters_;
  std::uint64_t time_ = 0;
};

/// Counts allocations on the calling thread while `on`.
void countAllocations(bool on);
long allocationsCounted();
