// SPDX-License-Identifier: BSD-3-Clause
//
// Numbers at places of a file, in either byte order; what lies beyond its end reads as 0.
// Uses the standard library only.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>

namespace orvanite::media {

class FileBytes {
 public:
  explicit FileBytes(const std::string& path) : file_(path, std::ios::binary) {
    file_.seekg(0, std::ios::end);
    size_ = file_ ? static_cast<std::uint64_t>(file_.tellg()) : 0;
  }

  bool big = true;  // the byte order of numbers

  std::uint64_t size() const { return size_; }

  /// Fewer bytes at the end of the file.
  std::string text(std::uint64_t at, std::size_t count) {
    std::string text(count, '\0');
    if (at >= size_) return "";
    file_.clear();
    file_.seekg(static_cast<std::streamoff>(at));
    file_.read(text.data(), static_cast<std::streamsize>(count));
    text.resize(static_cast<std::size_t>(file_.gcount()));
    return text;
  }

  /// Of 1 to 8 bytes.
  std::uint64_t number(std::uint64_t at, std::size_t count) {
    const std::string bytes = text(at, count);
    if (bytes.size() < count) return 0;
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < count; ++i) {
      value = value << 8 | static_cast<unsigned char>(bytes[big ? i : count - 1 - i]);
    }
    return value;
  }
  std::uint64_t one(std::uint64_t at) { return number(at, 1); }
  std::uint64_t two(std::uint64_t at) { return number(at, 2); }
  std::uint64_t four(std::uint64_t at) { return number(at, 4); }

 private:
  std::ifstream file_;
  std::uint64_t size_ = 0;
};

}  // namespace orvanite::media
