// SPDX-License-Identifier: BSD-3-Clause
//
// Takes bytes for a movie's file and reads it as a key does: header, index, frames forwards and
// back, as it is and with fields made whole at another rate. What could be read is written beside
// its sound without loss, and must be the same when it is read again.
//
// FFmpeg is the system's and not instrumented: AddressSanitizer sees what it does to memory that
// this project's code touches, and the calls of the C library. Frames above a bound are refused, so
// that a large header costs no time.
#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <cstdio>
#include <memory>

#include "fuzz/File.h"
#include "media/InputFile.h"
#include "media/MovieSource.h"
#include "media/MovieWish.h"
#include "media/MovieWriter.h"

namespace {

using orvanite::fuzz::allowed;
using orvanite::fuzz::File;
using orvanite::media::OpenOptions;
using orvanite::media::Picture;
using orvanite::media::Source;

constexpr std::uint64_t pixelBound = 1 << 18;
constexpr int frameBound = 6;

orvanite::media::Request whole(const Source& source) {
  return {orvanite::media::depthOf(source.info().samples), source.info().display, 1, ""};
}

// The first frames that can be read, in order.
std::vector<Picture> read(Source& movie) {
  std::vector<Picture> pictures;
  for (const int frame : movie.frames()) {
    if (static_cast<int>(pictures.size()) == frameBound ||
        !allowed([&] { pictures.push_back(movie.read(frame, whole(movie))); })) {
      break;
    }
  }
  return pictures;
}

bool same(const Picture& a, const Picture& b) {
  return a.bytes() == b.bytes() && std::memcmp(a.pixels.get(), b.pixels.get(), a.bytes()) == 0;
}

// Written to a movie that loses nothing of red, green and blue, and read again.
void writeAndCompare(const Source& movie, const std::vector<Picture>& pictures) {
  const File file("", "-out.mkv");
  std::vector<int> frames;
  for (std::size_t i = 0; i < pictures.size(); ++i) frames.push_back(static_cast<int>(i) + 1);
  std::vector<std::string> notices;
  const bool written = allowed([&] {
    orvanite::media::MovieWish wish;
    wish.codec = "ffv1";
    orvanite::media::MovieOptions options = orvanite::media::movieOf(&movie, wish, frames, notices);
    options.frame = movie.info().display;
    options.samples = movie.info().samples;
    orvanite::media::MovieWriter writer(file.path(), options);
    for (const Picture& picture : pictures) writer.write(writer.prepare(picture));
    writer.finish();
  });
  if (!written) return;
  const bool read = allowed([&] {
    const auto again = orvanite::media::openMovie(file.path());
    if (again->frames().size() != pictures.size()) {
      std::fprintf(stderr, "%zu frames were written, %zu read: %s\n", pictures.size(),
                   again->frames().size(), again->notice().c_str());
      std::abort();
    }
    for (std::size_t i = 0; i < pictures.size(); ++i) {
      if (!same(again->read(static_cast<int>(i) + 1, whole(*again)), pictures[i])) {
        std::fprintf(stderr, "frame %zu is another than was written\n", i + 1);
        std::abort();
      }
    }
  });
  if (!read) {
    std::fprintf(stderr, "what was written cannot be read\n");
    std::abort();
  }
}

void readAll(const std::string& path, const OpenOptions& how, bool write) {
  allowed([&] {
    const auto movie = orvanite::media::openMovie(path, how);
    const std::vector<Picture> pictures = read(*movie);
    // Backwards, each by a seek.
    for (int frame = static_cast<int>(pictures.size()); frame > 0; --frame) {
      allowed([&] { movie->read(frame, whole(*movie)); });
    }
    if (movie->frames().size() > pictures.size()) {
      allowed([&] { movie->read(movie->frames().back(), whole(*movie)); });
    }
    if (write && !pictures.empty()) writeAndCompare(*movie, pictures);
  });
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  orvanite::media::setMemoryBound(pixelBound * 8);
  // Once: a change makes OpenImageIO's threads anew, and leaks are looked for after every input.
  OIIO::attribute("threads", 3);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const File file({reinterpret_cast<const char*>(data), size}, ".mov");
  readAll(file.path(), {}, true);
  OpenOptions other;
  other.deinterlace = true;
  other.frameRate = {24, 1};
  other.matrix = "709";
  readAll(file.path(), other, false);
  allowed([&] { orvanite::media::soundStart(file.path()); });
  return 0;
}
