// SPDX-License-Identifier: BSD-3-Clause
//
// OpenImageIO resamples: a picture's frame onto another one, by a filter that suits the ratio.
#include "shot/Background.h"

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "base/Error.h"
#include "engine/colour/Encoding.h"
#include "engine/colour/Power.h"

namespace orvanite::shot {
namespace {

using media::Picture;
using media::Window;

template <class Curve>
void apply(Picture& picture, const Curve& curve) {
  auto* pixel = reinterpret_cast<float*>(picture.pixels.get());
  const auto* const end = pixel + picture.bytes() / sizeof(float);
  for (; pixel != end; pixel += 4) {
    for (int c = 0; c < 3; ++c) pixel[c] = curve(pixel[c]);
  }
}

OIIO::ImageBuf bufferOver(Picture& picture, const Window& frame) {
  OIIO::ImageSpec spec(picture.data.width, picture.data.height, 4, OIIO::TypeDesc::FLOAT);
  spec.x = picture.data.x;
  spec.y = picture.data.y;
  spec.full_x = frame.x;
  spec.full_y = frame.y;
  spec.full_width = frame.width;
  spec.full_height = frame.height;
  return OIIO::ImageBuf(spec, picture.pixels.get());
}

// The picture's frame onto the place, of which the part inside the frame is made.
Picture resampled(Picture& picture, const Window& place, const Window& frame) {
  Picture result = Picture::make(frame, Depth::floats, picture.samples);
  std::memset(result.pixels.get(), 0, result.bytes());
  result.hasAlpha = picture.hasAlpha;
  result.header = picture.header;
  const OIIO::ImageBuf from = bufferOver(picture, picture.data);
  OIIO::ImageBuf to = bufferOver(result, place);
  const OIIO::ROI inside(std::max(frame.x, place.x),
                         std::min(frame.x + frame.width, place.x + place.width),
                         std::max(frame.y, place.y),
                         std::min(frame.y + frame.height, place.y + place.height), 0, 1, 0, 4);
  if (!OIIO::ImageBufAlgo::resize(to, from, "", 0, inside, 1)) {
    throw Error(Fault::failure, "background", "cannot be resampled: " + to.geterror());
  }
  return result;
}

}  // namespace

Fit fitOf(const std::string& text, const std::string& subject) {
  if (text == "fill") return Fit::fill;
  if (text == "fit") return Fit::fit;
  if (text == "stretch") return Fit::stretch;
  if (text == "none") return Fit::none;
  throw Error::expected(Fault::wrongUse, subject, "fill, fit, stretch or none", text);
}

Window placeOf(int width, int height, double aspect, const Window& frame, Fit fit) {
  double across = width, down = height;
  if (fit == Fit::stretch) {
    across = frame.width;
    down = frame.height;
  } else if (fit != Fit::none) {
    const double wide = frame.width / (width * aspect);
    const double high = static_cast<double>(frame.height) / height;
    const double scale = fit == Fit::fill ? std::max(wide, high) : std::min(wide, high);
    across = width * aspect * scale;
    down = height * scale;
  }
  const int columns = std::max(1, static_cast<int>(std::lround(across)));
  const int rows = std::max(1, static_cast<int>(std::lround(down)));
  const auto half = [](int room) { return room >= 0 ? room / 2 : -((1 - room) / 2); };
  return {frame.x + half(frame.width - columns), frame.y + half(frame.height - rows), columns,
          rows};
}

float toLight(float value, const std::string& encoding) {
  if (encoding == "linear") return value;
  if (encoding == "log") return toLinear(value, logSpace);
  return value <= 0.04045f ? value / 12.92f : power((value + 0.055f) / 1.055f, 2.4f);
}

float fromLight(float light, const std::string& encoding) {
  if (encoding == "linear") return light;
  if (encoding == "log") return fromLinear(light, logSpace);
  return light <= 0.0031308f ? light * 12.92f : std::fma(1.055f, power(light, 1 / 2.4f), -0.055f);
}

Picture fitted(Picture picture, const Window& place, const Window& frame, const std::string& from,
               const std::string& to) {
  const bool scaled = place.width != picture.data.width || place.height != picture.data.height;
  if (scaled || from != to) {
    apply(picture, [&](float value) { return toLight(value, from); });
  }
  if (scaled) {
    picture = resampled(picture, place, frame);
  } else {
    picture.data.x = place.x;
    picture.data.y = place.y;
    picture = media::placed(std::move(picture), frame);
  }
  if (scaled || from != to) {
    apply(picture, [&](float light) { return fromLight(light, to); });
  }
  return picture;
}

}  // namespace orvanite::shot
