// SPDX-License-Identifier: BSD-3-Clause
#include "keyer/BlindKeyer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "base/Error.h"

namespace orvanite {
namespace {

constexpr int bandRows = 16;
constexpr float most = 65535;

// The band's own thread.
constexpr auto inOneBand = [](int height, int, const std::function<void(int, int)>& work) {
  work(0, height);
};

using Codes = std::vector<std::uint16_t>;

std::uint16_t codeOf(float v) {
  return static_cast<std::uint16_t>(std::clamp(v, 0.0f, 1.0f) * most + 0.5f);
}

/// Where a pixel's sample lies.
std::ptrdiff_t at(const OtileImage& image, int x, int y) {
  return std::ptrdiff_t{y} * image.lineStep + std::ptrdiff_t{x} * image.pixelStep;
}

OtileImage interleaved(Codes& codes, int width) {
  std::uint16_t* p = codes.data();
  return {p, p + 1, p + 2, p + 3, 4, 4 * width};
}

/// Parameters that are colours are codes; the engine is handed what is keyed.
Settings inKeyedValues(Settings settings, bool decodes, float white) {
  for (const Parameter& parameter : parameters()) {
    if (parameter.type != ParameterType::colour) continue;
    if (parameter.name == "fgBias") continue;  // only its hue counts
    std::array<double, 3> colour{};
    for (int c = 0; c < 3; ++c) {
      const float v = settings.number(parameter.name, c);
      colour[static_cast<std::size_t>(c)] =
          static_cast<double>(decodes ? lightOfCode(v) : v / white);
    }
    settings.setNumbers(parameter.name, colour[0], colour[1], colour[2]);
  }
  if (white == 1) return settings;
  settings.setNumber("screenRange", static_cast<double>(settings.number("screenRange") / white));
  // A grade e v^(1/g) + o of values that are divided by the white w: w^(1/g - 1) e v^(1/g) + o / w.
  for (const auto& [gamma, exposure, offset] : {std::array{"gamma", "exposure", "offset"},
                                                std::array{"bgGamma", "bgExposure", "bgOffset"}}) {
    std::array<double, 3> e{}, o{};
    for (int c = 0; c < 3; ++c) {
      const double power = 1 / static_cast<double>(settings.number(gamma, c)) - 1;
      const auto i = static_cast<std::size_t>(c);
      e[i] = static_cast<double>(settings.number(exposure, c)) *
             std::pow(static_cast<double>(white), power);
      o[i] = static_cast<double>(settings.number(offset, c) / white);
    }
    settings.setNumbers(exposure, e[0], e[1], e[2]);
    settings.setNumbers(offset, o[0], o[1], o[2]);
  }
  return settings;
}

}  // namespace

void BlindKeyer::prepare(const BlindKey& key, const Settings& settings, Depth depth,
                         const Inputs& inputs, float scale, float white) {
  depth_.reset();
  settings.expectStill();
  const Mixing mixing = mixingOf(settings).value_or(key.mixing);
  decodes_ = mixing == Mixing::light && key.encoding == Encoding::codes;
  white_ = depth == Depth::floats && key.encoding == Encoding::light ? std::max(1.0f, white) : 1.0f;
  const std::string_view output = settings.choice("output");
  showsColours_ = output != "matte" && output != "status";
  used_ = inputs;
  used_.reference = true;
  used_.holdOut = (inputs.holdOut || key.wishes.holdOut) && settings.toggle("useHoldOutMatte");
  used_.garbage = (inputs.garbage || key.wishes.garbage) && settings.toggle("useGarbageMatte");
  Settings keyed = inKeyedValues(settings, decodes_, white_);
  keyed.setText("colourspace", mixing == Mixing::video ? "video"
                               : mixing == Mixing::log ? "log"
                                                       : "linear");
  engine_.prepare(keyed, Depth::shorts, used_, scale);
  if (decodes_ && decode_.empty()) {
    for (int i = 0; i < 65536; ++i) {
      const float v = static_cast<float>(i) / most;
      decode_.push_back(codeOf(lightOfCode(v)));
      encode_.push_back(codeOf(codeOfLight(v)));
    }
  }
  depth_ = depth;
}

void BlindKeyer::render(const BlindKey& key, const Frame& frame, const RowLoop& rowLoop) const {
  if (depth_ != frame.depth || frame.width != key.width || frame.height != key.height) {
    throw Error(Fault::wrongUse, "frame", "expected a frame of the key's size and depth");
  }
  const int w = frame.width;
  // A sample as 16 bits of what is keyed.
  const auto work = [&](const void* channel, std::ptrdiff_t i, bool colour) {
    std::uint16_t code = 0;
    if (depth_ == Depth::bytes) {
      code = static_cast<std::uint16_t>(257 * static_cast<const std::uint8_t*>(channel)[i]);
    } else if (depth_ == Depth::shorts) {
      code = static_cast<const std::uint16_t*>(channel)[i];
    } else {
      const float v = static_cast<const float*>(channel)[i];
      code = codeOf(v > 0 ? v / (colour ? white_ : 1.0f) : 0.0f);
    }
    return colour && decodes_ ? decode_[code] : code;
  };
  const auto unwork = [&](void* channel, std::ptrdiff_t i, std::uint16_t code, bool colour) {
    if (colour && decodes_) code = encode_[code];
    if (depth_ == Depth::bytes) {
      static_cast<std::uint8_t*>(channel)[i] = static_cast<std::uint8_t>((code + 128) / 257);
    } else if (depth_ == Depth::shorts) {
      static_cast<std::uint16_t*>(channel)[i] = code;
    } else {
      static_cast<float*>(channel)[i] = static_cast<float>(code) / most * (colour ? white_ : 1.0f);
    }
  };
  const auto band = [&](int from, int rows) {
    const std::size_t pixels = static_cast<std::size_t>(w) * static_cast<std::size_t>(rows);
    Codes fg(4 * pixels), bg, ref(4 * pixels), mattes(2 * pixels);
    std::vector<float> line(static_cast<std::size_t>(w));
    const auto take = [&](const OtileImage& image, Codes& to) {
      to.resize(4 * pixels);
      const std::array<const void*, 4> channels = {image.red, image.green, image.blue, image.alpha};
      for (std::size_t c = 0; c < 4; ++c) {
        std::size_t out = c;
        for (int y = from; y < from + rows; ++y) {
          for (int x = 0; x < w; ++x, out += 4) {
            to[out] = channels[c] == nullptr ? std::uint16_t{65535}
                                             : work(channels[c], at(image, x, y), c < 3);
          }
        }
      }
    };
    Frame part{{}, w, rows, Depth::shorts};
    take(frame.pictures.fg, fg);
    part.pictures.fg = part.pictures.dst = interleaved(fg, w);
    const bool background = frame.pictures.bg.red != nullptr;
    if (background) {
      take(frame.pictures.bg, bg);
      part.pictures.bg = interleaved(bg, w);
    }
    if (frame.pictures.ref.red != nullptr) {
      take(frame.pictures.ref, ref);
    } else {
      for (std::size_t c = 0; c < 3; ++c) {
        const Stretch clean(key.plate.clean[c], w, frame.height);
        std::size_t out = c;
        for (int y = from; y < from + rows; ++y) {
          clean.row(y, line.data());
          for (int x = 0; x < w; ++x, out += 4) {
            const float v = line[static_cast<std::size_t>(x)];
            if (key.encoding == Encoding::light) {
              ref[out] = codeOf(lightOfCode(v) / white_);
            } else {
              ref[out] = decodes_ ? decode_[codeOf(v)] : codeOf(v);
            }
          }
        }
      }
    }
    part.pictures.ref = interleaved(ref, w);
    const auto matte = [&](bool used, const OtileImage& image, const OtileImage& unless,
                           const Plane& found, std::uint16_t* to) -> OtileImage {
      if (!used) return {};
      const bool given = image.alpha != nullptr;
      for (int y = from; y < from + rows; ++y) {
        if (found.size() > 0) Stretch(found, w, frame.height).row(y, line.data());
        for (int x = 0; x < w; ++x) {
          const std::size_t out = static_cast<std::size_t>(y - from) * static_cast<std::size_t>(w) +
                                  static_cast<std::size_t>(x);
          std::uint16_t own =
              found.size() > 0 ? codeOf(line[static_cast<std::size_t>(x)]) : std::uint16_t{0};
          // What the caller keeps is not cut because it looks like screen.
          if (unless.alpha != nullptr) {
            own = std::min<std::uint16_t>(
                own,
                static_cast<std::uint16_t>(65535 - work(unless.alpha, at(unless, x, y), false)));
          }
          to[out] = given ? std::max(own, work(image.alpha, at(image, x, y), false)) : own;
        }
      }
      return {nullptr, nullptr, nullptr, to, 1, w};
    };
    const OtileImage held = used_.holdOut ? frame.pictures.hold : OtileImage{};
    part.pictures.hold = matte(used_.holdOut, frame.pictures.hold, {}, key.holdOut, mattes.data());
    part.pictures.garbage =
        matte(used_.garbage, frame.pictures.garbage, held, key.garbage, mattes.data() + pixels);
    if (engine_.finishes()) {
      engine_.render(part, rowLoop);
    } else {
      engine_.render(part, inOneBand);
    }
    const OtileImage& dst = frame.pictures.dst;
    const std::array<void*, 4> channels = {dst.red, dst.green, dst.blue, dst.alpha};
    for (std::size_t c = 0; c < 4; ++c) {
      if (channels[c] == nullptr) continue;
      std::size_t in = c;
      for (int y = from; y < from + rows; ++y) {
        for (int x = 0; x < w; ++x, in += 4) {
          unwork(channels[c], at(dst, x, y), fg[in], c < 3 && showsColours_);
        }
      }
    }
  };
  // A finish looks at what is around.
  if (engine_.finishes()) return band(0, frame.height);
  rowLoop(frame.height, bandRows, band);
}

}  // namespace orvanite
