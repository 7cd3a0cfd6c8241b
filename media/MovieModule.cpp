// SPDX-License-Identifier: BSD-3-Clause
//
// In the command, OpenImageIO is linked against stand-ins of FFmpeg's libraries (StandIns.cmake).
// They bear the names of the real ones, which are therefore opened by their paths, for all to see:
// whatever is loaded from then on finds FFmpeg's functions there before it looks into the
// stand-ins, which only the command's own library sees.
#include "media/MovieModule.h"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <string_view>
#include <vector>

#include "base/Error.h"
#include "media/MovieSource.h"
#include "media/PictureWriter.h"

namespace orvanite::media {
namespace {

constexpr std::array<const char*, 26> movieEndings{
    ".mov", ".mp4", ".m4v", ".mkv",  ".webm", ".avi", ".mxf", ".mts", ".m2ts",
    ".ts",  ".mpg", ".m2v", ".mpeg", ".vob",  ".wmv", ".asf", ".flv", ".ogv",
    ".ogg", ".dv",  ".3gp", ".nut",  ".y4m",  ".ivf", ".qt",  ".divx"};

[[noreturn]] void failToLoad() {
  const char* const why = ::dlerror();
  throw Error(Fault::failure, "movies",
              std::string("cannot be read or written: ") + (why != nullptr ? why : "no FFmpeg"));
}

// Whether a library itself has the mark, not one that it needs.
bool standsIn(void* library) {
  const void* const mark = ::dlsym(library, "orvaniteStandIn");
  link_map* own = nullptr;
  Dl_info of{};
  return mark != nullptr && ::dlinfo(library, RTLD_DI_LINKMAP, &own) == 0 &&
         ::dladdr(mark, &of) != 0 && std::string_view(of.dli_fname) == own->l_name;
}

// Where the loader looks for what this library needs.
std::vector<std::string> libraryFolders(void* library) {
  Dl_serinfo size{};
  if (::dlinfo(library, RTLD_DI_SERINFOSIZE, &size) != 0) failToLoad();
  std::vector<std::byte> room(size.dls_size);
  auto* const found = new (room.data()) Dl_serinfo(size);
  if (::dlinfo(library, RTLD_DI_SERINFO, found) != 0) failToLoad();
  std::vector<std::string> folders;
  for (unsigned i = 0; i < found->dls_cnt; ++i)
    folders.emplace_back(found->dls_serpath[i].dls_name);
  return folders;
}

// Opens the real library of a name that a stand-in has. The libraries are never closed.
void openReal(const char* name) {
  void* const loaded = ::dlopen(name, RTLD_LAZY | RTLD_NOLOAD);
  if (loaded == nullptr || !standsIn(loaded)) return;
  for (const std::string& folder : libraryFolders(loaded)) {
    void* const real = ::dlopen((folder + "/" + name).c_str(), RTLD_NOW | RTLD_GLOBAL);
    if (real != nullptr && !standsIn(real)) return;
  }
  failToLoad();
}

const MovieModule* load() {
  // As they need one another.
  for (const char* name : {ORVANITE_FFMPEG_LIBRARIES}) openReal(name);
  Dl_info own{};
  if (::dladdr(reinterpret_cast<const void*>(&movieModule), &own) == 0) failToLoad();
  const auto beside = std::filesystem::path(own.dli_fname).parent_path() / ORVANITE_MOVIES_LIBRARY;
  void* const library = ::dlopen(beside.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) failToLoad();
  const void* const module = ::dlsym(library, "orvaniteMovies");
  if (module == nullptr) failToLoad();
  return static_cast<const MovieModule*>(module);
}

}  // namespace

const MovieModule& movieModule() {
  static const MovieModule* const module = load();
  return *module;
}

std::unique_ptr<Source> openMovie(const std::string& path, const OpenOptions& how) {
  return movieModule().open(path, how);
}

void checkMatrix(const std::string& name, const std::string& subject) {
  movieModule().checkMatrix(name, subject);
}

bool isMovieName(const std::string& path) {
  std::string ending = std::filesystem::path(path).extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return std::find(movieEndings.begin(), movieEndings.end(), ending) != movieEndings.end();
}

bool movieHoldsAlpha(const std::string& path, const std::string& codec) {
  return movieModule().holdsAlpha(path, codec);
}

void checkMovieOutput(const std::string& path, const std::string& codec,
                      std::span<const std::string> inputs) {
  movieModule().checkCodec(path, codec);
  checkPlace(path, inputs);
}

double soundStart(const std::string& path) { return movieModule().soundStart(path); }

Ratio parseFrameRate(const std::string& text, const std::string& subject) {
  return movieModule().parseFrameRate(text, subject);
}

MovieWriter::MovieWriter(const std::string& path, const MovieOptions& options)
    : output_(movieModule().write(path, options)) {}
MovieWriter::~MovieWriter() = default;
const std::vector<std::string>& MovieWriter::notices() const { return output_->notices(); }
std::shared_ptr<AVFrame> MovieWriter::prepare(const Picture& picture) {
  return output_->prepare(picture);
}
// The caller's share of the frame ends here.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void MovieWriter::write(std::shared_ptr<AVFrame> frame) { output_->write(frame.get()); }
void MovieWriter::finish() { output_->finish(); }

}  // namespace orvanite::media
