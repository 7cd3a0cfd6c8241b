// SPDX-License-Identifier: BSD-3-Clause
//
// Takes bytes for a picture's file and reads it as a key does: header, colours, one channel, a
// window beyond it, a layer. The file's marks say its format, whichever of those on the list; TGA
// has none, and the ending of one is what a file gets whose first bytes could be its header.
//
// What libraries do within their own formats is theirs: pictures above a bound are only opened, so
// that a large header costs no time.
#include <cstring>

#include "fuzz/File.h"
#include "media/InputFile.h"
#include "media/PictureReader.h"

namespace {

using orvanite::fuzz::allowed;
using orvanite::fuzz::File;
using orvanite::media::PictureReader;
using orvanite::media::Window;

constexpr std::int64_t pixelBound = 1 << 18;

const char* endingOf(std::string_view bytes) {
  // No, RGB or grey, run lengths or not, with at most a colour map.
  const bool tga = bytes.size() > 18 && static_cast<unsigned char>(bytes[1]) < 2 &&
                   std::strchr("\1\2\3\11\12\13", bytes[2]) != nullptr && bytes[2] != 0;
  return tga ? ".tga" : ".picture";
}

// Every byte is looked at.
void sum(const orvanite::media::Picture& picture) {
  volatile unsigned total = 0;
  for (std::size_t i = 0; i < picture.bytes(); ++i)
    total = total + static_cast<unsigned>(picture.pixels[i]);
}

}  // namespace

// OpenImageIO's PNG reader loses a string whenever libpng jumps out of it (tests/leaks.supp). To
// recognise it by its stack would take ten times as long.
extern "C" int __lsan_is_turned_off() { return 1; }

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  OIIO::attribute("threads", 1);
  // Bytes of a picture in memory: what a library unfolds before it is asked is bounded by it, too.
  orvanite::media::setMemoryBound(static_cast<std::uint64_t>(pixelBound) * 16);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const File file(bytes, endingOf(bytes));
  allowed([&] {
    PictureReader reader(file.path());
    const auto info = reader.info();
    encodingOf(reader);
    const auto small = [](const Window& window) {
      return std::int64_t{window.width} * window.height <= pixelBound;
    };
    if (!small(info.data)) return;
    const Window& window = small(info.display) ? info.display : info.data;
    allowed([&] { sum(reader.read(orvanite::media::depthOf(info.samples), window, 1)); });
    allowed(
        [&] { sum(reader.readChannel(info.channels.back(), orvanite::Depth::shorts, info.data)); });
    if (info.format != "openexr") return;
    for (const orvanite::media::LayerChoice& choice :
         {orvanite::media::LayerChoice{"1", ""}, {"", "fill"}, {info.parts.back().name, "a"}}) {
      allowed([&] { PictureReader(file.path(), choice).info(); });
    }
  });
  return 0;
}
