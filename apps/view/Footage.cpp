// SPDX-License-Identifier: BSD-3-Clause
#include "apps/view/Footage.h"

#include <algorithm>

#include "apps/view/PageView.h"
#include "apps/view/Proxy.h"
#include "base/Error.h"
#include "shot/Images.h"

namespace orvanite::view {

Footage::Footage(shot::ShotFiles files, std::size_t cacheBytes, media::ColourPath colours)
    : shot_(std::move(files), std::move(colours)), cacheBytes_(cacheBytes) {
  const media::Source& plate = shot_.plate();
  info_.width = plate.info().display.width;
  info_.height = plate.info().display.height;
  info_.samples = shot_.samples();
  info_.depth = shot_.depth();
  info_.isShot = plate.isShot();
  info_.frames = plate.isShot() ? plate.frames() : std::vector<int>{1};
  if (const media::Ratio rate = plate.facts().frameRate; rate.numerator > 0) {
    info_.framesPerSecond = static_cast<double>(rate.numerator) / rate.denominator;
  }
  const media::Encoding encoding = shot_.encoding();
  info_.colourspace = encoding.colourspace;
  info_.reason = encoding.reason;
  info_.inputs = shot_.inputs();
  info_.notices = shot_.notices();
}

media::Window Footage::ownPixels(int frame) {
  const std::lock_guard lock(mutex_);
  if (const auto found = ownPixels_.find(frame); found != ownPixels_.end()) return found->second;
  media::Window window = shot_.ownPixels(Role::plate, frame);
  window.x -= shot_.plate().info().display.x;
  window.y -= shot_.plate().info().display.y;
  ownPixels_.emplace(frame, window);
  return window;
}

std::shared_ptr<const BlindKey> Footage::estimates(const Settings& settings, int frame,
                                                   int divisor) {
  constexpr std::size_t kept = 6;
  const std::lock_guard lock(estimating_);
  if (!shotEstimates_ || !shotEstimates_->suits(settings)) {
    const auto turn = turnToRead(Role::plate);
    shotEstimates_ = std::make_shared<const BlindKey>(shot::estimatesOf(shot_, settings));
    frameEstimates_.clear();
  }
  for (const Estimates& one : frameEstimates_) {
    if (one.frame == frame && one.divisor == divisor) return one.key;
  }
  const Shared plate = picture(Role::plate, frame, {}, divisor);
  auto key =
      std::make_shared<const BlindKey>(shotEstimates_->carriedTo(shot::plateOf(*plate), rowsOn(0)));
  frameEstimates_.push_front({frame, divisor, key});
  if (frameEstimates_.size() > kept) frameEstimates_.pop_back();
  return key;
}

shot::FirstKey Footage::find(const shot::FirstKeyWish& wish, Settings& settings) {
  const std::lock_guard finding(finding_);
  shot::FirstKey key = [&] {
    const auto turn = turnToRead(Role::plate);
    return findFirstKey(shot_, wish, settings);
  }();
  if (key.blind && wish.frame.value_or(info_.frames.front()) == info_.frames.front()) {
    const std::lock_guard lock(estimating_);
    shotEstimates_ = key.blind;
    frameEstimates_.clear();
  }
  return key;
}

std::unique_lock<std::mutex> Footage::turnToRead(Role role) {
  return shot_.sequential(role) ? std::unique_lock(reading_) : std::unique_lock<std::mutex>();
}

std::vector<std::string> Footage::filesOf(int frame) const {
  std::vector<std::string> files;
  for (const Role role : roles) {
    if (shot_.hasFile(role)) files.push_back(shot_.fileOf(role, frame));
  }
  return files;
}

media::Picture Footage::read(const Key& key) {
  const auto begin = [&] {
    const media::Window whole = shot_.plate().info().display;
    return shot_.begin(
        key.role, key.frame, [whole] { return whole; }, key.channel);
  };
  const auto rest = [&] {
    const auto turn = turnToRead(key.role);
    return begin();
  }();
  media::Picture picture = rest();
  if (key.role == Role::background) {
    makeTransparent(picture.pixels.get(), picture.depth,
                    picture.bytes() / static_cast<std::size_t>(4 * bytesOf(picture.depth)));
  }
  return picture;
}

Footage::Shared Footage::picture(Role role, int frame, const std::string& channel, int divisor) {
  const Key key{role, frame, shot::isMatte(role) ? channel : std::string(), divisor};
  if (Shared found = find(key)) return found;
  Shared made;
  if (divisor == 1) {
    made = std::make_shared<const media::Picture>(read(key));
    if (made->data.width != info_.width || made->data.height != info_.height) {
      throw Error(Fault::failure, shot_.files().clips[role].path,
                  "expected every frame to have the first one's size");
    }
  } else {
    made =
        std::make_shared<const media::Picture>(shrink(*picture(role, frame, channel, 1), divisor));
  }
  keep(key, made);
  return made;
}

Footage::Shared Footage::find(const Key& key) {
  const std::lock_guard lock(mutex_);
  const auto found = std::find_if(entries_.begin(), entries_.end(),
                                  [&](const Entry& entry) { return entry.key == key; });
  if (found == entries_.end()) return nullptr;
  entries_.splice(entries_.begin(), entries_, found);
  return found->picture;
}

void Footage::keep(const Key& key, const Shared& picture) {
  const std::lock_guard lock(mutex_);
  entries_.push_front({key, picture});
  bytes_ += picture->bytes();
  while (bytes_ > cacheBytes_ && entries_.size() > 1) {
    bytes_ -= entries_.back().picture->bytes();
    entries_.pop_back();
  }
}

std::size_t Footage::cachedBytes() const {
  const std::lock_guard lock(mutex_);
  return bytes_;
}

}  // namespace orvanite::view
