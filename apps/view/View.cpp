// SPDX-License-Identifier: BSD-3-Clause
#include "apps/view/View.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "apps/view/Child.h"
#include "apps/view/StopSignals.h"
#include "base/Error.h"

namespace orvanite::view {
namespace {

// A folder that is gone when the program ends, for renders that only the page gets and for files
// that only the page has. A child of ours
// removes it: it outlives even a program that is killed, and does nothing but wait for that.
class OwnFolder {
 public:
  OwnFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "orvanite-view-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      throw Error(Fault::failure, name, "a folder for renders cannot be made");
    }
    path_ = name;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
      throw Error(Fault::failure, name, "there is no pipe to be had");
    lifeline_ = ends[1];
    keeper_ = fork();
    if (keeper_ == 0) waitAndRemove(ends[0]);
    close(ends[0]);
  }
  ~OwnFolder() {
    close(lifeline_);
    if (keeper_ > 0) waitpid(keeper_, nullptr, 0);
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  OwnFolder(const OwnFolder&) = delete;
  OwnFolder& operator=(const OwnFolder&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  // In the child, where only system calls are safe. What ends the program's group leaves it alone.
  [[noreturn]] void waitAndRemove(int end) const {
    setsid();
    dup2(end, 0);
    close_range(1, ~0U, 0);
    char nothing = 0;
    while (read(0, &nothing, 1) < 0 && errno == EINTR) {
    }
    execlp("rm", "rm", "-rf", "--", path_.c_str(), nullptr);
    _exit(1);
  }

  std::filesystem::path path_;
  int lifeline_ = -1;  // closed when this process ends, by whatever
  pid_t keeper_ = -1;
};

}  // namespace

void view(const ViewOptions& options) {
  StopSignals signals;
  OwnFolder folder;
  Session::Wish wish{options.files,      {},
                     options.cacheBytes, options.colours,
                     options.settings,   options.masks,
                     options.output,     folder.path().string(),
                     options.exports};
  for (const Role role : roles) {
    std::string& path = wish.files.clips[role].path;
    // What is handed out is used in any folder.
    if (!path.empty()) path = std::filesystem::absolute(path).lexically_normal().string();
  }
  wish.spoken = wish.files;
  Server server(options.port, std::make_shared<Session>(wish), (folder.path() / "given").string());
  const StopSignals::Watch stop = signals.watch([&] { server.stop(); });
  if (options.started) options.started(server.address());
  if (options.openBrowser) openInBrowser(server.address());
  server.run();
}

}  // namespace orvanite::view
