// SPDX-License-Identifier: BSD-3-Clause
//
// Files that the page hands over, piece by piece, into a folder of the program's own: what a
// browser lets one choose, drop or paste has no path.
// Uses the standard library only.
#pragma once

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>

namespace orvanite::view {

class Uploads {
 public:
  static constexpr int sets = 1000000;                                  // handed over in one go
  static constexpr std::uintmax_t byteLimit = std::uintmax_t{8} << 30;  // of all together

  /// folder  where the files go; empty: none are taken
  explicit Uploads(std::filesystem::path folder) : folder_(std::move(folder)) {}

  /// Adds bytes to a file of a set.
  ///
  /// name  plain, without a folder
  /// at    what the file has already: 0 begins it
  /// Throws Error: wrongUse about a name or a place that cannot be; failure when the disk is full.
  void add(int set, const std::string& name, std::uintmax_t at, const std::string& bytes);

  /// Where a file of a set lies, or the pattern of several. Throws Error (wrongUse) about the name.
  std::string path(int set, const std::string& name) const;

 private:
  std::filesystem::path folder_;
  std::mutex mutex_;
  std::uintmax_t bytes_ = 0;
};

}  // namespace orvanite::view
