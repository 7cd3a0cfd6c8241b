// SPDX-License-Identifier: BSD-3-Clause
#include "media/MovieWish.h"

#include <algorithm>

namespace orvanite::media {
namespace {

bool follow(const std::vector<int>& frames) {
  return std::adjacent_find(frames.begin(), frames.end(),
                            [](int a, int b) { return b != a + 1; }) == frames.end();
}

}  // namespace

MovieOptions movieOf(const Source* shot, const MovieWish& wish, const std::vector<int>& frames,
                     std::vector<std::string>& notices) {
  MovieOptions movie;
  movie.codec = wish.codec;
  if (shot != nullptr) movie.facts = shot->facts();
  if (wish.frameRate) {
    movie.facts.frameRate = *wish.frameRate;
  } else if (movie.facts.frameRate.numerator == 0) {
    movie.facts.frameRate = {24, 1};
    notices.emplace_back("frame rate: 24 (nothing says another; --fps does)");
  }
  const bool isShot = shot != nullptr && shot->isShot();
  movie.firstFrame = isShot ? frames.front() - shot->frames().front() : 0;
  movie.frameCount = static_cast<int>(frames.size());
  movie.toTheEnd = isShot && frames.back() == shot->frames().back();
  movie.sound = follow(frames) && !wish.frameRate;
  if (!movie.sound && !movie.facts.sound.empty()) {
    notices.emplace_back(
        "the sound is left out: it goes with frames that follow one another at the plate's rate");
  }
  return movie;
}

}  // namespace orvanite::media
