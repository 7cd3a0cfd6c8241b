// SPDX-License-Identifier: BSD-3-Clause
//
// The page's views are those of `orvanite view`, and a render's bytes those of `orvanite key`:
// what either decides about a still is decided here in the same words.
#include "web/Views.h"

#include <algorithm>
#include <string>
#include <utility>

#include "apps/view/PageView.h"
#include "base/Error.h"
#include "keyer/AutoKey.h"

namespace orvanite::web {
namespace {

// In pixels that stand for by x by; those that are partly in a window are.
Window scaled(const Window& window, int by) {
  const int x = window.x / by, y = window.y / by;
  return {x, y, (window.x + window.width + by - 1) / by - x,
          (window.y + window.height + by - 1) / by - y};
}

// A window and as much as `border` around it, as far as the whole goes.
Window grown(const Window& window, int border, const Window& whole) {
  const int left = std::max(whole.x, window.x - border);
  const int top = std::max(whole.y, window.y - border);
  const int right = std::min(whole.x + whole.width, window.x + window.width + border);
  const int bottom = std::min(whole.y + whole.height, window.y + window.height + border);
  return {left, top, right - left, bottom - top};
}

}  // namespace

Inputs Views::inputs(const Masks& masks) const {
  Inputs inputs = pictures.inputs();
  inputs.holdOut = inputs.holdOut || hasMasks(masks, MaskShape::Use::holdOut);
  inputs.garbage = inputs.garbage || hasMasks(masks, MaskShape::Use::garbage);
  return inputs;
}

bool Views::needsAll(const Settings& settings, const Masks& masks) const {
  return keysBesideEstimates(settings, inputs(masks));
}

void Views::turn(const Picture& plate, int number) {
  pictures.turn(plate);
  frame = number;
}

bool Views::estimated(const Settings& settings) const {
  return found_ && seen_ == pictures.plates() && found_->suits(settings);
}

bool Views::wantsEstimates(const Settings& settings) const {
  return keysBesideEstimates(settings, pictures.inputs()) && !estimated(settings);
}

bool Views::estimate(const Settings& settings) {
  found_.reset();
  carried_.clear();
  found_ = findKey(pictures.whole(Role::plate).plate(), settings);
  seen_ = pictures.plates();
  return found_->steady;
}

bool Views::see() {
  carried_.clear();
  return found_ && found_->see(pictures.whole(Role::plate).plate());
}

const BlindKey& Views::estimates(const Settings& settings, int divisor) {
  if (!estimated(settings)) estimate(settings);
  if (carriedTo_ != frame) carried_.clear();
  carriedTo_ = frame;
  const auto kept = carried_.find(divisor);
  if (kept != carried_.end()) return kept->second;
  const int height = (pictures.shape(Role::plate).height + divisor - 1) / divisor;
  const Plate plate = pictures.at(Role::plate, divisor, 0, height).plate();
  return carried_.emplace(divisor, found_->carriedTo(plate)).first->second;
}

// A matte's channel: the one that was given; else alpha, or red of a picture without.
OtileImage Views::matte(Role role, const Settings& settings, const Picture& picture, int x,
                        int y) const {
  const char* const name = role == Role::holdOut ? "holdOutChannel" : "garbageChannel";
  const bool given = settings.given(name);
  const std::string channel = given ? settings.text(name) : picture.hasAlpha ? "A" : "R";
  const OtileImage image = picture.image(x, y);
  const std::size_t c = channel.size() == 1 ? std::string_view("RGBA").find(channel) : 4;
  if (c > 3 || (c == 3 && !picture.hasAlpha)) {
    throw Error::expected(Fault::wrongUse, name, picture.hasAlpha ? "R, G, B or A" : "R, G or B",
                          channel);
  }
  void* const channels[] = {image.red, image.green, image.blue, image.alpha};
  return {nullptr, nullptr, nullptr, channels[c], image.pixelStep, image.lineStep};
}

// The same of a region with the masks of its role in it, in `room`, where there are any.
OtileImage Views::drawn(Role role, const Settings& settings, const Masks& masks, int divisor,
                        const Window& region, Picture& room) {
  const auto use = role == Role::holdOut ? MaskShape::Use::holdOut : MaskShape::Use::garbage;
  const Depth depth = pictures.shape(Role::plate).depth;
  OtileImage from{};
  if (pictures.has(role)) {
    const Picture& given = pictures.at(role, divisor, region.y, region.y + region.height);
    from = matte(role, settings, given, region.x, region.y);
  }
  if (!hasMasks(masks, use)) return from;
  room = Picture(region.width, region.height, depth);
  const OtileImage to = room.image();
  std::vector<MaskShape> shapes = shapesAt(masks, use, frame);
  for (MaskShape& shape : shapes) shape = orvanite::shrunk(shape, divisor);
  withSampleOf(depth, [&]<class Sample>(std::type_identity<Sample>) {
    for (int y = 0; y < region.height; ++y) {
      auto* const row = static_cast<Sample*>(to.alpha) + std::ptrdiff_t{y} * to.lineStep;
      const auto* const source = static_cast<const Sample*>(from.alpha);
      for (int x = 0; x < region.width; ++x) {
        row[x * to.pixelStep] =
            source == nullptr ? Sample{0}
                              : source[std::ptrdiff_t{y} * from.lineStep + x * from.pixelStep];
      }
      for (const MaskShape& shape : shapes) {
        joinRow(shape, depth, row, to.pixelStep, region.width, region.x + 0.5, region.y + y + 0.5);
      }
    }
  });
  return {nullptr, nullptr, nullptr, to.alpha, to.pixelStep, to.lineStep};
}

Picture Views::keyed(const Settings& given, const Masks& masks, std::string_view name, int divisor,
                     const Window& asked, const std::optional<Window>& within) {
  const auto shows = view::pageViewOf(name);
  if (!shows)
    throw Error::expected(Fault::wrongUse, "view", "the name of a view", std::string(name));
  const auto held = [&](Role role, const Window& of) -> const Picture& {
    return pictures.at(role, divisor, of.y, of.y + of.height);
  };
  if (*shows == view::PageView::plate) return part(held(Role::plate, asked), asked);
  const Picture& shape = pictures.shape(Role::plate);
  const Depth depth = shape.depth;
  const bool light = view::showsLight(*shows, depth, given);
  const Settings settings = view::settingsFor(*shows, given, light);
  const bool chequered = *shows == view::PageView::overChecker;
  Inputs inputs = this->inputs(masks);
  if (chequered) inputs.background = true;
  const float scale = 1.0f / static_cast<float>(divisor);
  const BlindKey* key = nullptr;
  if (keysBesideEstimates(settings, inputs)) {
    if (!shape.fillsFrame()) {
      throw Error(Fault::wrongUse, "estimate",
                  "expected a plate that fills its frame: orvanite keys others beside estimates");
    }
    key = &estimates(settings, divisor);
    beside_.prepare(*key, settings, depth, inputs, scale);
  } else {
    keyer_.prepare(settings, depth, inputs, scale);
  }
  // Estimates are of the whole frame, and a finish looks at what is around.
  const Window everything =
      scaled(within.value_or(Window{0, 0, shape.width, shape.height}), divisor);
  const Window region = key != nullptr ? everything : grown(asked, keyer_.border(), everything);

  Picture result = std::move(spare_);
  result.reshape(region.width, region.height, depth);
  Frame frame;
  frame.width = region.width;
  frame.height = region.height;
  frame.depth = depth;
  Picture filled;
  // Beside the plate's own pixels there is nothing but screen.
  if (Window own = scaled(shape.own, divisor); own.holds(region)) {
    frame.pictures.fg = held(Role::plate, region).image(region.x, region.y);
  } else {
    own.x -= region.x;
    own.y -= region.y;
    filled = part(held(Role::plate, region), region);
    filled.paintBeside(own, {settings.number("screen", 0), settings.number("screen", 1),
                             settings.number("screen", 2)});
    frame.pictures.fg = filled.image();
  }
  frame.pictures.dst = result.image();
  Picture squares, drawnHoldOut, drawnGarbage;
  if (chequered) {
    squares = Picture(region.width, region.height, depth);
    view::paintChecker(squares.pixels.data(), depth, region.x, region.y, region.width,
                       region.height, divisor, light);
    frame.pictures.bg = squares.image();
  } else if (needsBackground(settings, inputs)) {
    frame.pictures.bg = held(Role::background, region).image(region.x, region.y);
  }
  if (inputs.holdOut && settings.toggle("useHoldOutMatte")) {
    frame.pictures.hold = drawn(Role::holdOut, settings, masks, divisor, region, drawnHoldOut);
  }
  if (inputs.garbage && settings.toggle("useGarbageMatte")) {
    frame.pictures.garbage = drawn(Role::garbage, settings, masks, divisor, region, drawnGarbage);
  }
  if (inputs.reference && settings.toggle("useReference")) {
    frame.pictures.ref = held(Role::cleanPlate, region).image(region.x, region.y);
  }
  if (key != nullptr) {
    beside_.render(*key, frame);
  } else {
    keyer_.render(frame);
  }
  if (region == asked) return result;
  return part(result, {asked.x - region.x, asked.y - region.y, asked.width, asked.height});
}

Shown Views::show(const Request& request) {
  const Picture& plate = pictures.shape(Role::plate);
  Window window = request.window;
  if (request.divisor < 1 || request.divisor > 16) {
    throw Error::expected(Fault::wrongUse, "divisor", "a number from 1 to 16",
                          std::to_string(request.divisor));
  }
  if (window.x < 0 || window.y < 0 || window.width < 1 || window.height < 1 ||
      window.x >= plate.width || window.y >= plate.height || window.x % request.divisor != 0 ||
      window.y % request.divisor != 0) {
    throw Error(Fault::wrongUse, "window", "expected a part of the plate");
  }
  window.width = std::min(window.width, plate.width - window.x);
  window.height = std::min(window.height, plate.height - window.y);
  const int divisor = request.proxy ? request.divisor : 1;
  const Window region = scaled(window, divisor);
  Shown shown;
  shown.window = window;
  Picture result = keyed(request.settings, request.masks, request.view, divisor, region);
  if (request.measured) {
    // Of all that is keyed alpha is the matte.
    const bool isPlate = request.view == "plate";
    const Picture matte =
        isPlate ? keyed(request.settings, request.masks, "matte", divisor, region) : Picture();
    const Picture& counted = isPlate ? matte : result;
    shown.measure = view::measureOf(
        counted.pixels.data(), counted.depth,
        static_cast<std::size_t>(counted.width) * static_cast<std::size_t>(counted.height),
        static_cast<std::uint32_t>(divisor * divisor));
  }
  if (result.depth == Depth::bytes) {
    shown.picture = std::move(result);
  } else {
    shown.picture = toScreen(
        result, view::showsLight(*view::pageViewOf(request.view), result.depth, request.settings));
    giveBack(std::move(result));
  }
  if (divisor != request.divisor) shown.picture = shrunk(shown.picture, request.divisor);
  makeOpaque(shown.picture);
  return shown;
}

void Views::giveBack(Picture picture) {
  if (picture.pixels.capacity() > spare_.pixels.capacity()) spare_ = std::move(picture);
}

// The plate's own pixels, in `room` where the file holds less than its frame.
Plate Views::ownPlate(Picture& room) {
  const Picture& whole = pictures.whole(Role::plate);
  if (whole.fillsFrame() || whole.own.width == 0 || whole.own.height == 0) return whole.plate();
  room = part(whole, whole.own);
  return room.plate();
}

float Views::coverage(const Settings& settings) {
  Picture own;
  return coverageOf(ownPlate(own), {settings.number("screen", 0), settings.number("screen", 1),
                                    settings.number("screen", 2)});
}

Views::Found Views::find(Settings settings) {
  for (const Parameter& parameter : parameters()) {
    if (parameter.meaning.followsScreen) settings.reset(parameter.name);
  }
  const Inputs inputs = pictures.inputs();
  Picture own;
  const Plate plate = ownPlate(own);
  if (pictures.shape(Role::plate).fillsFrame() && findsEstimates(settings, inputs)) {
    return {findKey(plate, settings).settings, findScreen(plate).coverage};
  }
  const CleanPlateUse use = !settings.toggle("useReference") ? CleanPlateUse::never
                            : inputs.reference               ? CleanPlateUse::always
                                                             : CleanPlateUse::whenUneven;
  const AutoKey found = autoKey(plate, settings, use);
  return {settings, found.screen.coverage};
}

}  // namespace orvanite::web
