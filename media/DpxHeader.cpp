// SPDX-License-Identifier: BSD-3-Clause
//
// The first four bytes tell the byte order of all numbers (SMPTE ST 268).
#include "media/DpxHeader.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string_view>

namespace orvanite::media {
namespace {

constexpr std::size_t userDataSizeAt = 32;
constexpr std::uint32_t undefined = 0xFFFFFFFF;

}  // namespace

bool dpxHoldsItsUserData(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::array<char, userDataSizeAt + 4> header{};
  if (!file.read(header.data(), header.size())) return true;
  const std::string_view magic(header.data(), 4);
  if (magic != "SDPX" && magic != "XPDS") return true;
  std::uint32_t promised = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    const std::size_t place = magic == "SDPX" ? i : 3 - i;
    promised = promised << 8 | static_cast<unsigned char>(header[userDataSizeAt + place]);
  }
  std::error_code problem;
  const auto size = std::filesystem::file_size(path, problem);
  return promised == undefined || problem || promised <= size;
}

}  // namespace orvanite::media
