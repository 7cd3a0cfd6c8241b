// SPDX-License-Identifier: BSD-3-Clause
//
// Folders are watched, not files: a file that is replaced is another one of the same name.
#include "apps/view/FileWatch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <filesystem>

#include "base/Error.h"

namespace orvanite::view {

FileWatch::FileWatch() : descriptor_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  if (descriptor_ < 0) throw Error(Fault::failure, "--watch", "the system can watch no more files");
}

FileWatch::~FileWatch() { ::close(descriptor_); }

void FileWatch::watch(const std::vector<std::string>& files) {
  std::map<std::string, std::set<std::string>> wanted;
  for (const std::string& file : files) {
    const auto path = std::filesystem::absolute(file).lexically_normal();
    wanted[path.parent_path().string()].insert(path.filename().string());
  }
  for (auto one = folders_.begin(); one != folders_.end();) {
    if (wanted.contains(one->first)) {
      ++one;
      continue;
    }
    ::inotify_rm_watch(descriptor_, one->second);
    one = folders_.erase(one);
  }
  names_.clear();
  for (const auto& [folder, names] : wanted) {
    const auto known = folders_.find(folder);
    const int number = known != folders_.end()
                           ? known->second
                           : ::inotify_add_watch(descriptor_, folder.c_str(),
                                                 IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM |
                                                     IN_CREATE | IN_DELETE);
    if (number < 0) continue;
    folders_[folder] = number;
    names_[number].insert(names.begin(), names.end());
  }
}

bool FileWatch::changed() {
  bool any = false;
  alignas(inotify_event) std::array<char, 16384> events{};
  for (ssize_t size = 0; (size = ::read(descriptor_, events.data(), events.size())) > 0;) {
    for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
      inotify_event event{};
      std::memcpy(&event, events.data() + at, sizeof event);
      // What was lost may have been one of them.
      if ((event.mask & IN_Q_OVERFLOW) != 0) any = true;
      const auto names = names_.find(event.wd);
      if (event.len > 0 && names != names_.end()) {
        any = any || names->second.contains(events.data() + at + sizeof event);
      }
      at += sizeof event + event.len;
    }
  }
  return any;
}

}  // namespace orvanite::view
