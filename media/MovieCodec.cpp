// SPDX-License-Identifier: BSD-3-Clause
//
// The first codec that knows an ending is the usual one for it.
//
// ProRes 4444 is written at quantiser 1 (118 of FFmpeg's are one): the search for one that fits the
// profile's size ends there for keyed plates, and takes more than half of the processor time. H.264
// has a number of threads of its own, and VP9 shares columns among them, because what they write
// would depend on their number.
#include "media/MovieCodec.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include "base/Error.h"

namespace orvanite::media {
namespace {

constexpr std::array<MovieCodec, 7> codecs{{
    {"prores4444", "prores_ks", AV_PIX_FMT_YUVA444P10, AV_PIX_FMT_YUVA444P10, ".mov .mkv ", false,
     "profile=4444:alpha_bits=16:flags=+qscale:global_quality=118", "global_quality", 1, 64, false},
    {"h264", "libx264", AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P, ".mp4 .m4v .mov .mkv ", true,
     "crf=16:threads=4", "crf", 0, 51, true},
    {"hevc", "libx265", AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P10, ".mp4 .m4v .mov .mkv ", true,
     "crf=16:x265-params=frame-threads=3\\:pools=4\\:log-level=error", "crf", 0, 51, true},
    {"ffv1", "ffv1", AV_PIX_FMT_BGRA, AV_PIX_FMT_GBRAP16, ".mkv .avi .mov ", false,
     "level=3:slicecrc=1:slices=4:g=1", "", 0, 0, false},
    {"vp9", "libvpx-vp9", AV_PIX_FMT_YUVA420P, AV_PIX_FMT_YUVA420P, ".webm .mkv ", false,
     "crf=18:b=0:deadline=good:cpu-used=4:tile-columns=2:auto-alt-ref=0", "crf", 0, 63, true},
    {"qtrle", "qtrle", AV_PIX_FMT_ARGB, AV_PIX_FMT_ARGB, ".mov ", false, "", "", 0, 0, false},
    {"png", "png", AV_PIX_FMT_RGBA, AV_PIX_FMT_RGBA64BE, ".mov .mkv .avi ", false, "pred=mixed", "",
     0, 0, false},
}};

std::string endingOf(const std::string& path) {
  std::string ending = std::filesystem::path(path).extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return ending;
}

bool holds(const MovieCodec& codec, const std::string& ending) {
  return std::string(codec.endings).find(ending + ' ') != std::string::npos;
}

std::string numberText(double value) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%g", value);
  return text.data();
}

}  // namespace

AVDictionary* settingsOf(const MovieCodec& codec, const MovieStrength& strength) {
  const std::string name = codec.name;
  const std::string key = codec.qualityKey;
  if (strength.quality && key.empty()) {
    throw Error(Fault::wrongUse, "--quality", name + " loses nothing: it has no quality");
  }
  if (strength.quality &&
      !(*strength.quality >= codec.lowest && *strength.quality <= codec.highest)) {
    throw Error::expected(Fault::wrongUse, "--quality",
                          "of " + name + " " + std::to_string(codec.lowest) + " (best) to " +
                              std::to_string(codec.highest),
                          numberText(*strength.quality));
  }
  if (strength.bitRate > 0 && !codec.takesBitRate) {
    throw Error(Fault::wrongUse, "--bitrate",
                name + " is not written at a bit rate" + (key.empty() ? "" : "; it has --quality"));
  }
  AVDictionary* settings = nullptr;
  av_dict_parse_string(&settings, codec.settings, "=", ":", 0);
  if (strength.quality) {
    // FFmpeg counts quantisers in parts of one.
    const bool quantiser = key == "global_quality";
    const double value =
        quantiser ? std::floor(*strength.quality) * FF_QP2LAMBDA : *strength.quality;
    av_dict_set(&settings, key.c_str(), numberText(value).c_str(), 0);
  }
  if (strength.bitRate > 0) {
    av_dict_set(&settings, "crf", nullptr, 0);
    av_dict_set_int(&settings, "b", strength.bitRate, 0);
  }
  return settings;
}

std::string movieCodecNames() {
  std::string names;
  for (const MovieCodec& codec : codecs) {
    names += (names.empty() ? "" : ", ") + std::string(codec.name);
  }
  return names;
}

const MovieCodec& movieCodecFor(const std::string& name, const std::string& path) {
  const std::string ending = endingOf(path);
  if (name.empty()) {
    // .mkv and .avi are for what loses nothing.
    if (ending == ".mkv" || ending == ".avi") return movieCodecFor("ffv1", path);
    const auto* usual = std::find_if(codecs.begin(), codecs.end(),
                                     [&](const MovieCodec& codec) { return holds(codec, ending); });
    if (usual != codecs.end()) return *usual;
    throw Error::expected(Fault::wrongUse, path,
                          "a movie ending that can be written: .mov, .mkv, .webm, .mp4, .m4v or "
                          ".avi",
                          ending);
  }
  const auto* named = std::find_if(codecs.begin(), codecs.end(),
                                   [&](const MovieCodec& codec) { return name == codec.name; });
  if (named == codecs.end()) {
    throw Error::expected(Fault::wrongUse, "--codec", "one of " + movieCodecNames(), name);
  }
  if (!holds(*named, ending)) {
    std::string endings = named->endings;
    endings.pop_back();
    throw Error::expected(Fault::wrongUse, path, "an ending that holds " + name + ": " + endings,
                          ending);
  }
  return *named;
}

}  // namespace orvanite::media
