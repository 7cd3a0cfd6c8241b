// SPDX-License-Identifier: BSD-3-Clause
#include "shot/Background.h"

#include <cstring>
#include <vector>

#include "base/Error.h"
#include "keyer/Samples.h"

namespace orvanite::shot {

Fit fitOf(const std::string& text, const std::string& subject) {
  if (text == "fill") return Fit::fill;
  if (text == "fit") return Fit::fit;
  if (text == "stretch") return Fit::stretch;
  if (text == "none") return Fit::none;
  throw Error::expected(Fault::wrongUse, subject, "fill, fit, stretch or none", text);
}

media::Picture fitted(const media::Picture& picture, double aspect, Fit fit,
                      const media::Window& frame, const std::string& from, const std::string& to,
                      Depth depth) {
  const int width = picture.data.width, height = picture.data.height;
  media::Picture result = media::Picture::make(frame, depth, picture.samples);
  result.hasAlpha = picture.hasAlpha;
  result.header = picture.header;
  Fitter fitter(width, height, placeOf(width, height, aspect, frame.width, frame.height, fit),
                frame.width, frame.height, from, to);
  const auto read = [&](int row, float* line) {
    std::memcpy(line, picture.pixels.get() + picture.rowBytes() * static_cast<std::size_t>(row),
                picture.rowBytes());
  };
  std::vector<float> line(4 * static_cast<std::size_t>(frame.width));
  for (int y = 0; y < frame.height; ++y) {
    fitter.row(y, read, line.data());
    toWorking(result.pixels.get() + result.rowBytes() * static_cast<std::size_t>(y), depth,
              reinterpret_cast<const std::byte*>(line.data()), Sample::real, line.size());
  }
  return result;
}

}  // namespace orvanite::shot
