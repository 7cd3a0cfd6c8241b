// SPDX-License-Identifier: BSD-3-Clause
//
// FFmpeg says what is wrong in its log, from whatever thread found it: the last such line is kept.
#include "media/MovieLibrary.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <mutex>

#include "base/Error.h"
#include "media/PictureReader.h"

namespace orvanite::media {
namespace {

std::mutex wordsMutex;
std::string lastWords;

void keepWords(void* who, int level, const char* format, va_list values) {
  if (level > AV_LOG_ERROR) return;
  if (who != nullptr && *static_cast<const AVClass**>(who) == avcodec_get_class()) {
    const auto* codec = static_cast<const AVCodecContext*>(who);
    if (codec->opaque != nullptr) ++*static_cast<std::atomic<int>*>(codec->opaque);
  }
  std::array<char, 512> line{};
  std::vsnprintf(line.data(), line.size(), format, values);
  const std::string words = oneLine(line.data());
  if (words.empty()) return;
  const std::lock_guard lock(wordsMutex);
  lastWords = words;
}

template <class Made>
Made* checked(Made* made) {
  if (made == nullptr) throw Error(Fault::failure, "movie", "out of memory");
  return made;
}

}  // namespace

void quietMovies() { av_log_set_callback(keepWords); }

void countErrors(AVCodecContext& decoder, std::atomic<int>& counter) { decoder.opaque = &counter; }

MovieFrame newMovieFrame() { return {checked(av_frame_alloc()), MovieDelete()}; }

MoviePacket newMoviePacket() { return MoviePacket(checked(av_packet_alloc())); }

MovieInput::MovieInput(const std::string& path) {
  quietMovies();
  std::error_code ignored;
  if (!std::filesystem::exists(path, ignored)) {
    throw Error(Fault::noSuchFile, path, "no such file");
  }
  // A path is a file, whatever it looks like, and what is in it leads nowhere else.
  AVDictionary* options = nullptr;
  av_dict_set(&options, "protocol_whitelist", "file", 0);
  int problem = avformat_open_input(&context_, ("file:" + path).c_str(), nullptr, &options);
  av_dict_free(&options);
  if (problem >= 0) problem = avformat_find_stream_info(context_, nullptr);
  if (problem >= 0) return;
  avformat_close_input(&context_);
  throw Error(Fault::failure, path, "cannot be read as a movie: " + movieProblem(problem));
}

std::string movieProblem(int number) {
  std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
  av_strerror(number, text.data(), text.size());
  const std::lock_guard lock(wordsMutex);
  std::string problem = number < 0 ? text.data() : "";
  if (!lastWords.empty()) problem += (problem.empty() ? "" : "; ") + lastWords;
  lastWords.clear();
  return oneLine(problem.empty() ? "unknown reason" : problem);
}

}  // namespace orvanite::media
