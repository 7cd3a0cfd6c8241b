// SPDX-License-Identifier: BSD-3-Clause
//
// Requests wait for one another: two at once would only share the same processors.
#include "apps/view/Renderer.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string>
#include <vector>

#include "base/Error.h"
#include "keyer/Screen.h"
#include "shot/FirstKey.h"
#include "shot/Images.h"

namespace orvanite::view {
namespace {

// Samples of a box are thinned out beyond this many.
constexpr std::int64_t boxSamples = 1 << 18;

std::array<float, 4> valuesAt(const media::Picture& picture, int x, int y) {
  const auto first = 4 * (std::ptrdiff_t{picture.data.width} * y + x);
  const auto maximum = static_cast<float>(maxOf(picture.depth));
  std::array<float, 4> values{};
  withSampleOf(picture.depth, [&]<class Sample>(std::type_identity<Sample>) {
    const auto* const samples = reinterpret_cast<const Sample*>(picture.pixels.get()) + first;
    for (std::size_t c = 0; c < 4; ++c) values[c] = static_cast<float>(samples[c]) / maximum;
  });
  return values;
}

}  // namespace

media::Window Renderer::checked(const media::Window& window) const {
  const FootageInfo& info = footage_.info();
  if (window.x < 0 || window.y < 0 || window.width < 1 || window.height < 1 ||
      window.x >= info.width || window.y >= info.height) {
    throw Error(Fault::wrongUse, "window", "expected a part of the plate");
  }
  return {window.x, window.y, std::min(window.width, info.width - window.x),
          std::min(window.height, info.height - window.y)};
}

int Renderer::checkedFrame(int frame) const {
  const std::vector<int>& frames = footage_.info().frames;
  if (!std::binary_search(frames.begin(), frames.end(), frame)) {
    throw Error::expected(Fault::wrongUse, "frame",
                          "one of the plate's, from " + std::to_string(frames.front()) + " to " +
                              std::to_string(frames.back()),
                          std::to_string(frame));
  }
  return frame;
}

FrameKeyer& Renderer::keyer(int slot) {
  if (slot < 0 || slot >= slots) {
    throw Error::expected(Fault::wrongUse, "slot", "0 or 1", std::to_string(slot));
  }
  auto& keyer = keyers_[static_cast<std::size_t>(slot)];
  if (!keyer) keyer.emplace(footage_);
  return *keyer;
}

std::optional<RenderedPicture> Renderer::render(const PictureRequest& request,
                                                const std::function<bool()>& wanted) {
  const FootageInfo& info = footage_.info();
  const int divisor = request.divisor;
  if (divisor < 1 || divisor > divisorLimit) {
    throw Error::expected(Fault::wrongUse, "divisor", "a number from 1 to 16",
                          std::to_string(divisor));
  }
  const int frame = checkedFrame(request.frame);
  RenderedPicture rendered;
  rendered.window = checked(request.window);
  if (rendered.window.x % divisor != 0 || rendered.window.y % divisor != 0) {
    throw Error(Fault::wrongUse, "window", "expected a corner at a multiple of the divisor");
  }

  const std::lock_guard lock(mutex_);
  if (!wanted()) return std::nullopt;
  const int keyed = request.proxy ? divisor : 1;  // divisor of the pictures that are keyed
  const auto scaled = [](const media::Window& window, int by) {
    return media::Window{window.x / by, window.y / by, (window.width + by - 1) / by,
                         (window.height + by - 1) / by};
  };
  const media::Window region = scaled(rendered.window, keyed);
  const auto key = [&](PageView view) {
    return keyer(request.slot)
        .key(request.settings, view, frame, keyed, region, request.masks, request.measured, wanted);
  };
  const bool light =
      showsLight(request.view, info.depth, request.settings) && !footage_.shot().colours().used;
  const auto show = [&](const media::Picture& picture) {
    rendered.picture = toScreen(picture.pixels.get(), picture.rowBytes(), region.width,
                                region.height, picture.depth, light);
  };
  const bool isPlate = request.view == PageView::plate;
  if (isPlate) {
    const Footage::Shared plate = footage_.picture(Role::plate, frame, {}, keyed);
    const media::Window& data = plate->data;
    media::Picture shown =
        media::part(*plate, {data.x + region.x, data.y + region.y, region.width, region.height});
    footage_.shot().colours().out.apply(shown);
    show(shown);
  }
  if (!isPlate || request.measured) {
    const auto result = key(isPlate ? PageView::matte : request.view);
    if (!result) return std::nullopt;
    if (!isPlate) show(result->picture);
    rendered.measure = result->measure;
  }
  if (keyed != divisor) rendered.picture = shrink(rendered.picture, divisor);
  return rendered;
}

PixelValues Renderer::probe(const Settings& settings, const Masks& masks, PageView view, int frame,
                            int x, int y, int slot) {
  const media::Window pixel = checked({x, y, 1, 1});
  checkedFrame(frame);
  const std::lock_guard lock(mutex_);
  PixelValues values;
  values.plate = valuesAt(*footage_.picture(Role::plate, frame, {}, 1), x, y);
  const auto keyed = [&](PageView of) {
    const auto result =
        keyer(slot).key(settings, of, frame, 1, pixel, masks, false, [] { return true; });
    return valuesAt(result->picture, 0, 0);
  };
  values.matte = keyed(PageView::matte)[3];
  values.result = view == PageView::plate ? values.plate : keyed(view);
  return values;
}

Renderer::Found Renderer::find(Settings settings, int frame) {
  for (const Parameter& parameter : parameters()) {
    if (parameter.meaning.followsScreen) settings.reset(parameter.name);
  }
  shot::FirstKeyWish wish;
  wish.everything = true;
  checkedFrame(frame);
  if (footage_.info().isShot) wish.frame = frame;
  const shot::FirstKey key = footage_.find(wish, settings);
  return {settings, key.screen->coverage};
}

float Renderer::coverage(const Settings& settings, int frame) {
  const Footage::Shared plate = footage_.picture(Role::plate, checkedFrame(frame), {}, 1);
  media::Window own = footage_.ownPixels(frame);
  own.x += plate->data.x;
  own.y += plate->data.y;
  const bool whole = own == plate->data || own.width < 1 || own.height < 1;
  const media::Picture part = whole ? media::Picture() : media::part(*plate, own);
  return coverageOf(
      shot::plateOf(whole ? *plate : part),
      {settings.number("screen", 0), settings.number("screen", 1), settings.number("screen", 2)});
}

BoxColours Renderer::colours(int frame, const media::Window& box) {
  const media::Window window = checked(box);
  const Footage::Shared plate = footage_.picture(Role::plate, checkedFrame(frame), {}, 1);
  const std::int64_t pixels = std::int64_t{window.width} * window.height;
  const int step =
      std::max(1, static_cast<int>(std::ceil(std::sqrt(static_cast<double>(pixels) / boxSamples))));
  std::array<std::vector<float>, 3> samples;
  for (int y = window.y; y < window.y + window.height; y += step) {
    for (int x = window.x; x < window.x + window.width; x += step) {
      const std::array<float, 4> values = valuesAt(*plate, x, y);
      for (std::size_t c = 0; c < 3; ++c) {
        samples[c].push_back(std::isfinite(values[c]) ? values[c] : 0);
      }
    }
  }
  BoxColours colours;
  for (std::size_t c = 0; c < 3; ++c) {
    auto& sorted = samples[c];
    std::sort(sorted.begin(), sorted.end());
    colours.median[c] = sorted[sorted.size() / 2];
    colours.low[c] = sorted[sorted.size() / 20];
    colours.high[c] = sorted[sorted.size() - 1 - sorted.size() / 20];
  }
  return colours;
}

}  // namespace orvanite::view
