// SPDX-License-Identifier: BSD-3-Clause
//
// Where a stream and its frames say both what light they are for, the stream's word counts: it is
// what a player reads first.
#include "media/MovieTags.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

extern "C" {
#include <libavutil/mastering_display_metadata.h>
#include <libavutil/mem.h>
}

#include "base/Error.h"

namespace orvanite::media {
namespace {

// Those of FFmpeg's common names that say what a movie is. Programs and dates of the old file are
// not the new one's.
constexpr std::array<const char*, 12> titleKeys{
    "title", "artist",  "album_artist", "album",     "composer", "genre",
    "show",  "comment", "description",  "copyright", "synopsis", "language"};

template <class Light>
std::shared_ptr<const Light> lightOf(const AVStream& video, AVPacketSideDataType ofStream,
                                     const AVFrame& first, AVFrameSideDataType ofFrame) {
  std::size_t size = 0;
  const void* bytes = av_stream_get_side_data(&video, ofStream, &size);
  if (bytes == nullptr) {
    const AVFrameSideData* const side = av_frame_get_side_data(&first, ofFrame);
    if (side == nullptr) return nullptr;
    bytes = side->data;
    size = side->size;
  }
  if (size < sizeof(Light)) return nullptr;
  auto light = std::make_shared<Light>();
  std::memcpy(light.get(), bytes, sizeof(Light));
  return light;
}

template <class Light>
void addLight(const std::shared_ptr<const Light>& light, AVPacketSideDataType type,
              AVStream& video) {
  if (!light) return;
  std::uint8_t* const to = av_stream_new_side_data(&video, type, sizeof(Light));
  if (to == nullptr) throw Error(Fault::failure, "movie", "out of memory");
  std::memcpy(to, light.get(), sizeof(Light));
}

std::string titleOf(const AVDictionary* tags) {
  const AVDictionaryEntry* const found = av_dict_get(tags, "title", nullptr, 0);
  return found == nullptr ? "" : found->value;
}

void addChapter(const Chapter& chapter, double start, double length, AVFormatContext& format) {
  constexpr int milliseconds = 1000;
  const double from = std::max(chapter.start - start, 0.0);
  const double to = std::min(chapter.end - start, length);
  if (to <= from) return;
  // FFmpeg has no call for it: whoever writes a movie makes them, and the context frees them.
  auto* const made = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
  if (made == nullptr) throw Error(Fault::failure, "movie", "out of memory");
  made->id = static_cast<std::int64_t>(format.nb_chapters) + 1;
  made->time_base = {1, milliseconds};
  made->start = std::llround(from * milliseconds);
  made->end = std::llround(to * milliseconds);
  if (!chapter.title.empty()) av_dict_set(&made->metadata, "title", chapter.title.c_str(), 0);
  int count = static_cast<int>(format.nb_chapters);
  if (av_dynarray_add_nofree(&format.chapters, &count, made) < 0) {
    av_dict_free(&made->metadata);
    av_free(made);
    throw Error(Fault::failure, "movie", "out of memory");
  }
  format.nb_chapters = static_cast<unsigned>(count);
}

}  // namespace

void readTags(const AVFormatContext& format, const AVStream& video, const AVFrame& first,
              ShotFacts& facts) {
  for (const char* key : titleKeys) {
    const AVDictionaryEntry* const found = av_dict_get(format.metadata, key, nullptr, 0);
    if (found != nullptr) facts.titles.emplace_back(key, found->value);
  }
  for (unsigned i = 0; i < format.nb_chapters; ++i) {
    const AVChapter& chapter = *format.chapters[i];
    const double tick = av_q2d(chapter.time_base);
    facts.chapters.push_back({static_cast<double>(chapter.start) * tick - facts.start,
                              static_cast<double>(chapter.end) * tick - facts.start,
                              titleOf(chapter.metadata)});
  }
  facts.mastering =
      lightOf<AVMasteringDisplayMetadata>(video, AV_PKT_DATA_MASTERING_DISPLAY_METADATA, first,
                                          AV_FRAME_DATA_MASTERING_DISPLAY_METADATA);
  facts.light = lightOf<AVContentLightMetadata>(video, AV_PKT_DATA_CONTENT_LIGHT_LEVEL, first,
                                                AV_FRAME_DATA_CONTENT_LIGHT_LEVEL);
}

void writeTags(const ShotFacts& facts, double start, double length, AVFormatContext& format,
               AVStream& video) {
  for (const auto& [key, value] : facts.titles) {
    av_dict_set(&format.metadata, key.c_str(), value.c_str(), 0);
  }
  for (const Chapter& chapter : facts.chapters) addChapter(chapter, start, length, format);
  addLight(facts.mastering, AV_PKT_DATA_MASTERING_DISPLAY_METADATA, video);
  addLight(facts.light, AV_PKT_DATA_CONTENT_LIGHT_LEVEL, video);
}

std::string x265Light(const ShotFacts& facts) {
  std::string text;
  if (facts.mastering && facts.mastering->has_primaries != 0 &&
      facts.mastering->has_luminance != 0) {
    // In units of 0.00002 of a coordinate and 0.0001 candelas a square metre (H.265, D.2.28).
    const auto in = [](AVRational value, double unit) {
      return std::to_string(std::llround(av_q2d(value) / unit));
    };
    const auto pair = [&](const AVRational* at) {
      return "(" + in(at[0], 0.00002) + "," + in(at[1], 0.00002) + ")";
    };
    const AVMasteringDisplayMetadata& display = *facts.mastering;
    text += "master-display=G" + pair(display.display_primaries[1]) + "B" +
            pair(display.display_primaries[2]) + "R" + pair(display.display_primaries[0]) + "WP" +
            pair(display.white_point) + "L(" + in(display.max_luminance, 0.0001) + "," +
            in(display.min_luminance, 0.0001) + ")";
  }
  if (facts.light) {
    text += (text.empty() ? "max-cll=" : ":max-cll=") + std::to_string(facts.light->MaxCLL) + "," +
            std::to_string(facts.light->MaxFALL);
  }
  return text.empty() ? text : "hdr10=1:" + text;
}

}  // namespace orvanite::media
