// SPDX-License-Identifier: BSD-3-Clause
//
// Sources may count their pixels from any corner: windows are brought into the plate's coordinates
// before anything is compared.
#include "shot/Shot.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include "base/Error.h"
#include "media/FramePattern.h"
#include "media/FrameRange.h"
#include "shot/Mask.h"

namespace orvanite::shot {
namespace {

using media::Picture;
using media::Source;
using media::Window;

std::string sizeOf(const Window& window) {
  return std::to_string(window.width) + "x" + std::to_string(window.height);
}

// A picture beside the plate must show the same frame.
void compareSizes(const Source& plate, const Source& side, Role role) {
  const Window& expected = plate.info().display;
  const Window& found = side.info().display;
  if (expected.width == found.width && expected.height == found.height) return;
  throw Error(Fault::wrongUse, side.info().path,
              std::string("expected a ") + nameOf(role) + " of the plate's size " +
                  sizeOf(expected) + ", found " + sizeOf(found));
}

media::Encoding fileEncoding(const Source& source) {
  return media::encodingOf(source.header(), source.info().format, source.info().samples);
}

double aspectOf(const Source& source) {
  const media::Ratio& aspect = source.facts().pixelAspect;
  return aspect.numerator > 0 ? static_cast<double>(aspect.numerator) / aspect.denominator : 1;
}

// A window of one source in the coordinates of another, whose frame may start elsewhere.
Window between(const Source& from, const Source& to, Window window) {
  window.x += to.info().display.x - from.info().display.x;
  window.y += to.info().display.y - from.info().display.y;
  return window;
}

// What both have; all of the first where that is nothing.
Window common(const Window& a, const Window& b) {
  const int x = std::max(a.x, b.x);
  const int y = std::max(a.y, b.y);
  const Window both{x, y, std::min(a.x + a.width, b.x + b.width) - x,
                    std::min(a.y + a.height, b.y + b.height) - y};
  return both.width > 0 && both.height > 0 ? both : a;
}

}  // namespace

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

bool hasMask(const Masks& masks, Role role) {
  return isMatte(role) && hasMasks(masks, useOf(role));
}

struct Shot::Still {
  std::mutex mutex;
  Picture picture;  // no pixels: not made yet
};

Shot::Shot(ShotFiles files, media::ColourPath colours)
    : files_(std::move(files)), colours_(std::move(colours)) {
  for (const Role role : roles) {
    const std::string& path = files_.clips[role].path;
    if (path.empty()) continue;
    sources_[role] = Source::open(path, files_.clips[role].how);
    if (role != Role::plate && role != Role::background) {
      compareSizes(plate(), source(role), role);
    }
  }
  samples_ = plate().info().samples;
  if (has(Role::background)) samples_ = std::max(samples_, source(Role::background).info().samples);
  if (colours_.used) samples_ = std::max(samples_, media::Samples::half);
  if (!has(Role::background)) return;
  const media::PictureInfo& back = source(Role::background).info();
  const Window& frame = plate().info().display;
  resizesBackground_ = back.display.width != frame.width || back.display.height != frame.height;
  // Files of one kind are in one encoding, whatever the plate is keyed as.
  backgroundEncoding_ = files_.backgroundEncoding.empty()
                            ? fileEncoding(source(Role::background)).colourspace
                            : files_.backgroundEncoding;
  recodesBackground_ = !colours_.used && backgroundEncoding_ != encoding().colourspace;
  if (resizesBackground_ || recodesBackground_) still_ = std::make_shared<Still>();
}

Inputs Shot::inputs() const {
  return {has(Role::background), has(Role::holdOut), has(Role::garbage), has(Role::cleanPlate)};
}

media::Encoding Shot::encoding() const {
  if (colours_.used && !colours_.encoding.empty()) {
    return {colours_.encoding, "working space " + colours_.workingSpace};
  }
  return fileEncoding(plate());
}

std::vector<std::string> Shot::notices() const {
  std::vector<std::string> all;
  for (const Role role : roles) {
    if (hasFile(role) && !source(role).notice().empty()) all.push_back(source(role).notice());
  }
  if (resizesBackground_) {
    all.push_back("background: " + sizeOf(source(Role::background).info().display) +
                  ", brought to the plate's " + sizeOf(plate().info().display) +
                  " (--bg-fit says how)");
  }
  if (recodesBackground_) {
    all.push_back("background: " + backgroundEncoding_ + ", brought to the plate's " +
                  encoding().colourspace + " (--bg-colourspace says what it is)");
  }
  return all;
}

std::optional<int> Shot::frameOf(Role role, int frame) const {
  const std::vector<int>& frames = source(role).frames();
  if (role == Role::plate || frames.empty()) return frame;
  const int first = frames.front();
  const int last = frames.back();
  const int wanted = frame + files_.clips[role].offset;
  if (wanted >= first && wanted <= last) return wanted;
  switch (files_.pastEnd) {
    case PastEnd::hold:
      return std::clamp(wanted, first, last);
    case PastEnd::loop: {
      const int length = last - first + 1;
      return first + ((wanted - first) % length + length) % length;
    }
    default:
      return std::nullopt;
  }
}

std::string Shot::fileOf(Role role, int frame) const {
  return source(role).fileOf(frameOf(role, frame).value_or(frame + files_.clips[role].offset));
}

Window Shot::inPlate(Role role, Window window) const {
  return between(source(role), plate(), window);
}

Window Shot::ownPixels(Role role, int frame) const {
  if (role == Role::background && resizesBackground_) return plate().info().display;
  return inPlate(role, sources_[role]->windowOf(frameOf(role, frame).value_or(frame)));
}

Window Shot::allPixels(int frame) const {
  Window window = ownPixels(Role::plate, frame);
  for (const Role role : {Role::background, Role::holdOut, Role::garbage}) {
    if (hasFile(role) && frameOf(role, frame)) window = united(window, ownPixels(role, frame));
  }
  return window;
}

const media::ColourSpaces::Conversion* Shot::conversion(Role role) const {
  if (isMatte(role)) return nullptr;
  return role == Role::background ? &colours_.background : &colours_.plate;
}

std::function<Picture()> Shot::begin(Role role, int frame, std::function<Window()> window,
                                     const std::string& channel) const {
  if (hasMask(files_.masks, role)) {
    return [this, role, frame, matte = beginFile(role, frame, std::move(window), channel)] {
      Picture picture = matte();
      for (const MaskShape& shape : shapesAt(files_.masks, useOf(role), frame)) {
        join(shape, plate().info().display, picture);
      }
      return picture;
    };
  }
  return beginFile(role, frame, std::move(window), channel);
}

std::function<Picture()> Shot::beginFile(Role role, int frame, std::function<Window()> window,
                                         const std::string& channel) const {
  const auto own = hasFile(role) ? frameOf(role, frame) : std::nullopt;
  if (!own) {
    return [this, window = std::move(window)] {
      Picture black = Picture::make(window(), depth(), samples_);
      std::memset(black.pixels.get(), 0, black.bytes());
      return black;
    };
  }
  if (role == Role::background && (resizesBackground_ || recodesBackground_)) {
    return beginBackground(*own, std::move(window));
  }
  Source* const from = sources_[role].get();
  const auto request = [this, from, window = std::move(window),
                        channel = isMatte(role) ? channel : std::string()] {
    return media::Request{depth(), between(plate(), *from, window()), 1, channel};
  };
  // What one thread must do of a read is done now, where there is such a thing.
  std::function<Picture()> rest;
  if (from->sequential()) rest = from->begin(*own, request());
  return [this, role, from, own, request, rest = std::move(rest)] {
    Picture picture = rest ? rest() : from->read(*own, request());
    picture.samples = samples_;
    if (const auto* const way = conversion(role)) way->apply(picture);
    return picture;
  };
}

// All of a background over the plate's frame. A still is made once and copied from then on.
std::function<Picture()> Shot::beginBackground(int frame, std::function<Window()> window) const {
  Source* const from = sources_[Role::background].get();
  const media::Request request{Depth::floats, from->info().display, 1, ""};
  std::function<Picture()> rest;
  if (from->sequential()) rest = from->begin(frame, request);
  const auto make = [this, from, frame, request, rest = std::move(rest)] {
    Picture picture = rest ? rest() : from->read(frame, request);
    colours_.background.apply(picture);
    const Window& whole = plate().info().display;
    // Between colour spaces the picture is in the working space already.
    const std::string to = encoding().colourspace;
    picture = fitted(picture, aspectOf(*from) / aspectOf(plate()), files_.backgroundFit, whole,
                     colours_.used ? to : backgroundEncoding_, to, depth());
    picture.samples = samples_;
    return picture;
  };
  return [this, from, make, window = std::move(window)] {
    if (from->isShot()) return media::placed(make(), window());
    const std::lock_guard lock(still_->mutex);
    if (!still_->picture.pixels) still_->picture = make();
    return media::part(still_->picture, window());
  };
}

LookedAt Shot::toLookAt(std::optional<int> frame) const {
  const Window whole = plate().info().display;
  if (plate().isShot() || !frame) {
    const int shown = frame.value_or(plate().isShot() ? plate().frames().front() : 1);
    return {begin(Role::plate, shown, [whole] { return whole; })(),
            common(whole, ownPixels(Role::plate, shown))};
  }
  const std::string& path = files_.clips[Role::plate].path;
  const auto pattern = media::FramePattern::ofFile(path);
  if (!pattern) {
    throw Error::expected(Fault::wrongUse, "screenFrame", "a plate with a frame number in its name",
                          path);
  }
  media::PictureReader reader(pattern->path(*frame), files_.clips[Role::plate].how.picture);
  LookedAt look{reader.read(depth(), whole, 1), common(whole, reader.info().data)};
  look.picture.samples = samples_;
  colours_.plate.apply(look.picture);
  return look;
}

std::vector<int> framesOf(const Source& plate, const std::string& asked,
                          const std::string& subject) {
  std::vector<int> frames;
  std::optional<int> end;
  if (plate.isShot()) end = plate.frames().back();
  if (!asked.empty()) frames = media::parseFrames(asked, subject, end);
  if (!plate.isShot()) return frames;
  const int first = plate.frames().front();
  const int last = plate.frames().back();
  if (asked.empty()) {
    for (int frame = first; frame <= last; ++frame) frames.push_back(frame);
    return frames;
  }
  std::erase_if(frames, [&](int frame) { return frame < first || frame > last; });
  if (frames.empty()) {
    throw Error(Fault::missingFrames, plate.info().path,
                "the shot has frames " + std::to_string(first) + " to " + std::to_string(last) +
                    ", none of " + asked);
  }
  return frames;
}

}  // namespace orvanite::shot
