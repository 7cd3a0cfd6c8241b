// SPDX-License-Identifier: BSD-3-Clause
//
// A fuzzer's input as a file in memory, for what reads by name.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "base/Error.h"

namespace orvanite::fuzz {

/// A file under a name of its own, gone with the object.
class File {
 public:
  File(std::string_view bytes, const std::string& ending)
      : path_("/dev/shm/orvanite-fuzz-" + std::to_string(::getpid()) + ending) {
    const int file = ::open(path_.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
    if (file < 0 || ::write(file, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
      std::abort();
    ::close(file);
  }
  ~File() { ::unlink(path_.c_str()); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

/// Does something that may fail with one line that says why. Whether it did not.
template <class Action>
bool allowed(const Action& action) {
  try {
    action();
    return true;
  } catch (const Error& error) {
    if (error.message().empty() || std::strchr(error.what(), '\n') != nullptr) std::abort();
    return false;
  }
}

}  // namespace orvanite::fuzz
