// SPDX-License-Identifier: BSD-3-Clause
#include "apps/view/Thumbnails.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "base/Error.h"

namespace orvanite::view {
namespace {

// 65536 pixels of 16 bits are the most that a sum of 32 bits holds.
constexpr int mostDivisor = 256;

int divisorFor(int width, int height) {
  const auto up = [](int size, int most) { return (size + most - 1) / most; };
  return std::clamp(std::max(up(width, Thumbnails::widest), up(height, Thumbnails::tallest)), 1,
                    mostDivisor);
}

shot::ShotFiles plateAlone(const shot::ShotFiles& files) {
  shot::ShotFiles alone;
  alone.clips[shot::Role::plate] = files.clips[shot::Role::plate];
  return alone;
}

}  // namespace

Thumbnails::Thumbnails(const shot::ShotFiles& files, media::ColourPath colours)
    : files_(plateAlone(files)), colours_(std::move(colours)) {}

Thumbnails::Shared Thumbnails::of(int frame) {
  const std::lock_guard lock(mutex_);
  const auto found = std::find_if(kept_.begin(), kept_.end(),
                                  [frame](const Entry& entry) { return entry.frame == frame; });
  if (found != kept_.end()) {
    kept_.splice(kept_.begin(), kept_, found);
    return found->picture;
  }
  auto picture = std::make_shared<const ScreenPicture>(read(frame));
  bytes_ += picture->rgba.size();
  kept_.push_front({frame, picture});
  while (bytes_ > mostBytes && kept_.size() > 1) {
    bytes_ -= kept_.back().picture->rgba.size();
    kept_.pop_back();
  }
  return picture;
}

ScreenPicture Thumbnails::read(int frame) {
  if (!shot_) shot_.emplace(files_, colours_);
  const std::vector<int> frames =
      shot_->plate().isShot() ? shot_->plate().frames() : std::vector<int>{1};
  if (!std::binary_search(frames.begin(), frames.end(), frame)) {
    throw Error::expected(Fault::wrongUse, "frame", "one of the plate's", std::to_string(frame));
  }
  const media::Window whole = shot_->plate().info().display;
  const media::Picture full = shot_->begin(shot::Role::plate, frame, [whole] { return whole; })();
  media::Picture small = shrink(full, divisorFor(whole.width, whole.height));
  shot_->colours().out.apply(small);
  const bool light = !shot_->colours().used && shot_->encoding().colourspace == "linear";
  return toScreen(small.pixels.get(), small.rowBytes(), small.data.width, small.data.height,
                  small.depth, light);
}

std::size_t Thumbnails::keptBytes() const {
  const std::lock_guard lock(mutex_);
  return bytes_;
}

}  // namespace orvanite::view
