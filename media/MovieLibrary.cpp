// SPDX-License-Identifier: BSD-3-Clause
//
// FFmpeg says what is wrong in its log, from whatever thread found it: the last such line is kept.
#include "media/MovieLibrary.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <mutex>

extern "C" {
#include <libavutil/avstring.h>
}

#include "base/Error.h"
#include "media/FileBytes.h"
#include "media/InputFile.h"
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

// The containers that are read, by FFmpeg's names. Others may lead to other files (concat, hls,
// dash, image2), or are nothing that plates come in.
constexpr const char* demuxers =
    "mov,mp4,m4a,3gp,3g2,mj2,matroska,webm,avi,mxf,mpegts,mpeg,mpegvideo,m4v,h264,hevc,asf,flv,ogg,"
    "dv,nut,yuv4mpegpipe,ivf";

constexpr const char* soundDemuxers = ",wav,w64,aiff,caf,flac,mp3,aac,ac3";

// The container that a file's first bytes name; null where FFmpeg has to find out. It looks through
// the first kilobytes for the marks of some others, such as NUT, and gives up when it finds both.
const AVInputFormat* containerOf(const std::string& path) {
  FileBytes file(path);
  if (file.text(0, 4) == "\x1A\x45\xDF\xA3") return av_find_input_format("matroska");  // EBML
  if (file.text(4, 4) == "ftyp") return av_find_input_format("mov");
  return nullptr;
}

// The container that a file is in, where that is not on the list; else empty.
std::string otherFormatOf(const std::string& path) {
  AVIOContext* bytes = nullptr;
  if (avio_open(&bytes, ("file:" + path).c_str(), AVIO_FLAG_READ) < 0) return "";
  const AVInputFormat* format = nullptr;
  const int problem = av_probe_input_buffer(bytes, &format, path.c_str(), nullptr, 0, 0);
  avio_closep(&bytes);
  movieProblem(0);  // what the probe said is not about the movie
  if (problem < 0 || format == nullptr || av_match_list(format->name, demuxers, ',') > 0) return "";
  return format->name;
}

template <class Made>
Made* checked(Made* made) {
  if (made == nullptr) throw Error(Fault::failure, "movie", "out of memory");
  return made;
}

// FFmpeg hands a file's number back as the pointer that it was given.
void* holding(int descriptor) {
  // NOLINTNEXTLINE(performance-no-int-to-ptr): it is never followed
  return reinterpret_cast<void*>(static_cast<std::intptr_t>(descriptor));
}
int heldBy(void* file) { return static_cast<int>(reinterpret_cast<std::intptr_t>(file)); }

int writeBytes(void* file, std::uint8_t* bytes, int size) {
  for (int done = 0; done < size;) {
    const ssize_t count =
        ::write(heldBy(file), bytes + done, static_cast<std::size_t>(size - done));
    if (count < 0 && errno != EINTR) return AVERROR(errno);
    if (count > 0) done += static_cast<int>(count);
  }
  return size;
}

std::int64_t seekTo(void* file, std::int64_t offset, int from) {
  struct stat status {};
  if (from == AVSEEK_SIZE) return ::fstat(heldBy(file), &status) == 0 ? status.st_size : -1;
  const off_t place = ::lseek(heldBy(file), offset, from & ~AVSEEK_FORCE);
  return place < 0 ? AVERROR(errno) : place;
}

}  // namespace

void quietMovies() { av_log_set_callback(keepWords); }

void countErrors(AVCodecContext& decoder, std::atomic<int>& counter) { decoder.opaque = &counter; }

MovieFrame newMovieFrame() { return {checked(av_frame_alloc()), MovieDelete()}; }

MoviePacket newMoviePacket() { return MoviePacket(checked(av_packet_alloc())); }

void MovieDelete::operator()(AVIOContext* file) const {
  av_freep(&file->buffer);
  avio_context_free(&file);
}

MovieBytes bytesTo(int descriptor) {
  constexpr int size = 1 << 16;
  auto* const buffer = static_cast<unsigned char*>(checked(av_malloc(size)));
  AVIOContext* const file =
      avio_alloc_context(buffer, size, 1, holding(descriptor), nullptr, writeBytes, seekTo);
  if (file == nullptr) av_free(buffer);
  return MovieBytes(checked(file));
}

MovieInput::MovieInput(const std::string& path, Kind kind) {
  quietMovies();
  checkInputFile(path, kind == Kind::movie ? "a movie" : "a movie or a file of sound");
  // A path is a file, whatever it looks like, and what is in it leads nowhere else.
  AVDictionary* options = nullptr;
  av_dict_set(&options, "protocol_whitelist", "file", 0);
  const std::string known = std::string(demuxers) + (kind == Kind::sound ? soundDemuxers : "");
  av_dict_set(&options, "format_whitelist", known.c_str(), 0);
  int problem =
      avformat_open_input(&context_, ("file:" + path).c_str(), containerOf(path), &options);
  av_dict_free(&options);
  if (problem >= 0) problem = avformat_find_stream_info(context_, nullptr);
  if (problem >= 0) return;
  avformat_close_input(&context_);
  const std::string why = movieProblem(problem);
  if (const std::string other = otherFormatOf(path); !other.empty()) {
    throw Error(Fault::failure, path,
                "cannot be read as a movie: expected " + movieFormatNames() + ", found " + other);
  }
  throw Error(Fault::failure, path, "cannot be read as a movie: " + why);
}

std::string movieFormatNames() {
  return "QuickTime, MP4, Matroska, WebM, AVI, MXF, MPEG-TS, MPEG-PS, MPEG-1, 2 and 4 video, "
         "H.264, "
         "HEVC, ASF, FLV, Ogg, DV, NUT, YUV4MPEG or IVF";
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
