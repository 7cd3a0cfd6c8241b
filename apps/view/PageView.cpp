// SPDX-License-Identifier: BSD-3-Clause
#include "apps/view/PageView.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <type_traits>

#include "keyer/Look.h"

namespace orvanite::view {
namespace {

constexpr std::string_view names[] = {"plate",      "matte",       "status",
                                      "foreground", "composite",   "overBlack",
                                      "overGrey",   "overChecker", "output"};

// Side of a checker's square in the plate's pixels, and its two greys as codes.
constexpr int checkerSide = 16;
constexpr float checkerDark = 0.35f, checkerLight = 0.6f;
constexpr float middleGrey = 0.5f;

std::uint8_t clippedCode(float value) {
  const float scaled = value * 255;
  return static_cast<std::uint8_t>(scaled >= 255 ? 255 : scaled > 0 ? scaled + 0.5f : 0);
}

/// The code nearest to a light: a table's guess, then by the light at which each code begins.
class ScreenCodes {
 public:
  ScreenCodes() {
    for (std::size_t i = 1; i < 256; ++i) {
      from_[i] = lightOfCode((static_cast<float>(i) - 0.5f) / 255);
    }
    from_[256] = std::numeric_limits<float>::infinity();
    for (std::size_t i = 0; i < guess_.size(); ++i) {
      const float code = 255 * codeOfLight(static_cast<float>(i) / last);
      guess_[i] = static_cast<std::uint8_t>(code + 0.5f);
    }
  }

  std::uint8_t of(float light) const {
    if (!(light > 0)) return 0;
    if (light >= 1) return 255;
    std::size_t code = guess_[static_cast<std::size_t>(light * last)];
    while (light >= from_[code + 1]) ++code;
    while (light < from_[code]) --code;
    return static_cast<std::uint8_t>(code);
  }

 private:
  static constexpr float last = 4095;
  std::array<float, 257> from_{};
  std::array<std::uint8_t, 4096> guess_{};
};

}  // namespace

std::optional<PageView> pageViewOf(std::string_view name) {
  const auto* found = std::find(std::begin(names), std::end(names), name);
  if (found == std::end(names)) return std::nullopt;
  return static_cast<PageView>(found - std::begin(names));
}

bool holdsLight(Depth depth, std::string_view colourspace) {
  return depth == Depth::floats && colourspace == "linear";
}

bool showsLight(PageView view, Depth depth, const Settings& settings) {
  if (!holdsLight(depth, settings.choice("colourspace"))) return false;
  if (view == PageView::output) return !showsMatte(settings.view({}));
  return view != PageView::matte && view != PageView::status;
}

void toCodes(const float* samples, std::size_t pixels, std::uint8_t* codes, bool light) {
  if (!light) {
    std::transform(samples, samples + 4 * pixels, codes, clippedCode);
    return;
  }
  static const ScreenCodes screen;
  for (std::size_t i = 0; i < 4 * pixels; i += 4) {
    for (std::size_t c = 0; c < 3; ++c) codes[i + c] = screen.of(samples[i + c]);
    codes[i + 3] = clippedCode(samples[i + 3]);
  }
}

Settings settingsFor(PageView view, Settings settings, bool light) {
  switch (view) {
    case PageView::matte:
      settings.setText("output", "matte");
      break;
    case PageView::status:
      settings.setText("output", "status");
      break;
    case PageView::foreground:
      settings.setText("output", "unpremultiplied");
      break;
    case PageView::composite:
      settings.setText("output", "composite");
      break;
    case PageView::overBlack:
      settings.setText("output", "compOnBlack");
      break;
    case PageView::overGrey:
      settings.setText("output", "compOnColour");
      settings.setNumber("backgroundColour",
                         static_cast<double>(light ? lightOfCode(middleGrey) : middleGrey));
      break;
    case PageView::overChecker:
      settings.setText("output", "composite");
      for (const char* name : {"bgExposure", "bgGamma", "bgOffset", "bgSaturation"}) {
        settings.reset(name);
      }
      break;
    default:
      break;
  }
  return settings;
}

void paintChecker(std::byte* pixels, Depth depth, int x, int y, int width, int height, int divisor,
                  bool inLight) {
  const int side = std::max(1, checkerSide / divisor);
  withSampleOf(depth, [&]<class Sample>(std::type_identity<Sample>) {
    const auto maximum = static_cast<float>(maxOf(depth));
    const auto greyOf = [&](float code) {
      return static_cast<Sample>((inLight ? lightOfCode(code) : code) * maximum);
    };
    const Sample dark = greyOf(checkerDark), light = greyOf(checkerLight);
    auto* pixel = reinterpret_cast<Sample*>(pixels);
    for (int row = y; row < y + height; ++row) {
      for (int column = x; column < x + width; ++column, pixel += 4) {
        pixel[0] = pixel[1] = pixel[2] = (column / side + row / side) % 2 == 0 ? light : dark;
        pixel[3] = 0;
      }
    }
  });
}

void makeTransparent(std::byte* pixels, Depth depth, std::size_t count) {
  withSampleOf(depth, [&]<class Sample>(std::type_identity<Sample>) {
    auto* const samples = reinterpret_cast<Sample*>(pixels);
    for (std::size_t i = 3; i < 4 * count; i += 4) samples[i] = 0;
  });
}

MatteMeasure measureOf(const std::byte* pixels, Depth depth, std::size_t count,
                       std::uint32_t weight) {
  MatteMeasure measure;
  if (depth == Depth::bytes) {
    // Each code has its bin. Most are alike: four counts in turn do not wait for each other.
    std::array<std::array<std::uint32_t, 256>, 4> counts{};
    const auto* sample = reinterpret_cast<const std::uint8_t*>(pixels) + 3;
    for (std::size_t i = 0; i < count; ++i, sample += 4) ++counts[i % 4][*sample];
    for (std::size_t code = 0; code < 256; ++code) {
      for (const auto& part : counts) measure.bins[code] += part[code] * weight;
    }
    measure.clear = measure.bins.front();
    measure.solid = measure.bins.back();
    measure.between = std::uint64_t{count} * weight - measure.clear - measure.solid;
    return measure;
  }
  withSampleOf(depth, [&]<class Sample>(std::type_identity<Sample>) {
    const auto* sample = reinterpret_cast<const Sample*>(pixels) + 3;
    const auto maximum = static_cast<float>(maxOf(depth));
    for (std::size_t i = 0; i < count; ++i, sample += 4) {
      const float alpha = static_cast<float>(*sample) / maximum;
      if (!(alpha > 0)) {
        measure.clear += weight;
        measure.bins[0] += weight;
      } else if (alpha >= 1) {
        measure.solid += weight;
        measure.bins[255] += weight;
      } else {
        measure.between += weight;
        measure.bins[static_cast<std::size_t>(alpha * 255 + 0.5f)] += weight;
      }
    }
  });
  return measure;
}

}  // namespace orvanite::view
