// SPDX-License-Identifier: BSD-3-Clause
#include "media/Movies.h"

extern "C" {
#include <libavutil/parseutils.h>
}

#include "base/Error.h"
#include "media/MovieCodec.h"
#include "media/MovieColour.h"
#include "media/MovieModule.h"
#include "media/MovieSound.h"

namespace orvanite::media {
namespace {

void checkMatrixName(const std::string& name, const std::string& subject) {
  static_cast<void>(matrixOf(name, subject));
}

void checkCodec(const std::string& path, const std::string& codec) { movieCodecFor(codec, path); }

bool holdsAlpha(const std::string& path, const std::string& codec) {
  return hasAlpha(movieCodecFor(codec, path).deep);
}

Ratio frameRateOf(const std::string& text, const std::string& subject) {
  AVRational rate{0, 1};
  if (av_parse_video_rate(&rate, text.c_str()) < 0 || rate.num <= 0 || rate.den <= 0 ||
      av_q2d(rate) > 1000) {
    throw Error::expected(Fault::wrongUse, subject,
                          "frames a second, such as 24, 23.976 or 24000/1001", text);
  }
  // 23.976 and the like stand for a fraction of 1001.
  for (const int whole : {24, 30, 48, 60, 120}) {
    const double exact = whole * 1000 / 1001.0;
    if (rate.den != 1 && rate.den != 1001 && av_q2d(rate) > exact - 0.006 &&
        av_q2d(rate) < exact + 0.006) {
      return {whole * 1000, 1001};
    }
  }
  return {rate.num, rate.den};
}

}  // namespace
}  // namespace orvanite::media

const orvanite::media::MovieModule orvaniteMovies{
    orvanite::media::readMovie,   orvanite::media::checkMatrixName,
    orvanite::media::writeMovie,  orvanite::media::checkCodec,
    orvanite::media::holdsAlpha,  orvanite::media::MovieSound::startOf,
    orvanite::media::frameRateOf,
};
