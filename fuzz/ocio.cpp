// SPDX-License-Identifier: BSD-3-Clause
//
// Takes bytes for an OpenColorIO configuration, and what follows a line of "====" for the table of
// colours `table` beside it. Its first spaces are asked for and colours sent from one to another,
// infinities and what is no number among them.
#include <algorithm>
#include <array>
#include <filesystem>
#include <limits>

#include "fuzz/File.h"
#include "media/ColourSpaces.h"

namespace {

using orvanite::fuzz::allowed;
using orvanite::fuzz::File;
using orvanite::media::ColourSpaces;
using orvanite::media::Picture;

Picture colours() {
  constexpr float infinity = std::numeric_limits<float>::infinity();
  constexpr std::array values{
      0.0f,   0.18f, 1.0f,     -1.0f,     1e-45f,
      -1e30f, 1e30f, infinity, -infinity, std::numeric_limits<float>::quiet_NaN()};
  Picture picture =
      Picture::make({0, 0, 10, 10}, orvanite::Depth::floats, orvanite::media::Samples::float32);
  auto* samples = reinterpret_cast<float*>(picture.pixels.get());
  for (std::size_t i = 0; i < 4 * values.size() * values.size(); ++i) {
    samples[i] = values[(i * 7 + i / 40) % values.size()];
  }
  return picture;
}

// A folder in memory with the configuration and the table in it.
const std::filesystem::path& folder() {
  static const std::filesystem::path path = [] {
    const std::filesystem::path made = "/dev/shm/orvanite-fuzz-" + std::to_string(::getpid());
    std::filesystem::create_directory(made);
    std::atexit([] { std::filesystem::remove_all(folder()); });
    return made;
  }();
  return path;
}

void write(const char* name, std::string_view bytes) {
  std::FILE* const file = std::fopen((folder() / name).c_str(), "wb");
  if (file == nullptr || std::fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size())
    std::abort();
  std::fclose(file);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  constexpr std::string_view line = "\n====\n";
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::size_t end = std::min(bytes.find(line), size);
  write("config.ocio", bytes.substr(0, end));
  write("table", bytes.substr(std::min(end + line.size(), size)));
  allowed([&] {
    const ColourSpaces spaces(folder() / "config.ocio");
    for (const char* from : {"a", "b", "scene_linear", "default"}) {
      allowed([&] {
        const std::string first = spaces.space(from, "--input-space");
        spaces.encodingOf(first);
        for (const char* to : {"a", "scene_linear"}) {
          Picture picture = colours();
          spaces.conversion(first, spaces.space(to, "--output-space")).apply(picture);
          spaces.conversion(spaces.space(to, "--output-space"), first).apply(picture);
        }
      });
    }
  });
  return 0;
}
