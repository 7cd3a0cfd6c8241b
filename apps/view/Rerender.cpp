// SPDX-License-Identifier: BSD-3-Clause
//
// The thread waits for three things at once: what a render says, what happens to files, the end.
#include "apps/view/Rerender.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "apps/view/Child.h"
#include "base/Error.h"

namespace orvanite::view {
namespace {

// Programs write a file in several steps: what changed is looked at when they seem to be through.
constexpr int settleMilliseconds = 80;

bool readable(int descriptor, int milliseconds) {
  pollfd one{descriptor, POLLIN, 0};
  return ::poll(&one, 1, milliseconds) > 0;
}

// Calls take(line) for each line that a descriptor still holds; false at its end.
template <class Take>
bool takeLines(int descriptor, std::string& begun, const Take& take) {
  std::array<char, 4096> some{};
  const ssize_t count = ::read(descriptor, some.data(), some.size());
  for (const char letter : std::string_view(some.data(), count > 0 ? std::size_t(count) : 0)) {
    if (letter != '\n') {
      begun += letter;
      continue;
    }
    take(begun);
    begun.clear();
  }
  return count > 0;
}

}  // namespace

struct Rerender::Run {
  pid_t child = -1;
  int said = -1;
  std::string line;
  std::string complaint;
  int frame = 0;
  std::vector<std::string> pictures;
  std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
  int code = 0;
};

Rerender::Rerender(const WatchOptions& options)
    : options_(options), wake_(::eventfd(0, EFD_CLOEXEC)) {
  if (wake_ < 0) throw Error(Fault::failure, "--watch", "there is no descriptor to be had");
  thread_ = std::thread([this] { follow(); });
}

Rerender::~Rerender() {
  const std::uint64_t one = 1;
  static_cast<void>(!::write(wake_, &one, sizeof one));
  thread_.join();
  ::close(wake_);
}

Rerender::State Rerender::state() const {
  const std::lock_guard lock(mutex_);
  return state_;
}

Rerender::Run Rerender::start(const std::vector<std::string>& arguments) const {
  Run run;
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return run;
  run.child = startChild("/proc/self/exe", arguments, ends[1]);
  ::close(ends[1]);
  run.said = ends[0];
  return run;
}

// Asked before each render, so that nothing changes unseen between the two.
void Rerender::lookForInputs() {
  std::vector<std::string> found{options_.script};
  Run run = start(options_.inputs);
  const auto take = [&](const std::string& line) {
    if (!line.starts_with(complaintStart)) found.push_back(line);
  };
  while (run.said >= 0 && takeLines(run.said, run.line, take)) {
  }
  if (run.said >= 0) ::close(run.said);
  if (run.child > 0) ::waitpid(run.child, nullptr, 0);
  files_.watch(found);
}

void Rerender::take(Run& run, const std::string& line) {
  if (line.starts_with(complaintStart)) {
    if (run.complaint.empty()) run.complaint = line.substr(complaintStart.size());
    return;
  }
  const auto told = nlohmann::json::parse(line, nullptr, false);
  if (!told.is_object() || told.value("status", "") != "done") return;
  run.frame = told.value("frame", 0);
  run.pictures = told.value("files", std::vector<std::string>());
}

// Until it ends, files change, or all is to end.
bool Rerender::listen(Run& run) {
  for (;;) {
    std::array<pollfd, 3> any{
        {{run.said, POLLIN, 0}, {files_.descriptor(), POLLIN, 0}, {wake_, POLLIN, 0}}};
    if (::poll(any.data(), any.size(), -1) < 0) continue;
    if (any[2].revents != 0 || (any[1].revents != 0 && files_.changed())) return false;
    if (any[0].revents != 0 &&
        !takeLines(run.said, run.line, [&](const std::string& line) { take(run, line); })) {
      return true;
    }
  }
}

void Rerender::publish(const Run& run) {
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - run.start;
  const std::lock_guard lock(mutex_);
  ++state_.number;
  state_.seconds = taken.count();
  state_.error = run.complaint.empty() && run.code != 0 ? "it ended without a word" : run.complaint;
  if (run.pictures.empty()) return;
  state_.frame = run.frame;
  state_.pictures = run.pictures;
}

void Rerender::follow() {
  const auto ends = [this] { return readable(wake_, 0); };
  while (!ends()) {
    lookForInputs();
    {
      const std::lock_guard lock(mutex_);
      state_.running = true;
    }
    Run run = start(options_.render);
    const bool ended = run.said < 0 || listen(run);
    if (!ended && run.child > 0) ::kill(run.child, SIGINT);
    if (run.said >= 0) ::close(run.said);
    if (run.child > 0) ::waitpid(run.child, &run.code, 0);
    if (ended) {
      publish(run);
      std::array<pollfd, 2> any{{{files_.descriptor(), POLLIN, 0}, {wake_, POLLIN, 0}}};
      {
        const std::lock_guard lock(mutex_);
        state_.running = false;
      }
      while (!ends() && (::poll(any.data(), any.size(), -1) < 0 || !files_.changed())) {
      }
    }
    while (!ends() && readable(files_.descriptor(), settleMilliseconds)) files_.changed();
  }
}

}  // namespace orvanite::view
