// SPDX-License-Identifier: BSD-3-Clause
//
// The page's views are those of `orvanite view`, and a render's bytes those of `orvanite key`:
// what either decides about a still is decided here in the same words.
#include "web/Views.h"

#include <algorithm>
#include <string>

#include "apps/view/PageView.h"
#include "base/Error.h"
#include "keyer/AutoKey.h"

namespace orvanite::web {
namespace {

Window scaled(const Window& window, int by) {
  return {window.x / by, window.y / by, (window.width + by - 1) / by,
          (window.height + by - 1) / by};
}

}  // namespace

Inputs Views::inputs(const Masks& masks) const {
  Inputs inputs = pictures.inputs();
  inputs.holdOut = inputs.holdOut || hasMasks(masks, MaskShape::Use::holdOut);
  inputs.garbage = inputs.garbage || hasMasks(masks, MaskShape::Use::garbage);
  return inputs;
}

bool Views::needsAll(const Settings& settings, const Masks& masks) const {
  return keysBesideEstimates(settings, inputs(masks)) ||
         Finish::of(settings, inputs(masks), 1).on();
}

void Views::turn(Picture plate, int number) {
  pictures.turn(std::move(plate));
  frame = number;
}

bool Views::estimated(const Settings& settings) const {
  return found_ && seen_ == pictures.plates() && estimatedIn_ == settings.text("colourspace");
}

bool Views::wantsEstimates(const Settings& settings) const {
  return keysBesideEstimates(settings, pictures.inputs()) && !estimated(settings);
}

bool Views::estimate(const Settings& settings) {
  const std::string encoding = settings.text("colourspace");
  Settings plain;
  plain.setText("colourspace", encoding);
  found_.reset();
  carried_.clear();
  found_ = findKey(pictures.full(Role::plate).plate(), plain);
  estimatedIn_ = encoding;
  seen_ = pictures.plates();
  return found_->steady;
}

bool Views::see() {
  carried_.clear();
  return found_ && found_->see(pictures.full(Role::plate).plate());
}

const BlindKey& Views::estimates(const Settings& settings, int divisor) {
  if (!estimated(settings)) estimate(settings);
  if (carriedTo_ != frame) carried_.clear();
  carriedTo_ = frame;
  const auto kept = carried_.find(divisor);
  if (kept != carried_.end()) return kept->second;
  const Plate plate = pictures.at(Role::plate, divisor).plate();
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
  const Depth depth = pictures.full(Role::plate).depth;
  if (!hasMasks(masks, use)) {
    return matte(role, settings, pictures.at(role, divisor), region.x, region.y);
  }
  room = Picture(region.width, region.height, depth);
  const OtileImage to = room.image();
  const OtileImage from =
      pictures.has(role) ? matte(role, settings, pictures.at(role, divisor), region.x, region.y)
                         : OtileImage{};
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
                     const Window& asked) {
  const Picture& plate = pictures.at(Role::plate, divisor);
  const auto shows = view::pageViewOf(name);
  if (!shows)
    throw Error::expected(Fault::wrongUse, "view", "the name of a view", std::string(name));
  if (*shows == view::PageView::plate) return part(plate, asked);
  const bool light = view::showsLight(*shows, plate.depth, given);
  const Settings settings = view::settingsFor(*shows, given, light);
  const bool chequered = *shows == view::PageView::overChecker;
  Inputs inputs = this->inputs(masks);
  if (chequered) inputs.background = true;
  const float scale = 1.0f / static_cast<float>(divisor);
  const BlindKey* key = nullptr;
  if (keysBesideEstimates(settings, inputs)) {
    key = &estimates(settings, divisor);
    beside_.prepare(*key, settings, plate.depth, inputs, scale);
  } else {
    keyer_.prepare(settings, plate.depth, inputs, scale);
  }
  // Estimates are of the whole frame, and a finish looks at what is around.
  const Window everything{0, 0, plate.width, plate.height};
  const Window region = key != nullptr || keyer_.border() > 0 ? everything : asked;

  Picture result(region.width, region.height, plate.depth);
  Frame frame;
  frame.width = region.width;
  frame.height = region.height;
  frame.depth = plate.depth;
  frame.pictures.fg = plate.image(region.x, region.y);
  frame.pictures.dst = result.image();
  Picture squares, drawnHoldOut, drawnGarbage;
  if (chequered) {
    squares = Picture(region.width, region.height, plate.depth);
    view::paintChecker(squares.pixels.data(), plate.depth, region.x, region.y, region.width,
                       region.height, divisor, light);
    frame.pictures.bg = squares.image();
  } else if (needsBackground(settings, inputs)) {
    frame.pictures.bg = pictures.at(Role::background, divisor).image(region.x, region.y);
  }
  if (inputs.holdOut && settings.toggle("useHoldOutMatte")) {
    frame.pictures.hold = drawn(Role::holdOut, settings, masks, divisor, region, drawnHoldOut);
  }
  if (inputs.garbage && settings.toggle("useGarbageMatte")) {
    frame.pictures.garbage = drawn(Role::garbage, settings, masks, divisor, region, drawnGarbage);
  }
  if (inputs.reference && settings.toggle("useReference")) {
    frame.pictures.ref = pictures.at(Role::cleanPlate, divisor).image(region.x, region.y);
  }
  if (key != nullptr) {
    beside_.render(*key, frame);
  } else {
    keyer_.render(frame);
  }
  return region == asked ? std::move(result) : part(result, asked);
}

Shown Views::show(const Request& request) {
  const Picture& plate = pictures.full(Role::plate);
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
  shown.picture = toScreen(std::move(result), view::showsLight(*view::pageViewOf(request.view),
                                                               result.depth, request.settings));
  if (divisor != request.divisor) shown.picture = shrunk(shown.picture, request.divisor);
  makeOpaque(shown.picture);
  return shown;
}

Views::Found Views::find(Settings settings) {
  for (const Parameter& parameter : parameters()) {
    if (parameter.meaning.followsScreen) settings.reset(parameter.name);
  }
  const Inputs inputs = pictures.inputs();
  const Plate plate = pictures.full(Role::plate).plate();
  if (findsEstimates(settings, inputs)) {
    return {findKey(plate, settings).settings, findScreen(plate).coverage};
  }
  const CleanPlateUse use = !settings.toggle("useReference") ? CleanPlateUse::never
                            : inputs.reference               ? CleanPlateUse::always
                                                             : CleanPlateUse::whenUneven;
  const AutoKey found = autoKey(plate, settings, use);
  return {settings, found.screen.coverage};
}

}  // namespace orvanite::web
