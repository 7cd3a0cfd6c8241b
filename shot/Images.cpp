// SPDX-License-Identifier: BSD-3-Clause
//
// Interleaved rows without gaps, as media::Picture has them.
#include "shot/Images.h"

namespace orvanite::shot {

OtileImage imageOf(const media::Picture& picture) { return imageOf(picture, 0, 0); }

OtileImage imageOf(const media::Picture& picture, int x, int y) {
  const Depth depth = picture.depth;
  std::byte* const first =
      picture.pixels.get() + (std::ptrdiff_t{y} * picture.data.width + x) * 4 * bytesOf(depth);
  return {first,
          first + bytesOf(depth),
          first + std::ptrdiff_t{2} * bytesOf(depth),
          first + std::ptrdiff_t{3} * bytesOf(depth),
          4,
          4 * picture.data.width};
}

Plate plateOf(const media::Picture& picture) {
  return {imageOf(picture), picture.data.width, picture.data.height, picture.depth};
}

bool uses(const Settings& settings, const Inputs& present, Role role) {
  switch (role) {
    case Role::plate:
      return true;
    case Role::background:
      return needsBackground(settings, present);
    case Role::holdOut:
      return present.holdOut && settings.toggle("useHoldOutMatte");
    case Role::garbage:
      return present.garbage && settings.toggle("useGarbageMatte");
    default:
      return present.reference && settings.toggle("useReference");
  }
}

std::string channelOf(const Shot& shot, const Settings& settings, Role role) {
  if (!isMatte(role) || !shot.hasFile(role)) return {};
  const char* const name = role == Role::holdOut ? "holdOutChannel" : "garbageChannel";
  const media::PictureInfo& info = shot.source(role).info();
  if (!settings.given(name) && !info.hasAlpha && info.channels.size() > 1) return "R";
  return settings.text(name);
}

void paintBeside(media::Picture& picture, const media::Window& own, const Settings& settings) {
  media::paintOutside(
      picture, own,
      {settings.number("screen", 0), settings.number("screen", 1), settings.number("screen", 2)});
}

Frame frameOf(const ByRole<const media::Picture*>& pictures, const media::Window& region) {
  Frame frame;
  frame.width = region.width;
  frame.height = region.height;
  frame.depth = pictures[Role::plate]->depth;
  const auto place = [&](Role role, OtileImage& to) {
    if (pictures[role] != nullptr) to = imageOf(*pictures[role], region.x, region.y);
  };
  place(Role::plate, frame.pictures.fg);
  place(Role::background, frame.pictures.bg);
  place(Role::holdOut, frame.pictures.hold);
  place(Role::garbage, frame.pictures.garbage);
  place(Role::cleanPlate, frame.pictures.ref);
  return frame;
}

bool showsColours(const Settings& settings) { return !showsMatte(settings.view({})); }

}  // namespace orvanite::shot
