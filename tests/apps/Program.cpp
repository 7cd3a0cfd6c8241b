// SPDX-License-Identifier: BSD-3-Clause
//
// Output goes to files, so that no pipe fills up whichever way a program writes.
#include "tests/apps/Program.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace orvanite::test {

std::string contents(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

Outcome run(const std::string& program, const std::vector<std::string>& arguments,
            const std::vector<std::string>& environment) {
  const Folder folder;
  const std::string out = folder / "out";
  const std::string err = folder / "err";
  std::vector<char*> argv{const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  std::vector<char*> variables;
  for (const std::string& variable : environment)
    variables.push_back(const_cast<char*>(variable.c_str()));
  for (char** variable = environ; *variable != nullptr; ++variable) variables.push_back(*variable);
  variables.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_CREAT | O_WRONLY, 0600);
  posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_CREAT | O_WRONLY, 0600);
  pid_t child = 0;
  const int problem =
      posix_spawn(&child, program.c_str(), &actions, nullptr, argv.data(), variables.data());
  posix_spawn_file_actions_destroy(&actions);
  if (problem != 0) throw std::runtime_error("cannot run " + program);

  Outcome outcome;
  int status = 0;
  rusage usage{};
  ::wait4(child, &status, 0, &usage);
  outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  outcome.peakKilobytes = usage.ru_maxrss;
  outcome.out = contents(out);
  outcome.err = contents(err);
  return outcome;
}

Outcome orvanite(const std::vector<std::string>& arguments,
                 const std::vector<std::string>& environment) {
  return run(ORVANITE_PROGRAM, arguments, environment);
}

const std::string blueKeyWords = "key --screen=0,0,0.9 --output=composite --alpha=matte ";

std::vector<std::string> blueKey(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(),
                   {"key", "--screen=0,0,0.9", "--output=composite", "--alpha=matte"});
  return arguments;
}

pid_t start(const std::vector<std::string>& arguments, int errors) {
  std::vector<char*> argv{const_cast<char*>(ORVANITE_PROGRAM)};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, errors < 0 ? 1 : errors, 2);
  pid_t child = 0;
  const int problem =
      posix_spawn(&child, ORVANITE_PROGRAM, &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (problem != 0) throw std::runtime_error("cannot run " ORVANITE_PROGRAM);
  return child;
}

int waitFor(pid_t child) {
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

FullPipe::FullPipe() {
  if (::pipe2(ends_.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  const int flags = ::fcntl(end(), F_GETFL);
  ::fcntl(end(), F_SETFL, flags | O_NONBLOCK);
  while (::write(end(), "", 1) == 1) ++filled_;
  ::fcntl(end(), F_SETFL, flags);
}

FullPipe::~FullPipe() {
  for (const int descriptor : ends_) {
    if (descriptor >= 0) ::close(descriptor);
  }
}

std::string FullPipe::read() {
  ::close(end());
  ends_[1] = -1;
  std::string bytes;
  std::array<char, 4096> part{};
  for (ssize_t got; (got = ::read(ends_[0], part.data(), part.size())) > 0;) {
    bytes.append(part.data(), static_cast<std::size_t>(got));
  }
  return bytes.substr(filled_);
}

Folder::Folder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "orvanite-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no folder for files");
  path_ = pattern;
}

Folder::~Folder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::vector<std::string> Folder::names() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(path_)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> words(const Folder& folder, const std::string& line) {
  std::istringstream text(line);
  std::vector<std::string> words;
  for (std::string word; text >> word;) {
    words.push_back(word[0] == '@' ? folder / word.substr(1) : word);
  }
  return words;
}

Outcome orvanite(const Folder& folder, const std::string& line) {
  return orvanite(words(folder, line));
}

SmallDisk::SmallDisk(const std::string& size)
    : made(::mount("tmpfs", path().c_str(), "tmpfs", 0, ("size=" + size).c_str()) == 0) {}

SmallDisk::~SmallDisk() {
  if (made) ::umount2(path().c_str(), MNT_DETACH);
}

bool SmallDisk::remount(const std::string& size, unsigned long flags) {
  return ::mount("tmpfs", path().c_str(), "tmpfs", MS_REMOUNT | flags, ("size=" + size).c_str()) ==
         0;
}

}  // namespace orvanite::test
