// SPDX-License-Identifier: BSD-3-Clause
//
// A frame is keyed in bands; between two of them a key that nobody waits for any more is given up,
// so that the newest request never waits for more than one band.
#include "apps/view/FrameKeyer.h"

#include <algorithm>
#include <cstdint>

#include "shot/Images.h"
#include "shot/Mask.h"

namespace orvanite::view {
namespace {

// Pixels of a band: a few milliseconds' work.
constexpr int bandPixels = 1 << 18;

// Frames keyed whole that are kept: what is shown, and its matte.
constexpr std::size_t wholeFrames = 2;

// A window of the plate in pixels that stand for divisor x divisor; those that are partly in it
// are.
media::Window scaled(const media::Window& window, int divisor) {
  const auto down = [divisor](int v) {
    return v >= 0 ? v / divisor : -((divisor - 1 - v) / divisor);
  };
  const int x = down(window.x), y = down(window.y);
  return {x, y, -down(-(window.x + window.width)) - x, -down(-(window.y + window.height)) - y};
}

// A window and as much as `border` around it, as far as the whole goes.
media::Window grown(const media::Window& window, int border, const media::Window& whole) {
  const int left = std::max(whole.x, window.x - border);
  const int top = std::max(whole.y, window.y - border);
  const int right = std::min(whole.x + whole.width, window.x + window.width + border);
  const int bottom = std::min(whole.y + whole.height, window.y + window.height + border);
  return {left, top, right - left, bottom - top};
}

bool holds(const media::Window& outer, const media::Window& inner) {
  return media::united(outer, inner) == outer;
}

}  // namespace

std::optional<FrameKeyer::Keyed> FrameKeyer::key(const Settings& given, PageView view, int frame,
                                                 int divisor, const media::Window& asked,
                                                 const Masks& masks, bool measured,
                                                 const std::function<bool()>& wanted) {
  const FootageInfo& info = footage_.info();
  const bool light = showsLight(view, info.depth, given) && !footage_.shot().colours().used;
  const Settings settings = settingsFor(view, given, light);
  Inputs inputs = info.inputs;
  inputs.holdOut = inputs.holdOut || shot::hasMask(masks, Role::holdOut);
  inputs.garbage = inputs.garbage || shot::hasMask(masks, Role::garbage);
  if (view == PageView::overChecker) inputs.background = true;

  const bool chequered = view == PageView::overChecker;
  const bool besideEstimates = shot::keysBesideEstimates(settings, inputs);
  const auto counted = [&](const media::Picture& whole) {
    std::optional<MatteMeasure> measure;
    if (measured) {
      measure = measureOf(whole.pixels.get(), whole.depth,
                          whole.bytes() / static_cast<std::size_t>(4 * bytesOf(whole.depth)),
                          static_cast<std::uint32_t>(divisor * divisor));
    }
    return measure;
  };
  if (besideEstimates) {
    const auto kept = std::find_if(whole_.begin(), whole_.end(), [&](const Whole& one) {
      return one.frame == frame && one.divisor == divisor && one.chequered == chequered &&
             one.settings == settings && one.masks == masks;
    });
    if (kept != whole_.end()) {
      whole_.splice(whole_.begin(), whole_, kept);
      return Keyed{media::part(*kept->picture, asked), counted(*kept->picture)};
    }
  }
  const float scale = 1.0f / static_cast<float>(divisor);
  const media::Window everything = scaled({0, 0, info.width, info.height}, divisor);
  std::shared_ptr<const BlindKey> estimates;
  if (besideEstimates) {
    estimates = footage_.estimates(settings, frame, divisor);
    beside_.prepare(*estimates, settings, info.depth, inputs, scale);
  } else {
    keyer_.prepare(settings, info.depth, inputs, scale);
  }
  // A finish looks at what is around the region, which is keyed with it in one go then; estimates
  // and the count are of the whole frame.
  const int border = estimates ? 0 : keyer_.border();
  const media::Window region =
      estimates || measured ? everything : grown(asked, border, everything);

  shot::ByRole<Footage::Shared> kept;
  shot::ByRole<const media::Picture*> pictures;
  for (const Role role : roles) {
    if (!shot::uses(settings, inputs, role) || (chequered && role == Role::background)) continue;
    kept[role] =
        footage_.picture(role, frame, shot::channelOf(footage_.shot(), settings, role), divisor);
    pictures[role] = kept[role].get();
  }
  media::Picture result = media::Picture::make(region, info.depth, info.samples);
  Frame whole = shot::frameOf(pictures, region);
  whole.pictures.dst = shot::imageOf(result);
  // Beside the plate's own pixels there is nothing but screen, in its clean plate as well.
  const media::Window own = scaled(footage_.ownPixels(frame), divisor);
  media::Picture filledPlate, filledReference;
  const auto fill = [&](const media::Picture& from, media::Picture& to) {
    const media::Window& data = from.data;
    to = media::part(from, {data.x + region.x, data.y + region.y, region.width, region.height});
    to.data = region;
    shot::paintBeside(to, own, settings);
    return shot::imageOf(to);
  };
  if (!holds(own, region)) {
    whole.pictures.fg = fill(*pictures[Role::plate], filledPlate);
    if (pictures[Role::cleanPlate] != nullptr) {
      whole.pictures.ref = fill(*pictures[Role::cleanPlate], filledReference);
    }
  }
  media::Picture drawnHoldOut, drawnGarbage;
  const auto draw = [&](Role role, media::Picture& to, OtileImage& image) {
    if (pictures[role] == nullptr || !shot::hasMask(masks, role)) return;
    const media::Window& data = pictures[role]->data;
    to = media::part(*pictures[role],
                     {data.x + region.x, data.y + region.y, region.width, region.height});
    to.data = region;
    for (const MaskShape& shape : shapesAt(masks, shot::useOf(role), frame)) {
      shot::join(shrunk(shape, divisor), {}, to);
    }
    image = shot::imageOf(to);
  };
  draw(Role::holdOut, drawnHoldOut, whole.pictures.hold);
  draw(Role::garbage, drawnGarbage, whole.pictures.garbage);
  media::Picture squares;
  if (chequered) {
    squares = media::Picture::make(region, info.depth, media::Samples::uint8);
    paintChecker(squares.pixels.get(), info.depth, region.x, region.y, region.width, region.height,
                 divisor, light);
    whole.pictures.bg = shot::imageOf(squares);
  }

  if (estimates) {
    if (!wanted()) return std::nullopt;
    beside_.render(*estimates, whole);
  }
  const int rows =
      border > 0 ? region.height : std::max(16, bandPixels / std::max(1, region.width));
  for (int row = 0; row < region.height && !estimates; row += rows) {
    if (!wanted()) return std::nullopt;
    Frame band = whole;
    band.height = std::min(rows, region.height - row);
    for (OtileImage* image : {&band.pictures.dst, &band.pictures.bg, &band.pictures.fg,
                              &band.pictures.hold, &band.pictures.garbage, &band.pictures.ref}) {
      const std::ptrdiff_t bytes = std::ptrdiff_t{image->lineStep} * row * bytesOf(info.depth);
      for (void** channel : {&image->red, &image->green, &image->blue, &image->alpha}) {
        if (*channel != nullptr) *channel = static_cast<char*>(*channel) + bytes;
      }
    }
    keyer_.render(band);
  }
  const std::optional<MatteMeasure> measure = counted(result);
  if (!estimates) result = media::placed(std::move(result), asked);
  if (shot::showsColours(settings)) footage_.shot().colours().out.apply(result);
  if (!estimates) return Keyed{std::move(result), measure};
  whole_.push_front({settings, chequered, frame, divisor, masks,
                     std::make_shared<const media::Picture>(std::move(result))});
  if (whole_.size() > wholeFrames) whole_.pop_back();
  return Keyed{media::part(*whole_.front().picture, asked), measure};
}

}  // namespace orvanite::view
