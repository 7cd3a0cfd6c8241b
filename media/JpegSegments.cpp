// SPDX-License-Identifier: BSD-3-Clause
//
// Walks from marker to marker as libjpeg does (ITU-T T.81, annex B): segments say their length;
// whatever else stands between markers is passed, compressed data with its restarts among it.
#include "media/JpegSegments.h"

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <string_view>
#include <vector>

namespace orvanite::media {
namespace {

constexpr int startOfImage = 0xD8;
constexpr int endOfImage = 0xD9;
constexpr int exif = 0xE1;      // APP1
constexpr int profile = 0xE2;   // APP2
constexpr int captions = 0xED;  // APP13

// A Photoshop image resource: 8BIM, its number, an empty name, the size of its data.
constexpr std::string_view captionResource("8BIM\x04\x04", 6);
constexpr std::size_t resourceHeader = 12;

// Stuffed bytes, restarts, and what no JPEG file has.
bool standsAlone(int marker) { return marker < 0xC0 || (marker >= 0xD0 && marker <= 0xD7); }

bool takeStart(std::string_view& data, std::string_view start) {
  if (!data.starts_with(start)) return false;
  data.remove_prefix(start.size());
  return true;
}

// What OpenImageIO reads of a segment without a look at its length: of Exif the header of a TIFF
// file, of a profile the numbers of its part, of IPTC captions as many bytes as they promise in the
// lower half of their size, if they come first.
bool holdsWhatItPromises(int marker, std::string_view data) {
  if (marker == exif && takeStart(data, {"Exif\0", 5})) return data.size() >= 1 + 8;
  if (marker == profile && takeStart(data, {"ICC_PROFILE\0", 12})) return data.size() >= 2;
  if (marker != captions || !takeStart(data, {"Photoshop 3.0\0", 14})) return true;
  if (data.size() < resourceHeader) return data.empty();
  const auto byte = [data](std::size_t i) {
    return std::size_t{static_cast<unsigned char>(data[i])};
  };
  return !data.starts_with(captionResource) ||
         (byte(10) << 8 | byte(11)) <= data.size() - resourceHeader;
}

}  // namespace

const char* jpegFault(const std::string& path) {
  constexpr const char* tooShort = "the file ends too early";
  std::vector<char> buffer(1 << 16);
  std::ifstream file;
  file.rdbuf()->pubsetbuf(buffer.data(), static_cast<std::streamsize>(buffer.size()));
  file.open(path, std::ios::binary);
  if (file.get() != 0xFF || file.get() != startOfImage) return nullptr;
  std::string data;
  for (int byte; (byte = file.get()) != EOF;) {
    if (byte != 0xFF) continue;
    int marker = file.get();
    while (marker == 0xFF) marker = file.get();
    if (marker == endOfImage) return nullptr;
    if (standsAlone(marker)) continue;
    const int high = file.get();
    const int low = file.get();
    if (low == EOF) return tooShort;
    const int length = std::max(high * 256 + low - 2, 0);
    data.resize(static_cast<std::size_t>(length));
    if (!file.read(data.data(), length)) return tooShort;
    if (!holdsWhatItPromises(marker, data)) return "a segment of its metadata ends before they do";
  }
  return tooShort;
}

}  // namespace orvanite::media
