// SPDX-License-Identifier: BSD-3-Clause
//
// The buttons that look at the plate's current frame: Auto, and the one that measures the screen.
#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <vector>

#include "base/Error.h"
#include "keyer/AutoKey.h"
#include "keyer/Screen.h"
#include "plugins/ofx/Instance.h"
#include "plugins/ofx/PlateCopy.h"

namespace orvanite::ofxPlugin {

namespace {

std::optional<PlateCopy> copyOf(const Image& image) {
  if (!image || !image.sample()) return {};
  const Picture picture = image.picture(ofx::sourceClip);
  if (picture.channels < 3 || isEmpty(picture.bounds)) return {};
  return PlateCopy(picture);
}

constexpr double farAway = 1e6;  // more pixels than any picture has, and safe to make integers of

int pixelOf(double value) { return static_cast<int>(std::clamp(value, -farAway, farAway)); }

// The pixels of a box that lie on the plate, from its first row; empty: there are none.
std::optional<Box> boxOn(const PlateCopy& copy, const ofx::RectD& box, const ofx::PointD& scale) {
  const ofx::RectI pixels{
      pixelOf(std::floor(box.x1 * scale.x)), pixelOf(std::floor(box.y1 * scale.y)),
      pixelOf(std::ceil(box.x2 * scale.x)), pixelOf(std::ceil(box.y2 * scale.y))};
  const ofx::RectI inside = overlap(pixels, copy.bounds);
  if (isEmpty(inside)) return {};
  return Box{inside.x1 - copy.bounds.x1, copy.bounds.y2 - inside.y2, inside.x2 - inside.x1,
             inside.y2 - inside.y1};
}

}  // namespace

void Instance::findKey(ofx::Time time) {
  const Image image(source_.clip, time);
  const auto copy = copyOf(image);
  if (!copy) {
    report(ofx::message::warning, "Auto: there is no plate at this frame");
    return;
  }
  const Settings now = parameters_.at(time);
  Settings settings;
  settings.setText("colourspace", now.text("colourspace"));
  try {
    if (now.toggle("useReference") && !reference_.connected()) {
      const BlindKey found = orvanite::findKey(copy->plate, settings);
      parameters_.write(found.settings, found.set, time, "Auto");
      return;
    }
    // The user's clean plate, or none at all.
    const CleanPlateUse use =
        now.toggle("useReference") ? CleanPlateUse::always : CleanPlateUse::never;
    AutoKey found = autoKey(copy->plate, settings, use);
    settings.setText("estimate", "off");
    found.set.emplace_back("estimate");
    parameters_.write(settings, found.set, time, "Auto");
  } catch (const Error& error) {
    report(ofx::message::warning, "Auto: " + error.message());
  }
}

void Instance::sampleScreen(ofx::Time time) {
  const Image image(source_.clip, time);
  const auto copy = copyOf(image);
  if (!copy) {
    report(ofx::message::warning, "Sample screen: there is no plate at this frame");
    return;
  }
  Rgb colour;
  if (const auto wanted = parameters_.box(time)) {
    const auto box = boxOn(*copy, *wanted, image.pixelsPerUnit());
    if (!box) {
      report(ofx::message::warning, "Sample screen: the box lies beside the plate");
      return;
    }
    colour = colourOf(copy->plate, *box);
  } else {
    const Screen screen = findScreen(copy->plate);
    if (!screen.found) {
      report(ofx::message::warning, "Sample screen: this frame shows no screen");
      return;
    }
    colour = screen.colour;
  }
  Settings settings;
  const Parameter& screen = *findParameter("screen");
  for (float& value : colour) value = std::clamp(value, screen.low, screen.high);
  settings.setNumbers("screen", static_cast<double>(colour[0]), static_cast<double>(colour[1]),
                      static_cast<double>(colour[2]));
  parameters_.write(settings, std::array{std::string("screen")}, time, "Sample screen");
}

}  // namespace orvanite::ofxPlugin
