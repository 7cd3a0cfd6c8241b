// SPDX-License-Identifier: BSD-3-Clause
#include "apps/view/Child.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <thread>

extern char** environ;

namespace orvanite::view {

pid_t startChild(const std::string& program, const std::vector<std::string>& arguments,
                 int output) {
  std::vector<char*> argv{const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);

  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);

  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  if (output >= 0) {
    posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&files, output, STDERR_FILENO);
  }
  posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);

  pid_t child = -1;
  if (posix_spawnp(&child, program.c_str(), &files, &attributes, argv.data(), environ) != 0) {
    child = -1;
  }
  posix_spawn_file_actions_destroy(&files);
  posix_spawnattr_destroy(&attributes);
  return child;
}

void openInBrowser(const std::string& address) {
  const pid_t child = startChild("xdg-open", {address});
  if (child >= 0) std::thread([child] { waitpid(child, nullptr, 0); }).detach();
}

}  // namespace orvanite::view
