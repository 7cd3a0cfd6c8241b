// SPDX-License-Identifier: BSD-3-Clause
//
// Tells when files change, whether they are written in place or replaced.
// Uses POSIX, inotify and the standard library.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace orvanite::view {

class FileWatch {
 public:
  /// Throws Error (failure) when the system has no more watches.
  FileWatch();
  ~FileWatch();
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;

  /// Watches these files, and no others any more. One need not be there yet; its folder must.
  void watch(const std::vector<std::string>& files);

  /// Readable when something happened in one of their folders.
  int descriptor() const { return descriptor_; }
  /// Takes what happened; whether any of it was to one of the files.
  bool changed();

 private:
  int descriptor_;
  std::map<std::string, int> folders_;
  std::map<int, std::set<std::string>> names_;  // of the files, by their folder's watch
};

}  // namespace orvanite::view
