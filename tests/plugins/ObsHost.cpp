// SPDX-License-Identifier: BSD-3-Clause
//
// See ObsHost.h. Frames are watched by filters of ours in front of those under test and behind
// them.
#include "tests/plugins/ObsHost.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>
#include <ctime>

#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

// Every allocation of this process passes here.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

thread_local long counted __attribute__((tls_model("initial-exec"))) = 0;
thread_local bool counting __attribute__((tls_model("initial-exec"))) = false;

#define ORVANITE_SEEN __attribute__((visibility("default")))
ORVANITE_SEEN void* malloc(std::size_t size) {
  counted += counting ? 1 : 0;
  return __libc_malloc(size);
}
ORVANITE_SEEN void* calloc(std::size_t count, std::size_t size) {
  counted += counting ? 1 : 0;
  return __libc_calloc(count, size);
}
ORVANITE_SEEN void* realloc(void* memory, std::size_t size) {
  counted += counting ? 1 : 0;
  return __libc_realloc(memory, size);
}
ORVANITE_SEEN int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
  counted += counting ? 1 : 0;
  *memory = __libc_memalign(alignment, size);
  return *memory ? 0 : 12;
}
}

void countAllocations(bool on) {
  if (on) counted = 0;
  counting = on;
}
long allocationsCounted() { return counted; }

namespace {

double now(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// What the probes saw last.
struct Watch {
  std::mutex lock;
  std::condition_variable arrived;
  ObsSeen seen;
  double wall = 0, cpu = 0;
  std::vector<std::string> log;
};
Watch watch;

obs_source_frame* before(void*, obs_source_frame* frame) {
  {
    const std::lock_guard guard(watch.lock);
    watch.wall = now(CLOCK_MONOTONIC);
    watch.cpu = now(CLOCK_THREAD_CPUTIME_ID);
  }
  countAllocations(true);
  return frame;
}

obs_source_frame* after(void*, obs_source_frame* frame) {
  const long allocations = allocationsCounted();
  countAllocations(false);
  const std::lock_guard guard(watch.lock);
  ObsSeen& seen = watch.seen;
  seen.wallSeconds = now(CLOCK_MONOTONIC) - watch.wall;
  seen.cpuSeconds = now(CLOCK_THREAD_CPUTIME_ID) - watch.cpu;
  seen.allocations = allocations;
  seen.format = frame->format;
  seen.width = static_cast<int>(frame->width);
  seen.height = static_cast<int>(frame->height);
  seen.timestamp = frame->timestamp;
  const bool four = frame->format == VIDEO_FORMAT_RGBA || frame->format == VIDEO_FORMAT_BGRA;
  const std::size_t row = std::size_t{frame->width} * (four ? 4 : 1);
  seen.bytes.resize(row * frame->height);
  for (std::size_t y = 0; y < frame->height; ++y) {
    std::memcpy(seen.bytes.data() + y * row, frame->data[0] + y * frame->linesize[0], row);
  }
  watch.arrived.notify_all();
  return frame;
}

void registerOurs() {
  obs_source_info info{};
  info.id = "test_source";
  info.type = OBS_SOURCE_TYPE_INPUT;
  info.output_flags = OBS_SOURCE_ASYNC_VIDEO;
  info.get_name = [](void*) { return "source"; };
  info.create = [](obs_data_t*, obs_source_t* self) -> void* { return self; };
  info.destroy = [](void*) {};
  obs_register_source(&info);
  info.id = "test_before";
  info.type = OBS_SOURCE_TYPE_FILTER;
  info.filter_video = before;
  obs_register_source(&info);
  info.id = "test_after";
  info.filter_video = after;
  obs_register_source(&info);
}

void keepLog(int, const char* format, va_list words, void*) {
  char line[1024];
  std::vsnprintf(line, sizeof line, format, words);
  if (std::getenv("ORVANITE_OBS_LOG")) std::fprintf(stderr, "%s\n", line);
  const std::lock_guard guard(watch.lock);
  if (std::strncmp(line, "orvanite: ", 10) == 0) watch.log.emplace_back(line + 10);
}

// Starts a screen without a glass; its number is in DISPLAY then. 0: there is none.
pid_t startScreen() {
  int ends[2];
  if (pipe(ends) != 0) return 0;
  const pid_t child = fork();
  if (child == 0) {
    dup2(ends[1], 3);
    prctl(PR_SET_PDEATHSIG, SIGTERM);  // it goes with us, however we go
    dup2(open("/dev/null", O_RDWR | O_CLOEXEC), 1);
    dup2(1, 2);
    execlp("Xvfb", "Xvfb", "-displayfd", "3", "-screen", "0", "640x480x24", "-nolisten", "tcp",
           static_cast<char*>(nullptr));
    _exit(127);
  }
  close(ends[1]);
  std::string number;
  char digit = 0;
  while (child > 0 && read(ends[0], &digit, 1) == 1 && digit != '\n') number += digit;
  close(ends[0]);
  if (digit != '\n') {
    if (child > 0) waitpid(child, nullptr, 0);
    return 0;
  }
  setenv("DISPLAY", (":" + number).c_str(), 1);
  return child;
}

}  // namespace

ObsFrame::ObsFrame(video_format format, int width, int height, bool fullRange)
    : frame_(obs_source_frame_create(format, static_cast<std::uint32_t>(width),
                                     static_cast<std::uint32_t>(height))) {
  const bool full = fullRange || !format_is_yuv(format);
  frame_->full_range = full;
  video_format_get_parameters_for_format(
      VIDEO_CS_709, full ? VIDEO_RANGE_FULL : VIDEO_RANGE_PARTIAL, format, frame_->color_matrix,
      frame_->color_range_min, frame_->color_range_max);
}

ObsFrame::~ObsFrame() { obs_source_frame_destroy(frame_); }

ObsHost::ObsHost(const char* modulePath, int width, int height) : width_(width), height_(height) {
  problem_ = start(modulePath, width, height);
}

std::string ObsHost::start(const char* modulePath, int width, int height) {
  base_set_log_handler(keepLog, nullptr);
  screen_ = startScreen();
  if (screen_ == 0) return "Xvfb is not installed";
  if (!obs_startup("en-US", nullptr, nullptr)) return "libobs does not start";
  running_ = true;
  obs_video_info video{};
  video.graphics_module = "libobs-opengl";
  video.fps_num = 60;
  video.fps_den = 1;
  video.base_width = video.output_width = static_cast<std::uint32_t>(width);
  video.base_height = video.output_height = static_cast<std::uint32_t>(height);
  video.output_format = VIDEO_FORMAT_BGRA;
  video.gpu_conversion = true;
  video.colorspace = VIDEO_CS_709;
  video.range = VIDEO_RANGE_FULL;
  video.scale_type = OBS_SCALE_POINT;
  if (obs_reset_video(&video) != OBS_VIDEO_SUCCESS) return "libobs finds no OpenGL";
  const obs_audio_info audio{48000, SPEAKERS_STEREO};
  if (!obs_reset_audio(&audio)) return "libobs has no audio";
  registerOurs();
  if (!load(modulePath, "")) return std::string(modulePath) + " cannot be loaded";
  source_ = obs_source_create_private("test_source", "plate", nullptr);
  behind_ = obs_source_create_private("test_source", "behind", nullptr);
  before_ = obs_source_create_private("test_before", "before", nullptr);
  after_ = obs_source_create_private("test_after", "after", nullptr);
  obs_source_set_async_unbuffered(source_, true);
  obs_source_set_async_unbuffered(behind_, true);
  obs_set_output_source(0, behind_);
  obs_set_output_source(1, source_);
  use({});
  return {};
}

bool ObsHost::load(const char* modulePath, const char* dataPath) {
  obs_module_t* module = nullptr;
  return obs_open_module(&module, modulePath, dataPath) == MODULE_SUCCESS &&
         obs_init_module(module);
}

obs_source_t* ObsHost::newFilter(const char* kind, obs_data_t* settings) {
  return obs_source_create_private(kind, "key", settings);
}

void ObsHost::use(const std::vector<obs_source_t*>& filters) {
  for (obs_source_t* each : filters_) obs_source_filter_remove(source_, each);
  filters_ = {before_};
  filters_.insert(filters_.end(), filters.begin(), filters.end());
  filters_.push_back(after_);
  for (obs_source_t* each : filters_) obs_source_filter_add(source_, each);
}

ObsSeen ObsHost::show(const ObsFrame& frame) {
  ObsSeen seen;
  showUntil(
      frame, [](const ObsSeen&) { return true; }, seen);
  return seen;
}

bool ObsHost::showUntil(const ObsFrame& frame, const std::function<bool(const ObsSeen&)>& accept,
                        ObsSeen& seen, double seconds) {
  const double end = now(CLOCK_MONOTONIC) + seconds;
  while (now(CLOCK_MONOTONIC) < end) {
    time_ += 16'666'667;
    frame->timestamp = time_;
    obs_source_output_video(source_, &*frame);
    std::unique_lock guard(watch.lock);
    const bool arrived = watch.arrived.wait_for(guard, std::chrono::seconds(5),
                                                [&] { return watch.seen.timestamp == time_; });
    if (!arrived) continue;
    seen = watch.seen;
    guard.unlock();
    if (accept(seen)) return true;
  }
  return false;
}

void ObsHost::showBehind(const ObsFrame& frame) {
  time_ += 16'666'667;
  frame->timestamp = time_;
  obs_source_output_video(behind_, &*frame);
}

std::vector<std::uint8_t> ObsHost::mixed() {
  struct Mixed {
    std::mutex lock;
    std::condition_variable arrived;
    int frames = 0, width = 0, height = 0;
    std::vector<std::uint8_t> bytes;
  } mixed;
  mixed.width = width_;
  mixed.height = height_;
  const auto take = [](void* to, video_data* frame) {
    auto& into = *static_cast<Mixed*>(to);
    const std::lock_guard guard(into.lock);
    const std::size_t row = static_cast<std::size_t>(into.width) * 4;
    into.bytes.resize(row * static_cast<std::size_t>(into.height));
    for (std::size_t y = 0; y < static_cast<std::size_t>(into.height); ++y) {
      std::memcpy(into.bytes.data() + y * row, frame->data[0] + y * frame->linesize[0], row);
    }
    ++into.frames;
    into.arrived.notify_all();
  };
  obs_add_raw_video_callback(nullptr, take, &mixed);
  {
    std::unique_lock guard(mixed.lock);
    mixed.arrived.wait_for(guard, std::chrono::seconds(20), [&] { return mixed.frames >= 6; });
  }
  obs_remove_raw_video_callback(take, &mixed);
  for (std::size_t i = 0; i < mixed.bytes.size(); i += 4) {
    std::swap(mixed.bytes[i], mixed.bytes[i + 2]);
  }
  return mixed.bytes;
}

std::vector<std::string> ObsHost::said() {
  const std::lock_guard guard(watch.lock);
  return std::move(watch.log);
}

ObsHost::~ObsHost() {
  if (running_) {
    if (source_) {
      for (obs_source_t* each : filters_) obs_source_filter_remove(source_, each);
    }
    obs_set_output_source(0, nullptr);
    obs_set_output_source(1, nullptr);
    for (obs_source_t* each : {before_, after_, source_, behind_}) obs_source_release(each);
    obs_shutdown();
  }
  if (screen_ > 0) {
    kill(screen_, SIGTERM);
    waitpid(screen_, nullptr, 0);
  }
}
