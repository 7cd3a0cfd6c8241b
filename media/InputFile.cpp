// SPDX-License-Identifier: BSD-3-Clause
//
// Real pictures, however flat, rarely pack a thousand times: what does is asked about.
#include "media/InputFile.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "base/Error.h"

namespace orvanite::media {
namespace {

constexpr std::uint64_t mebibyte = std::uint64_t{1} << 20;
constexpr std::uint64_t suspicious = 256 * mebibyte;
constexpr std::uint64_t suspiciousRatio = 1000;

std::atomic<std::uint64_t> bound{0};  // 0: nobody has set it

std::uint64_t usualBound() {
  const auto pages = static_cast<std::uint64_t>(std::max(::sysconf(_SC_PHYS_PAGES), 1L));
  std::uint64_t memory = pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
  std::ifstream group("/sys/fs/cgroup/memory.max");  // a number, or "max"
  std::uint64_t limit = 0;
  if (group >> limit && limit > 0) memory = std::min(memory, limit);
  return memory / 4 * 3;
}

const char* nameOf(std::filesystem::file_type type) {
  switch (type) {
    case std::filesystem::file_type::directory:
      return "a folder";
    case std::filesystem::file_type::fifo:
      return "a pipe";
    case std::filesystem::file_type::socket:
      return "a socket";
    case std::filesystem::file_type::block:
    case std::filesystem::file_type::character:
      return "a device";
    default:
      return "something else";
  }
}

}  // namespace

void checkInputFile(const std::string& path, std::string_view expected) {
  std::error_code problem;
  const auto status = std::filesystem::status(path, problem);
  if (status.type() == std::filesystem::file_type::not_found) {
    throw Error(Fault::noSuchFile, path, "no such file");
  }
  if (status.type() == std::filesystem::file_type::none) {
    throw Error(Fault::failure, path, "cannot be read: " + problem.message());
  }
  if (status.type() != std::filesystem::file_type::regular) {
    throw Error(Fault::failure, path,
                "expected " + std::string(expected) + " in a file, found " + nameOf(status.type()));
  }
}

std::uint64_t memoryBound() {
  static const std::uint64_t usual = usualBound();
  const std::uint64_t set = bound;
  return set != 0 ? set : usual;
}

void setMemoryBound(std::uint64_t bytes) { bound = bytes; }

std::uint64_t parseMemory(const std::string& text, const std::string& subject) {
  const auto wrong = [&]() -> std::uint64_t {
    throw Error::expected(Fault::wrongUse, subject, "an amount of memory, such as 800M or 4G",
                          text);
  };
  const char* rest = nullptr;
  char* end = nullptr;
  const double number = std::strtod(text.c_str(), &end);
  rest = end;
  if (rest == text.c_str() || !std::isfinite(number) || number <= 0) return wrong();
  double unit = 1;
  std::string_view letters(rest);
  if (!letters.empty()) {
    const std::size_t power =
        std::string_view("KMGT").find(static_cast<char>(letters[0] & ~0x20));  // in either case
    if (power == std::string_view::npos) return wrong();
    unit = std::ldexp(1.0, 10 * (static_cast<int>(power) + 1));
    letters.remove_prefix(1);
    if (letters != "" && letters != "B" && letters != "iB") return wrong();
  }
  const double bytes = number * unit;
  if (bytes < mebibyte || bytes > 0x1p60) return wrong();
  return static_cast<std::uint64_t>(bytes);
}

void checkMemory(const std::string& path, std::uint64_t needed) {
  if (needed > memoryBound()) {
    throw Error(Fault::failure, path,
                "its header asks for " + bytesText(needed) +
                    " of memory, and this process may take " + bytesText(memoryBound()) +
                    "; --memory gives more");
  }
  if (bound != 0 || needed < suspicious) return;
  std::error_code problem;
  const auto size = std::filesystem::file_size(path, problem);
  if (problem || needed / suspiciousRatio < size) return;
  throw Error(Fault::failure, path,
              "a file of " + bytesText(size) + " whose header asks for " + bytesText(needed) +
                  " of memory; where that is meant say --memory " +
                  std::to_string(needed / mebibyte + 1) + "M");
}

std::string bytesText(std::uint64_t bytes) {
  constexpr std::array<const char*, 4> units{"KiB", "MiB", "GiB", "TiB"};
  if (bytes < 1024) return std::to_string(bytes) + " bytes";
  auto amount = static_cast<double>(bytes) / 1024;
  std::size_t unit = 0;
  for (; amount >= 1023.5 && unit + 1 < units.size(); ++unit) amount /= 1024;
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), amount < 9.95 ? "%.1f %s" : "%.0f %s", amount,
                units[unit]);
  return text.data();
}

}  // namespace orvanite::media
