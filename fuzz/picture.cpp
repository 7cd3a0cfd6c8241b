// SPDX-License-Identifier: BSD-3-Clause
//
// Takes bytes for a picture's file and reads it as a key does: header, colours, one channel, a
// window beyond it. The ending is that of the format that the first bytes promise; bytes that
// promise nothing are a TGA file, which has no mark.
//
// What libraries do within their own formats is theirs: pictures above a bound are only opened, so
// that a large header costs no time, and formats other than these are not tried.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "base/Error.h"
#include "media/PictureReader.h"

namespace {

using orvanite::Error;
using orvanite::media::PictureReader;
using orvanite::media::Window;

constexpr std::int64_t pixelBound = 1 << 18;

const char* endingOf(std::string_view bytes) {
  if (bytes.starts_with("\x89PNG")) return ".png";
  if (bytes.starts_with("\xFF\xD8")) return ".jpg";
  if (bytes.starts_with("\x76\x2F\x31\x01")) return ".exr";
  if (bytes.starts_with("II") || bytes.starts_with("MM")) return ".tif";
  if (bytes.starts_with("SDPX") || bytes.starts_with("XPDS")) return ".dpx";
  // A TGA header: no, RGB or grey, run lengths or not, with at most a colour map.
  const bool kind = bytes.size() > 18 && static_cast<unsigned char>(bytes[1]) < 2 &&
                    std::strchr("\1\2\3\11\12\13", bytes[2]) != nullptr && bytes[2] != 0;
  return kind ? ".tga" : nullptr;
}

// A file of memory under a name of its own, gone with the object.
class File {
 public:
  File(const unsigned char* data, std::size_t size, const char* ending)
      : path_("/dev/shm/orvanite-fuzz-" + std::to_string(::getpid()) + ending) {
    const int file = ::open(path_.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
    if (file < 0 || ::write(file, data, size) != static_cast<ssize_t>(size)) std::abort();
    ::close(file);
  }
  ~File() { ::unlink(path_.c_str()); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

template <class Action>
void allowed(const Action& action) {
  try {
    action();
  } catch (const Error& error) {
    if (error.message().empty() || std::strchr(error.what(), '\n') != nullptr) std::abort();
  }
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
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const char* const ending = endingOf(bytes);
  if (ending == nullptr) return -1;
  const File file(data, size, ending);
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
  });
  return 0;
}
