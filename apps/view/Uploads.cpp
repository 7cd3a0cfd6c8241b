// SPDX-License-Identifier: BSD-3-Clause
#include "apps/view/Uploads.h"

#include <algorithm>
#include <fstream>

#include "base/Error.h"

namespace orvanite::view {

std::string Uploads::path(int set, const std::string& name) const {
  const bool plain = !name.empty() && name.size() <= 200 && name.front() != '.' &&
                     std::none_of(name.begin(), name.end(), [](char letter) {
                       return letter == '/' || static_cast<unsigned char>(letter) < 0x20;
                     });
  if (!plain) throw Error(Fault::wrongUse, "name", "expected the plain name of a file");
  if (folder_.empty() || set < 0 || set >= sets) {
    throw Error::expected(Fault::wrongUse, "set", "a number below " + std::to_string(sets),
                          std::to_string(set));
  }
  return (folder_ / std::to_string(set) / name).string();
}

void Uploads::add(int set, const std::string& name, std::uintmax_t at, const std::string& bytes) {
  const std::filesystem::path file = path(set, name);
  const std::lock_guard lock(mutex_);
  std::error_code failed;
  std::filesystem::create_directories(file.parent_path(), failed);
  const std::uintmax_t there = std::filesystem::exists(file) ? std::filesystem::file_size(file) : 0;
  if (at != 0 && at != there) {
    throw Error::expected(Fault::wrongUse, "at", std::to_string(there), std::to_string(at));
  }
  if (bytes_ + bytes.size() > byteLimit) {
    throw Error(Fault::wrongUse, name,
                "expected at most 8 GiB in all; name larger files on the command line");
  }
  std::ofstream to(file, at == 0 ? std::ios::binary : std::ios::binary | std::ios::app);
  to.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  to.close();
  if (!to) throw Error(Fault::failure, name, "it cannot be kept: the disk may be full");
  bytes_ += bytes.size();
}

}  // namespace orvanite::view
