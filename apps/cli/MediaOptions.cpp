// SPDX-License-Identifier: BSD-3-Clause
#include "apps/cli/MediaOptions.h"

#include <CLI/CLI.hpp>
#include <utility>

#include "base/Error.h"
#include "media/MovieSource.h"
#include "media/MovieWriter.h"

namespace orvanite::cli {
namespace {

auto adder(CLI::App& command, const char* group) {
  return [&command, group](const char* type, const char* name, std::string& to, const char* help) {
    command.add_option(name, to, help)->group(group)->type_name(type)->take_last();
  };
}

}  // namespace

void ReadOptions::addTo(CLI::App& command, const char* group) {
  const auto text = adder(command, group);
  command
      .add_flag("--deinterlace", deinterlace_,
                "Make whole frames from the fields of interlaced movies, one for one; without it "
                "such a movie is refused. [default off]")
      ->group(group);
  text("NAME", "--matrix", matrix_,
       "How a movie's luma and colour differences become red, green and blue, whatever its tags "
       "say: 601, 709, 2020, 240M or fcc. [default the movie's; 601 below 720 lines, else 709]");
  text("NAME|N", "--part", part_,
       "Of an OpenEXR plate: the part to key, by its name or counted from 0; orvanite info lists "
       "them. [default the one with plain R, G and B]");
  text("NAME", "--layer", layer_,
       "Likewise the layer: beauty reads beauty.R and so on, or the part of that name. [default "
       "plain R, G and B, else beauty and its like]");
}

media::OpenOptions ReadOptions::how() const {
  media::OpenOptions how;
  how.matrix = matrix_;
  how.deinterlace = deinterlace_;
  how.picture = {part_, layer_};
  if (!matrix_.empty()) media::checkMatrix(matrix_, "--matrix");
  return how;
}

std::vector<std::string> ReadOptions::words() const {
  std::vector<std::string> words;
  if (deinterlace_) words.emplace_back("--deinterlace");
  for (const auto& [name, value] :
       {std::pair{"--matrix", &matrix_}, {"--part", &part_}, {"--layer", &layer_}}) {
    if (!value->empty()) words.insert(words.end(), {name, *value});
  }
  return words;
}

void MovieOptions::addTo(CLI::App& command, const char* group) {
  const auto text = adder(command, group);
  text("NAME", "--codec", codec,
       "Of a movie: prores4444, ffv1, vp9, qtrle and png hold alpha, h264 and hevc do not. "
       "[default prores4444 in .mov, ffv1 in .mkv and .avi, vp9 in .webm, h264 in .mp4]");
  text("RATE", "--fps", frameRate,
       "Frames a second, such as 24 or 24000/1001: of stills as they are; frames of a movie are "
       "held and dropped to it, so that it plays as long and its sound stays in step. [default "
       "the plate's, else 24]");
  text("N", "--quality", quality,
       "Of a movie, as its codec counts: h264 and hevc by CRF 0 (nothing lost) to 51, vp9 0 to 63, "
       "prores4444 by quantiser 1 (best) to 64. [default 16, 16, 18, 1]");
  text("RATE", "--bitrate", bitRate,
       "Of h264, hevc and vp9 instead of a quality: bits a second, such as 800k or 12M.");
  text("FILE|none", "--sound", sound,
       "The sound of a movie: a movie's or sound file's, begun with the plate's first frame, or "
       "none. [default the plate's]");
}

media::MovieWish MovieOptions::wish() const {
  media::MovieWish wish;
  wish.codec = codec;
  wish.sound = sound;
  if (!frameRate.empty()) wish.frameRate = media::parseFrameRate(frameRate, "--fps");
  if (!quality.empty() && !bitRate.empty()) {
    throw Error(Fault::wrongUse, "--bitrate", "expected either it or --quality");
  }
  wish.strength.quality = media::parseQuality(quality, "--quality");
  wish.strength.bitRate = media::parseBitRate(bitRate, "--bitrate");
  return wish;
}

std::string MovieOptions::given() const {
  for (const auto& [name, value] : {std::pair{"--codec", &codec},
                                    {"--quality", &quality},
                                    {"--bitrate", &bitRate},
                                    {"--sound", &sound}}) {
    if (!value->empty()) return name;
  }
  return "";
}

}  // namespace orvanite::cli
