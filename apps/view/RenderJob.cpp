// SPDX-License-Identifier: BSD-3-Clause
#include "apps/view/RenderJob.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "apps/view/Child.h"
#include "base/Error.h"
#include "media/MovieSource.h"
#include "media/MovieWriter.h"
#include "media/PictureWriter.h"

namespace orvanite::view {
namespace {

// The page's own pictures go first.
constexpr int renderNiceness = 10;

}  // namespace

RenderJob::RenderJob(const Footage& footage, std::string output, KeyArguments arguments)
    : output_(std::move(output)), files_(footage.shot().files()), arguments_(std::move(arguments)) {
  if (footage.info().isShot) shotFrames_ = footage.info().frames;
  if (output_.empty()) return;
  const FootageInfo& info = footage.info();
  if (info.isShot) {
    pattern_ = media::FramePattern::parse(output_);
    if (!pattern_ && !media::isMovieName(output_)) {
      throw Error::expected(Fault::wrongUse, "-o",
                            "a pattern for a shot's frames or a movie, such as key.####.png or "
                            "key.mov",
                            output_);
    }
  }
  for (const int frame : info.frames) {
    if (!pattern_ && media::isMovieName(output_)) {
      media::checkMovieOutput(output_, {}, footage.filesOf(frame));
    } else {
      media::checkOutput(fileOf(frame), footage.filesOf(frame));
    }
  }
}

RenderJob::~RenderJob() {
  cancel();
  if (thread_.joinable()) thread_.join();
}

bool RenderJob::start(const Settings& settings, const std::string& masks,
                      std::optional<Range> range) {
  const std::lock_guard lock(mutex_);
  if (state_ == State::running) return false;
  std::size_t frames = std::max<std::size_t>(1, shotFrames_.size());
  std::vector<std::string> arguments = arguments_(files_, settings, masks, output_);
  if (range && !shotFrames_.empty()) {
    frames = static_cast<std::size_t>(
        std::count_if(shotFrames_.begin(), shotFrames_.end(),
                      [&](int one) { return one >= range->from && one <= range->to; }));
    const std::string words = std::to_string(range->from) + "-" + std::to_string(range->to);
    if (frames == 0) {
      throw Error::expected(Fault::wrongUse, "frames", "some that the plate has", words);
    }
    arguments.insert(arguments.end(), {"--frames", words});
  }
  if (thread_.joinable()) thread_.join();
  arguments.emplace_back("--json");
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw Error(Fault::failure, "render", "no pipe can be made");
  }
  child_ = startChild("/proc/self/exe", arguments, ends[1]);
  ::close(ends[1]);
  if (child_ < 0) {
    ::close(ends[0]);
    throw Error(Fault::failure, "render", "no process can be started");
  }
  ::setpriority(PRIO_PROCESS, static_cast<id_t>(child_), renderNiceness);
  state_ = State::running;
  message_.clear();
  frames_ = frames;
  written_ = 0;
  cancelled_ = false;
  thread_ = std::thread([this, child = child_, said = ends[0]] { follow(child, said); });
  return true;
}

void RenderJob::cancel() {
  const std::lock_guard lock(mutex_);
  if (child_ < 0) return;
  cancelled_ = true;
  ::kill(child_, SIGINT);
}

RenderJob::Report RenderJob::report() const {
  const std::lock_guard lock(mutex_);
  const double part = static_cast<double>(written_) / static_cast<double>(frames_);
  return {state_, state_ == State::done ? 1 : part, message_};
}

// A frame that is done, or the first complaint.
void RenderJob::take(const std::string& line, std::string& complaint) {
  if (line.starts_with(complaintStart)) {
    if (complaint.empty()) complaint = line.substr(complaintStart.size());
    return;
  }
  const auto told = nlohmann::json::parse(line, nullptr, false);
  if (!told.is_object() || told.value("status", "") != "done") return;
  const std::lock_guard lock(mutex_);
  ++written_;
}

void RenderJob::follow(pid_t child, int said) {
  std::string line, complaint;
  std::array<char, 4096> some{};
  for (ssize_t count = 0; (count = ::read(said, some.data(), some.size())) > 0;) {
    for (const char letter : std::string_view(some.data(), static_cast<std::size_t>(count))) {
      if (letter != '\n') {
        line += letter;
        continue;
      }
      take(line, complaint);
      line.clear();
    }
  }
  ::close(said);
  {
    // A signal after the wait could reach another process.
    const std::lock_guard lock(mutex_);
    child_ = -1;
  }
  int status = 0;
  ::waitpid(child, &status, 0);

  const std::lock_guard lock(mutex_);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
    state_ = State::done;
    message_ = output_;
  } else if (cancelled_) {
    state_ = State::cancelled;
    message_ = written_ == 0 || !pattern_ ? "nothing was written"
                                          : std::to_string(written_) + " of " +
                                                std::to_string(frames_) + " frames were written";
  } else {
    state_ = State::failed;
    message_ = complaint.empty() ? "it ended without a word" : complaint;
  }
}

}  // namespace orvanite::view
