// SPDX-License-Identifier: BSD-3-Clause
//
// Walks from marker to marker. Segments say their length; compressed data goes on to the next
// marker that is neither a stuffed byte nor a restart.
#include "apps/media/JpegEnd.h"

#include <cstdint>
#include <fstream>
#include <vector>

namespace orvanite::media {

bool jpegIsWhole(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::vector<char> buffer(1 << 16);
  file.rdbuf()->pubsetbuf(buffer.data(), static_cast<std::streamsize>(buffer.size()));
  if (file.get() != 0xFF || file.get() != 0xD8) return true;
  bool compressed = false;
  for (int byte; (byte = file.get()) != EOF;) {
    if (byte != 0xFF) {
      if (!compressed) return true;  // not as the format has it: the decoder's business
      continue;
    }
    int marker = file.get();
    while (marker == 0xFF) marker = file.get();
    if (marker == EOF) return false;
    if (marker == 0xD9) return true;
    const bool stuffed = marker == 0x00 || (marker >= 0xD0 && marker <= 0xD7) || marker == 0x01;
    if (stuffed) continue;
    const int high = file.get();
    const int low = file.get();
    if (low == EOF) return false;
    file.ignore(high * 256 + low - 2);
    compressed = marker == 0xDA;
  }
  return false;
}

}  // namespace orvanite::media
