// SPDX-License-Identifier: BSD-3-Clause
//
// Pending files are listed in fixed slots, so that a signal handler can remove them without a lock
// or an allocation.
#include "apps/media/PendingFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "keyer/Error.h"

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

}  // namespace

PendingFile::PendingFile(std::string path) : path_(std::move(path)) {
  static std::atomic<unsigned> counter{0};
  const std::filesystem::path place(path_);
  const std::filesystem::path folder = place.has_parent_path() ? place.parent_path() : ".";
  std::error_code ignored;
  if (!std::filesystem::is_directory(folder, ignored)) {
    throw Error(Fault::failure, path_, "there is no folder " + folder.string());
  }
  if (std::filesystem::is_directory(place, ignored)) {
    throw Error(Fault::failure, path_, "expected the name of a file, found a folder");
  }
  // The process and a counter make the name this writer's own; the ending stays, as it is the
  // format.
  const std::string name = "." + place.stem().string() + "." + std::to_string(::getpid()) + "-" +
                           std::to_string(counter++) + ".part" + place.extension().string();
  temporary_ = (folder / name).string();
  slot_ = list(temporary_);
  const int file = ::open(temporary_.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666);
  if (file < 0) {
    const int number = errno;
    if (slot_ >= 0) slots[static_cast<std::size_t>(slot_)].state = unused;
    throw Error(Fault::failure, path_, "cannot be written: " + reasonOf(number));
  }
  ::close(file);
  pending_ = true;
}

PendingFile::~PendingFile() {
  if (pending_) ::unlink(temporary_.c_str());
  if (slot_ >= 0) slots[static_cast<std::size_t>(slot_)].state = unused;
}

void PendingFile::commit() {
  if (std::rename(temporary_.c_str(), path_.c_str()) != 0) {
    throw Error(Fault::failure, path_, "cannot be put in place: " + reasonOf(errno));
  }
  pending_ = false;
}

void removePendingFiles() {
  for (Slot& slot : slots) {
    if (slot.state == listed) ::unlink(slot.path.data());
  }
}

}  // namespace orvanite::media
