// SPDX-License-Identifier: BSD-3-Clause
#include "apps/view/Footage.h"

#include <algorithm>

#include "apps/media/PictureReader.h"
#include "apps/media/Source.h"
#include "apps/view/Proxy.h"
#include "keyer/Error.h"

namespace orvanite::view {
namespace {

using media::Source;

const char* nameOf(Role role) {
  switch (role) {
    case Role::plate:
      return "plate";
    case Role::background:
      return "background";
    case Role::holdOut:
      return "hold-out matte";
    case Role::garbage:
      return "garbage matte";
    default:
      return "clean plate";
  }
}

void compareSizes(const Source& plate, const Source& other, Role role) {
  const media::Window& expected = plate.info().display;
  const media::Window& found = other.info().display;
  if (expected.width == found.width && expected.height == found.height) return;
  const auto size = [](const media::Window& window) {
    return std::to_string(window.width) + "x" + std::to_string(window.height);
  };
  throw Error(Fault::wrongUse, other.info().path,
              std::string("expected a ") + nameOf(role) + " of the plate's size " + size(expected) +
                  ", found " + size(found));
}

}  // namespace

const std::string& FootageFiles::of(Role role) const {
  switch (role) {
    case Role::plate:
      return plate;
    case Role::background:
      return background;
    case Role::holdOut:
      return holdOut;
    case Role::garbage:
      return garbage;
    default:
      return reference;
  }
}

Footage::Footage(FootageFiles files, std::size_t cacheBytes, media::ColourPath colours)
    : files_(std::move(files)), cacheBytes_(cacheBytes), colours_(std::move(colours)) {
  for (const Role role : roles) {
    if (files_.of(role).empty()) continue;
    auto& opened = sources_[static_cast<std::size_t>(role)];
    opened = Source::open(files_.of(role));
    if (role != Role::plate) compareSizes(source(Role::plate), *opened, role);
    if (!opened->notice().empty()) info_.notices.push_back(opened->notice());
  }
  const Source& plate = source(Role::plate);
  info_.width = plate.info().display.width;
  info_.height = plate.info().display.height;
  info_.samples = plate.info().samples;
  if (!files_.background.empty()) {
    info_.samples = std::max(info_.samples, source(Role::background).info().samples);
  }
  if (colours_.used) info_.samples = std::max(info_.samples, media::Samples::half);
  info_.depth = media::depthOf(info_.samples);
  info_.isShot = plate.isShot();
  info_.frames = plate.isShot() ? plate.frames() : std::vector<int>{1};
  if (const media::Ratio rate = plate.facts().frameRate; rate.numerator > 0) {
    info_.framesPerSecond = static_cast<double>(rate.numerator) / rate.denominator;
  }
  const media::Encoding encoding =
      media::encodingOf(plate.header(), plate.info().format, plate.info().samples);
  info_.colourspace = encoding.colourspace;
  info_.reason = encoding.reason;
  if (colours_.used && colours_.linear) {
    info_.colourspace = "linear";
    info_.reason = "working space " + colours_.workingSpace;
  }
  info_.inputs = {!files_.background.empty(), !files_.holdOut.empty(), !files_.garbage.empty(),
                  !files_.reference.empty()};
}

Footage::~Footage() = default;

// A clip beside the plate holds its ends, as in `orvanite key`.
int Footage::frameOf(Role role, int frame) const {
  const Source& from = source(role);
  if (role == Role::plate || !from.isShot()) return frame;
  return std::clamp(frame, from.frames().front(), from.frames().back());
}

media::Window Footage::ownPixels(int frame) {
  const std::lock_guard lock(mutex_);
  if (const auto found = ownPixels_.find(frame); found != ownPixels_.end()) return found->second;
  auto& plate = *sources_[static_cast<std::size_t>(Role::plate)];
  media::Window window = plate.windowOf(frame);
  window.x -= plate.info().display.x;
  window.y -= plate.info().display.y;
  ownPixels_.emplace(frame, window);
  return window;
}

std::vector<std::string> Footage::filesOf(int frame) const {
  std::vector<std::string> files;
  for (const Role role : roles) {
    if (!files_.of(role).empty()) files.push_back(source(role).fileOf(frameOf(role, frame)));
  }
  return files;
}

media::Picture Footage::readFrame(const Key& key) {
  auto& from = *sources_[static_cast<std::size_t>(key.role)];
  const int frame = frameOf(key.role, key.frame);
  const media::Request request{info_.depth, from.info().display, 1, key.channel};
  if (!from.sequential()) return from.read(frame, request);
  const auto rest = [&] {
    const std::lock_guard lock(reading_);
    return from.begin(frame, request);
  }();
  return rest();
}

Footage::Shared Footage::picture(Role role, int frame, const std::string& channel, int divisor) {
  const bool matte = role == Role::holdOut || role == Role::garbage;
  const Key key{role, frame, matte ? channel : std::string(), divisor};
  if (Shared found = find(key)) return found;
  Shared made;
  if (divisor == 1) {
    media::Picture read = readFrame(key);
    if (!matte) (role == Role::background ? colours_.background : colours_.plate).apply(read);
    made = std::make_shared<const media::Picture>(std::move(read));
    if (made->data.width != info_.width || made->data.height != info_.height) {
      throw Error(Fault::failure, files_.of(role),
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
