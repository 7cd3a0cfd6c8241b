// SPDX-License-Identifier: BSD-3-Clause
//
// Pending files are listed in fixed slots, so that a signal handler can remove them without a lock
// or an allocation.
//
// Each is locked as long as its writer lives. The system drops the lock of a process that was
// killed, on whatever machine that shares the folder: a pending file that can be locked, of a
// process that is not to be seen here either, is nobody's.
#include "media/PendingFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <set>

#include "base/Error.h"

namespace orvanite::media {
namespace {

enum SlotState : int { unused, filling, listed };

struct Slot {
  std::atomic<int> state{unused};
  std::array<char, PATH_MAX> path;
};

// More than frames in flight ever need; a file beyond them is merely not removed by a signal.
std::array<Slot, 64> slots;

int list(const std::string& path) {
  if (path.size() >= PATH_MAX) return -1;
  for (std::size_t i = 0; i < slots.size(); ++i) {
    int expected = unused;
    if (!slots[i].state.compare_exchange_strong(expected, filling)) continue;
    std::memcpy(slots[i].path.data(), path.c_str(), path.size() + 1);
    slots[i].state = listed;
    return static_cast<int>(i);
  }
  return -1;
}

std::string reasonOf(int number) { return std::strerror(number); }

// The process and a counter make the name this writer's own; the ending stays, as it is the format.
// A name that would become too long is left out.
std::string pendingName(const std::filesystem::path& place) {
  static std::atomic<unsigned> counter{0};
  const std::string own = "." + std::to_string(::getpid()) + "-" + std::to_string(counter++) +
                          ".part" + place.extension().string();
  const std::string name = "." + place.stem().string() + own;
  return name.size() <= NAME_MAX ? name : own;
}

// The process in a pending file's name; 0 in any other name.
int processOf(const std::string& name) {
  const auto digits = [&](std::size_t first, std::size_t end) {
    return first < end && std::all_of(name.begin() + static_cast<std::ptrdiff_t>(first),
                                      name.begin() + static_cast<std::ptrdiff_t>(end),
                                      [](char letter) { return letter >= '0' && letter <= '9'; });
  };
  const std::size_t end = name.rfind(".part");
  if (!name.starts_with('.') || end == std::string::npos) return 0;
  if (end + 5 != name.size() && name[end + 5] != '.') return 0;
  const std::size_t dash = name.rfind('-', end);
  if (dash == std::string::npos || !digits(dash + 1, end)) return 0;
  const std::size_t begin = name.rfind('.', dash) + 1;  // there is one at the start
  int process = 0;
  if (digits(begin, dash)) std::from_chars(name.data() + begin, name.data() + dash, process);
  return process;
}

void removeIfDead(const std::string& path, int process) {
  // Numbers come again: one that is ours now may have been another's.
  if (process != ::getpid() && (::kill(process, 0) == 0 || errno != ESRCH)) return;
  const int file = ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (file < 0) return;
  if (::flock(file, LOCK_EX | LOCK_NB) == 0) ::unlink(path.c_str());
  ::close(file);
}

// Once for every folder.
void removeStale(const std::filesystem::path& folder) {
  static std::mutex mutex;
  static std::set<std::string> seen;
  const std::lock_guard lock(mutex);
  if (!seen.insert(folder.string()).second) return;
  std::error_code problem;
  std::filesystem::directory_iterator entry(folder, problem);
  for (; !problem && entry != std::filesystem::directory_iterator(); entry.increment(problem)) {
    const int process = processOf(entry->path().filename().string());
    if (process > 0) removeIfDead(entry->path().string(), process);
  }
}

// Nothing is lost where this fails: the name may come later than it should after a power cut.
void syncFolder(const std::filesystem::path& folder) {
  const int file =
      ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (file < 0) return;
  ::fsync(file);
  ::close(file);
}

// A new file under this name, locked; -1 with errno when it cannot be made, or when somebody took
// it for stale before the lock was there.
int createLocked(const std::string& path) {
  const int file = ::open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666);
  if (file < 0) return -1;
  ::flock(file, LOCK_EX);  // where a disk knows no locks, nobody can take the file for stale either
  struct stat status {};
  if (::fstat(file, &status) == 0 && status.st_nlink > 0) return file;
  ::close(file);
  errno = ENOENT;
  return -1;
}

}  // namespace

PendingFile::PendingFile(std::string path) : path_(std::move(path)) {
  const std::filesystem::path place(path_);
  const std::filesystem::path folder = place.has_parent_path() ? place.parent_path() : ".";
  std::error_code ignored;
  if (!std::filesystem::is_directory(folder, ignored)) {
    throw Error(Fault::failure, path_, "there is no folder " + folder.string());
  }
  if (std::filesystem::is_directory(place, ignored)) {
    throw Error(Fault::failure, path_, "expected the name of a file, found a folder");
  }
  removeStale(folder);
  for (int attempt = 0; file_ < 0; ++attempt) {
    temporary_ = (folder / pendingName(place)).string();
    slot_ = list(temporary_);
    file_ = createLocked(temporary_);
    if (file_ >= 0) break;
    const int number = errno;
    release();
    const bool taken =
        number == EEXIST || number == ENOENT;  // by a process of this number, or away
    if (!taken || attempt == 99) {
      throw Error(Fault::failure, path_, "cannot be written: " + reasonOf(number));
    }
  }
  pending_ = true;
}

PendingFile::~PendingFile() {
  if (pending_) ::unlink(temporary_.c_str());
  release();
}

void PendingFile::release() {
  if (slot_ >= 0) slots[static_cast<std::size_t>(slot_)].state = unused;
  if (file_ >= 0) ::close(file_);
  slot_ = file_ = -1;
}

// What a power cut leaves under the name is the whole file or what was there: the bytes reach the
// disk before the name does. Some disks of memory and of networks know no such order.
void PendingFile::commit() {
  if (::fsync(file_) != 0 && errno != EINVAL && errno != ENOTSUP && errno != EROFS) {
    throw Error(Fault::failure, path_, "cannot be written: " + reasonOf(errno));
  }
  if (std::rename(temporary_.c_str(), path_.c_str()) != 0) {
    throw Error(Fault::failure, path_, "cannot be put in place: " + reasonOf(errno));
  }
  pending_ = false;
  syncFolder(std::filesystem::path(path_).parent_path());
}

void removePendingFiles() {
  for (Slot& slot : slots) {
    if (slot.state == listed) ::unlink(slot.path.data());
  }
}

}  // namespace orvanite::media
