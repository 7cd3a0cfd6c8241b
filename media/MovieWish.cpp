// SPDX-License-Identifier: BSD-3-Clause
#include "media/MovieWish.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/Error.h"

namespace orvanite::media {
namespace {

bool follow(const std::vector<int>& frames) {
  return std::adjacent_find(frames.begin(), frames.end(),
                            [](int a, int b) { return b != a + 1; }) == frames.end();
}

bool same(const Ratio& a, const Ratio& b) {
  return std::int64_t{a.numerator} * b.denominator == std::int64_t{b.numerator} * a.denominator;
}

// The sound that was asked for begins with the shot's first frame.
void takeSound(const std::string& sound, bool framesFollow, MovieOptions& movie) {
  movie.facts.sound.clear();
  if (sound == "none") return;
  if (!framesFollow) {
    throw Error(Fault::wrongUse, "--sound", "expected frames that follow one another with it");
  }
  movie.facts.sound = sound;
  movie.facts.start = soundStart(sound);
  movie.sound = movie.soundAsked = true;
  movie.toTheEnd = false;
}

}  // namespace

MovieOptions movieOf(const Source* shot, const MovieWish& wish, const std::vector<int>& frames,
                     std::vector<std::string>& notices) {
  MovieOptions movie;
  movie.codec = wish.codec;
  movie.strength = wish.strength;
  if (shot != nullptr) movie.facts = shot->facts();
  const Ratio own = movie.facts.frameRate;
  if (wish.frameRate) {
    movie.facts.frameRate = *wish.frameRate;
  } else if (own.numerator == 0) {
    movie.facts.frameRate = {24, 1};
    notices.emplace_back("frame rate: 24 (nothing says another; --fps does)");
  }
  const bool isShot = shot != nullptr && shot->isShot();
  movie.firstFrame = isShot ? frames.front() - shot->frames().front() : 0;
  movie.frameCount = static_cast<int>(frames.size());
  movie.toTheEnd = isShot && frames.back() == shot->frames().back();
  movie.sound = follow(frames) && same(own, movie.facts.frameRate);
  if (!wish.sound.empty()) takeSound(wish.sound, follow(frames), movie);
  if (!movie.sound && !movie.facts.sound.empty()) {
    notices.emplace_back(
        "the sound is left out: it goes with frames that follow one another, at the plate's rate");
  }
  return movie;
}

std::optional<double> parseQuality(const std::string& text, const std::string& subject) {
  if (text.empty()) return std::nullopt;
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (*end == '\0' && value >= 0 && value <= 1000) return value;
  throw Error::expected(Fault::wrongUse, subject, "a number such as 18", text);
}

std::int64_t parseBitRate(const std::string& text, const std::string& subject) {
  if (text.empty()) return 0;
  char* end = nullptr;
  double value = std::strtod(text.c_str(), &end);
  const std::string unit = end;
  if (unit == "k" || unit == "K") value *= 1e3;
  if (unit == "m" || unit == "M") value *= 1e6;
  const bool known = unit.empty() || (unit.size() == 1 && std::strchr("kKmM", unit[0]) != nullptr);
  if (known && value >= 1e3 && value <= 2e9) return std::llround(value);
  throw Error::expected(Fault::wrongUse, subject, "bits a second, such as 800k or 12M", text);
}

}  // namespace orvanite::media
