// SPDX-License-Identifier: BSD-3-Clause
#include "apps/view/View.h"

#include <pthread.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <thread>
#include <vector>

#include "apps/media/FramePattern.h"
#include "apps/media/PictureWriter.h"
#include "keyer/Error.h"

extern char** environ;

namespace orvanite::view {
namespace {

// A folder that is gone when the program ends, for renders that only the page gets.
class OwnFolder {
 public:
  OwnFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "orvanite-view-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      throw Error(Fault::failure, name, "a folder for renders cannot be made");
    }
    path_ = name;
  }
  ~OwnFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  OwnFolder(const OwnFolder&) = delete;
  OwnFolder& operator=(const OwnFolder&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// SIGINT and SIGTERM, taken by a thread of their own. Blocks them for the threads that come later.
class StopSignals {
 public:
  StopSignals() {
    sigemptyset(&signals_);
    for (const int number : {SIGINT, SIGTERM, SIGUSR1}) sigaddset(&signals_, number);
    pthread_sigmask(SIG_BLOCK, &signals_, &before_);
  }
  ~StopSignals() {
    // The thread may still wait for a signal: this one only ends it.
    if (thread_.joinable()) {
      pthread_kill(thread_.native_handle(), SIGUSR1);
      thread_.join();
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  template <class Stop>
  void watch(Stop stop) {
    thread_ = std::thread([this, stop] {
      int number = 0;
      sigwait(&signals_, &number);
      if (number != SIGUSR1) stop();
    });
  }

 private:
  sigset_t signals_{};
  sigset_t before_{};
  std::thread thread_;
};

// Shows the page if the desktop can; who sees no page has its address.
void openInBrowser(const std::string& address) {
  const char* program = "xdg-open";
  std::string argument = address;
  char* const arguments[] = {const_cast<char*>(program), argument.data(), nullptr};
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
  pid_t child = 0;
  if (posix_spawnp(&child, program, nullptr, &attributes, arguments, environ) == 0) {
    std::thread([child] { waitpid(child, nullptr, 0); }).detach();
  }
  posix_spawnattr_destroy(&attributes);
}

}  // namespace

void view(const ViewOptions& options) {
  StopSignals signals;
  Footage footage(options.files, options.cacheBytes);
  Settings settings = options.settings;
  if (!settings.given("colourspace")) {
    settings.setText("colourspace", footage.info().colourspace);
  }
  std::optional<OwnFolder> folder;
  std::string output = options.output;
  if (output.empty() && footage.info().isShot) {
    // Nothing to hand over in one piece; the page says so when it is asked to render.
  } else if (output.empty()) {
    folder.emplace();
    output = (folder->path() / "key.png").string();
  } else {
    std::vector<std::string> inputs;
    for (const Role role :
         {Role::plate, Role::background, Role::holdOut, Role::garbage, Role::reference}) {
      if (!options.files.of(role).empty()) inputs.push_back(options.files.of(role));
    }
    if (footage.info().isShot && !media::FramePattern::parse(output)) {
      throw Error::expected(Fault::wrongUse, "-o",
                            "a pattern for a shot's frames, such as key.####.png", output);
    }
    media::checkOutput(output, inputs);
  }
  Renderer renderer(footage);
  RenderJob job(footage, output);
  Server server(options.port, footage, renderer, job, folder.has_value(), settings,
                options.exports);
  signals.watch([&] {
    job.cancel();
    server.stop();
  });
  if (options.started) options.started(server.address());
  if (options.openBrowser) openInBrowser(server.address());
  server.run();
}

}  // namespace orvanite::view
